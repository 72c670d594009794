#include <zem/Core/DraftQueueProxy.h>
#include <zem/Platform/RunLoop.h>

#include <gtest/gtest.h>

#include <Core/DraftQueueRuntime.h>
#include <Support/LogCapture.h>
#include <Support/Wait.h>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using Lines = std::vector<std::string>;

const Lines cannotInvoke{"error: unable to invoke callProxyMethod"};

class DraftQueueProxyTest : public testing::Test {
  protected:
    std::shared_ptr<DraftQueueProxy> proxy(const std::string& script) const {
        return DraftQueueProxy::create(runtime.value("(" + script + ")"));
    }

    /// A proxy of an object whose function has this body.
    std::shared_ptr<DraftQueueProxy> calling(const std::string& body) const {
        return proxy("{ callProxyMethod(name, args, onResult, onError) { " + body + " } }");
    }

    DraftQueueCallback adds(const std::string& prefix) {
        return [this, prefix](const std::string& text) {
            runtime.transcript.add(prefix + ": " + text);
        };
    }
    DraftQueueCallback onResult() { return adds("result"); }
    DraftQueueCallback onError() { return adds("error"); }

    void call(DraftQueueProxy& called) {
        called.callProxyMethod("method", "[]", onResult(), onError());
    }

    /// The lines of one call that this script answers.
    Lines answer(const std::string& script) {
        runtime.transcript.clear();
        call(*calling(script));
        return runtime.lines();
    }

    /// A call whose two callbacks say when they are let go of.
    void callWatched(DraftQueueProxy& called) {
        const std::shared_ptr<void> forResult(nullptr, [this](void*) { ++dropped; });
        const std::shared_ptr<void> forError(nullptr, [this](void*) { ++dropped; });
        called.callProxyMethod(
            "method", "[]",
            [forResult, heard = onResult()](const std::string& text) { heard(text); },
            [forError, heard = onError()](const std::string& text) { heard(text); });
    }

    std::atomic<int> dropped = 0; // outlives what the engine holds
    test::DraftQueueRuntime runtime;
};

// --- The call

TEST_F(DraftQueueProxyTest, CallsTheFunctionWithNameArgumentsResultAndError) {
    const auto called = proxy(R"js({
        name: "the queue",
        callProxyMethod(...values) {
            heard(`callProxyMethod on ${this.name} with ` +
                  values.map((value) => typeof value === "string" ? JSON.stringify(value)
                      : `${typeof value} ${value.name}/${value.length}`).join(", "));
        },
    })js");
    called->callProxyMethod("getQueue", R"(["a",1])", onResult(), onError());
    EXPECT_EQ(runtime.lines(),
              Lines{R"(callProxyMethod on the queue with "getQueue", "[\"a\",1]", )"
                    "function onResult/1, function onError/1"});
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_F(DraftQueueProxyTest, LeavesTextsAsTheyAre) {
    const auto called = calling("onResult(name + '|' + args);");
    for (const std::string& text : Lines{"", "not JSON", "[1, 2]", "{\"a\": [}", "\"", "é ☃ 😀",
                                         std::string("a\0b", 3), std::string(100000, 'x')}) {
        runtime.transcript.clear();
        called->callProxyMethod(text, text, onResult(), onError());
        EXPECT_EQ(runtime.lines(), Lines{"result: " + text + "|" + text});
    }
}

TEST_F(DraftQueueProxyTest, IgnoresWhatTheFunctionReturns) {
    for (const char* value :
         {"'x'", "5", "{ error: 'x' }", "Promise.resolve('x')", "{ then(done) { done('x'); } }"}) {
        EXPECT_EQ(answer(std::string("return ") + value + ";"), Lines{}) << value;
    }
    EXPECT_EQ(answer("onResult('a'); return 'x';"), Lines{"result: a"});
}

TEST_F(DraftQueueProxyTest, CallsAnInheritedFunctionAndReadsItOnce) {
    const auto called = proxy(R"js(new (class {
        get callProxyMethod() {
            heard("read");
            return (name, args, onResult) => onResult("done");
        }
    }))js");
    call(*called);
    EXPECT_EQ(runtime.lines(), (Lines{"read", "result: done"}));
}

TEST_F(DraftQueueProxyTest, CallsAFunctionOfAFunctionOrAnArray) {
    for (const char* object : {"() => {}", "[]"}) {
        runtime.transcript.clear();
        call(*proxy(std::string("Object.assign(") + object +
                    ", { callProxyMethod(name, args, onResult) { onResult('done'); } })"));
        EXPECT_EQ(runtime.lines(), Lines{"result: done"});
    }
}

// --- The answer

TEST_F(DraftQueueProxyTest, AnswersWithTheStringFormOfTheResult) {
    const std::vector<std::pair<std::string, std::string>> results{
        {"'text'", "text"},
        {"''", ""},
        {"'[{\"a\": 1}]'", "[{\"a\": 1}]"},
        {"5", "5"},
        {"2.5", "2.5"},
        {"true", "true"},
        {"null", "null"},
        {"undefined", "undefined"},
        {"", "undefined"}, // called with nothing
        {"[1, ['a']]", "1,a"},
        {"{ a: 1 }", "[object Object]"},
        {"{ toString() { return 'own'; } }", "own"},
        {"new Error('m')", "Error: m"},
        {"Symbol('s')", "Symbol(s)"},
        {"10n", "10"},
    };
    for (const auto& [script, text] : results) {
        EXPECT_EQ(answer("onResult(" + script + ");"), Lines{"result: " + text}) << script;
    }
}

TEST_F(DraftQueueProxyTest, FailsOnAResultWithoutAStringForm) {
    for (const char* script : {"Object.create(null)", "{ toString() { throw 'private'; } }",
                               "{ toString() { return {}; } , valueOf: undefined }"}) {
        EXPECT_EQ(answer(std::string("onResult(") + script + ");"),
                  Lines{"error: callProxyMethod gave a result that cannot be made text"})
            << script;
    }
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_F(DraftQueueProxyTest, FailsWithATextOrTheErrorOfAnObject) {
    for (const test::RejectionReason& reason : test::rejectionReasons) {
        EXPECT_EQ(answer(std::string("onError(") + reason.script + ");"),
                  Lines{std::string("error: ") + reason.textInProxy})
            << reason.script;
    }
    EXPECT_EQ(answer("onError();"), Lines{"error: Promise Rejected but no error found."});
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_F(DraftQueueProxyTest, PassesAPlainTextOn) {
    EXPECT_EQ(answer("onError('offline');"), Lines{"error: offline"});
}

TEST_F(DraftQueueProxyTest, CountsTheFirstOfSeveralAnswers) {
    EXPECT_EQ(answer("onResult('1'); onResult('2');"), Lines{"result: 1"});
    EXPECT_EQ(answer("onResult('1'); onError('2');"), Lines{"result: 1"});
    EXPECT_EQ(answer("onError('1'); onResult('2');"), Lines{"error: 1"});
    EXPECT_EQ(answer("onError('1'); onError('2');"), Lines{"error: 1"});
    EXPECT_EQ(answer("onResult(Object.create(null)); onResult('2');"),
              Lines{"error: callProxyMethod gave a result that cannot be made text"});
    runtime.evaluate("var later;");
    EXPECT_EQ(answer("later = onError; onResult('1');"), Lines{"result: 1"});
    runtime.evaluate("later('2'); later('3')");
    EXPECT_EQ(runtime.lines(), Lines{"result: 1"});
}

TEST_F(DraftQueueProxyTest, GivesTheRuntimeNothingBackOfAnAnswer) {
    EXPECT_EQ(answer("heard(String(onResult('1'))); heard(String(onError('2')));"),
              (Lines{"result: 1", "undefined", "undefined"}));
}

TEST_F(DraftQueueProxyTest, WaitsForAnAnswerThatComesLater) {
    runtime.evaluate("var later;");
    const auto called = calling("later = { onResult, onError }; heard(`asked ${name}`);");
    call(*called);
    runtime.evaluate("heard('later'); later.onResult('done')");
    call(*called);
    runtime.evaluate("heard('later'); later.onError({ error: 'failed' })");
    EXPECT_EQ(runtime.lines(), (Lines{"asked method", "later", "result: done", "asked method",
                                      "later", "error: failed"}));
}

TEST_F(DraftQueueProxyTest, TakesItsCallbacksAsThenWantsThem) {
    EXPECT_EQ(answer("Promise.resolve('done').then(onResult, onError);"), Lines{"result: done"});
    EXPECT_EQ(answer("Promise.reject({ error: 'x' }).then(onResult, onError);"), Lines{"error: x"});
    EXPECT_EQ(answer("new Promise((resolve, reject) => { reject({ error: 'x' }); resolve('y'); })"
                     ".then(onResult, onError);"),
              Lines{"error: x"});
    EXPECT_EQ(answer("new Promise(() => {}).then(onResult, onError);"), Lines{});
    EXPECT_EQ(answer("({ then(done, failed) { done('1'); failed('2'); } })"
                     ".then(onResult, onError);"),
              Lines{"result: 1"});
}

// --- Calls that fail

TEST_F(DraftQueueProxyTest, FailsBeforeItReturnsWhereThereIsNothingToCall) {
    const auto fails = [&](DraftQueueProxy& called) {
        runtime.transcript.clear();
        std::thread::id heard;
        called.callProxyMethod("method", "[]", onResult(), [&](const std::string& text) {
            EXPECT_FALSE(runtime.context.isEntered()) << "the engine has been left";
            heard = std::this_thread::get_id();
            runtime.transcript.add("error: " + text);
        });
        EXPECT_EQ(runtime.lines(), cannotInvoke);
        EXPECT_EQ(heard, std::this_thread::get_id());
    };
    for (const char* script :
         {"undefined", "null", "true", "5", "'text'", "Symbol('s')", "{}", "[]", "() => {}",
          "Object.create(null)", "{ CallProxyMethod() {} }", "{ callProxyMethod: undefined }",
          "{ callProxyMethod: null }", "{ callProxyMethod: 5 }", "{ callProxyMethod: {} }",
          "{ callProxyMethod: 'callProxyMethod' }"}) {
        SCOPED_TRACE(script);
        fails(*proxy(script));
    }
    fails(*DraftQueueProxy::create({}));
    const auto emptied = calling("onResult('never');");
    emptied->setTesselDraftQueue({});
    fails(*emptied);
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_F(DraftQueueProxyTest, FailsBeforeItReturnsWhereTheRuntimeThrows) {
    runtime.evaluate("var later;");
    for (const char* script : {
             "{ get callProxyMethod() { throw new Error('private'); } }",
             "{ callProxyMethod() { throw new Error('private'); } }",
             "{ callProxyMethod(...values) { later = values; throw new Error('private'); } }",
         }) {
        runtime.transcript.clear();
        runtime.uncaught.clear();
        call(*proxy(script));
        EXPECT_EQ(runtime.lines(), cannotInvoke) << script;
        EXPECT_EQ(runtime.uncaught.lines(), Lines{"Error: private"}) << script;
    }
    runtime.evaluate("later[2]('too late'); later[3]('too late')");
    EXPECT_EQ(runtime.lines(), cannotInvoke);
}

TEST_F(DraftQueueProxyTest, KeepsTheAnswerOfAFunctionThatThrowsThen) {
    EXPECT_EQ(answer("onResult('done'); throw 'x';"), Lines{"result: done"});
    EXPECT_EQ(answer("onError('failed'); throw 'y';"), Lines{"error: failed"});
    EXPECT_EQ(runtime.uncaught.lines(), (Lines{"x", "y"}));
}

// --- Threads

TEST_F(DraftQueueProxyTest, AnswersOnTheThreadOnWhichTheRuntimeDoesBeforeThatGoesOn) {
    runtime.evaluate("var later;");
    std::thread::id asked;
    test::setFunction(runtime.context, "where", 0, [&](js::Scope& scope, js::Local, js::Arguments) {
        asked = std::this_thread::get_id();
        return scope.undefined();
    });
    const auto called = calling("where(); later = onResult;");
    std::thread::id answered;
    called->callProxyMethod("method", "[]",
                            [&](const std::string&) { answered = std::this_thread::get_id(); }, {});
    EXPECT_EQ(asked, runtime.engineThread());
    std::thread other([&] {
        runtime.evaluate("later('done')");
        EXPECT_EQ(answered, runtime.engineThread());
    });
    other.join();
}

TEST_F(DraftQueueProxyTest, CountsTheFirstOfTwoAnswersFromTwoThreads) {
    runtime.evaluate("var result, error;");
    const auto called = calling("[result, error] = [onResult, onError];");
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> answers = 0;
        const auto count = [&](const std::string&) {
            ++answers;
        };
        called->callProxyMethod("method", "[]", count, count);
        std::thread other([&] { runtime.evaluate("result('1')"); });
        runtime.evaluate("error('2')");
        other.join();
        EXPECT_EQ(answers, 1);
    }
}

TEST_F(DraftQueueProxyTest, MayBeCalledAndGivenAnotherObjectOnAnyThread) {
    constexpr int threads = 3;
    constexpr int calls = 100;
    const js::Value objects[] = {
        runtime.value("({ callProxyMethod(name, args, onResult) { onResult('first'); } })"),
        runtime.value("({ callProxyMethod(name, args, onResult) { onResult('second'); } })"),
        {},
    };
    const auto called = DraftQueueProxy::create(objects[0]);
    std::atomic<int> answers = 0;
    std::vector<std::thread> callers;
    for (int thread = 0; thread < threads; ++thread) {
        callers.emplace_back([&] {
            for (int index = 0; index < calls; ++index) {
                called->callProxyMethod(
                    "method", "[]",
                    [&](const std::string& text) {
                        EXPECT_TRUE(text == "first" || text == "second") << text;
                        ++answers;
                    },
                    [&](const std::string& text) {
                        EXPECT_EQ(text, "unable to invoke callProxyMethod");
                        ++answers;
                    });
            }
        });
    }
    for (int index = 0; index < calls; ++index) {
        called->setTesselDraftQueue(objects[index % 3]);
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(answers, threads * calls);
}

// --- Callers

TEST_F(DraftQueueProxyTest, MayBeCalledFromItsCallbacks) {
    const auto called = calling("heard(name); onResult('done');");
    called->callProxyMethod(
        "first", "[]",
        [&](const std::string& text) {
            runtime.transcript.add("first " + text);
            called->callProxyMethod("second", "[]", onResult(), onError());
            runtime.transcript.add("first is done");
        },
        onError());
    EXPECT_EQ(runtime.lines(),
              (Lines{"first", "first done", "second", "result: done", "first is done"}));
}

TEST_F(DraftQueueProxyTest, LogsWhatACallbackThrows) {
    const test::LogCapture log;
    const auto throws = [](const std::string&) {
        throw std::runtime_error("a secret");
    };
    const auto called = calling("try { name === 'fail' ? onError('x') : onResult('x'); heard('went "
                                "on'); } catch { heard('threw'); }");
    called->callProxyMethod("succeed", "[]", throws, throws);
    called->callProxyMethod("fail", "[]", throws, throws);
    DraftQueueProxy::create({})->callProxyMethod("method", "[]", throws, throws);
    EXPECT_EQ(runtime.lines(), (Lines{"went on", "went on"}));
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
    EXPECT_EQ(log.lines(), Lines(3, "a callback of callProxyMethod threw: <private>"));
}

TEST_F(DraftQueueProxyTest, CallsAlsoWhereNobodyListens) {
    const test::LogCapture log;
    const auto called = calling("heard('asked'); name === 'fail' ? onError('x') : onResult('x');");
    called->callProxyMethod("succeed", "[]", nullptr, onError());
    called->callProxyMethod("fail", "[]", onResult(), nullptr);
    EXPECT_EQ(runtime.lines(), (Lines{"asked", "asked"}));
    EXPECT_EQ(log.lines(), Lines{});
}

// --- Replacing and ends

TEST_F(DraftQueueProxyTest, UsesTheObjectThatIsSetWhenACallBegins) {
    std::shared_ptr<DraftQueueProxy> called;
    js::Value next =
        runtime.value("({ callProxyMethod(name, args, onResult) { onResult('of the second'); } })");
    test::setFunction(runtime.context, "replace", 0,
                      [&](js::Scope& scope, js::Local, js::Arguments) {
                          called->setTesselDraftQueue(next);
                          return scope.undefined();
                      });
    runtime.evaluate("var later;");
    called = proxy(R"js({
        name: "of the first",
        callProxyMethod(name, args, onResult) {
            replace();
            later = () => onResult(this.name);
        },
    })js");
    call(*called);
    call(*called);
    EXPECT_EQ(runtime.lines(), Lines{"result: of the second"});
    runtime.evaluate("later()");
    EXPECT_EQ(runtime.lines(), (Lines{"result: of the second", "result: of the first"}));
}

TEST_F(DraftQueueProxyTest, LetsGoOfAnObjectThatIsReplaced) {
    const std::size_t before = runtime.context.handleCount();
    const auto called = calling("");
    EXPECT_EQ(runtime.context.handleCount(), before + 1);
    called->setTesselDraftQueue({});
    test::collectGarbage(runtime.context);
    EXPECT_EQ(runtime.context.handleCount(), before);
}

TEST_F(DraftQueueProxyTest, MayBeGivenAnObjectLater) {
    const auto called = DraftQueueProxy::create({});
    called->setTesselDraftQueue(
        runtime.value("({ callProxyMethod(name, args, onResult) { onResult('done'); } })"));
    call(*called);
    EXPECT_EQ(runtime.lines(), Lines{"result: done"});
}

TEST_F(DraftQueueProxyTest, LetsGoOfBothCallbacksWhenItIsAnswered) {
    runtime.evaluate("var kept = [];");
    const auto called = calling("kept.push(onResult, onError);");
    callWatched(*called);
    callWatched(*called);
    EXPECT_EQ(dropped, 0);
    runtime.evaluate("kept[0]('done')");
    EXPECT_EQ(dropped, 2) << "the runtime still has all functions";
    runtime.evaluate("kept[3]('failed')");
    EXPECT_EQ(dropped, 4);
    callWatched(*DraftQueueProxy::create({}));
    EXPECT_EQ(dropped, 6);
    EXPECT_EQ(runtime.lines(),
              (Lines{"result: done", "error: failed", "error: unable to invoke callProxyMethod"}));
}

TEST_F(DraftQueueProxyTest, LetsGoOfCallbacksThatTheRuntimeForgets) {
    callWatched(*calling("new Promise(() => {}).then(onResult, onError);"));
    test::waitUntil("the end of the callbacks", [&] {
        test::collectGarbage(runtime.context);
        return dropped == 2;
    });
    EXPECT_EQ(runtime.lines(), Lines{});
}

TEST_F(DraftQueueProxyTest, AnswersAlsoWhenItIsGone) {
    runtime.evaluate("var later;");
    auto called = calling("later = onResult;");
    callWatched(*called);
    const std::weak_ptr<DraftQueueProxy> watched = called;
    called.reset();
    EXPECT_TRUE(watched.expired());
    runtime.evaluate("later('done')");
    EXPECT_EQ(runtime.lines(), Lines{"result: done"});
    EXPECT_EQ(dropped, 2);
}

TEST_F(DraftQueueProxyTest, MayGoWhileTheRuntimeIsCalled) {
    std::shared_ptr<DraftQueueProxy> called;
    test::setFunction(runtime.context, "drop", 0, [&](js::Scope& scope, js::Local, js::Arguments) {
        called.reset();
        return scope.undefined();
    });
    called = calling("drop(); onResult('done');");
    call(*called);
    called = calling("drop(); throw 'x';");
    call(*called);
    EXPECT_EQ(called, nullptr);
    EXPECT_EQ(runtime.lines(), (Lines{"result: done", "error: unable to invoke callProxyMethod"}));
}

TEST_F(DraftQueueProxyTest, KeepsTheContextThatTheApplicationLetGoOf) {
    js::Context own = test::makeUncheckedContext();
    auto called = DraftQueueProxy::create(own.perform([](js::Scope& scope) {
        return scope.keep(scope
                              .evaluate("var kept = []; ({ callProxyMethod(name, args, onResult, "
                                        "onError) { kept.push(onError); name === 'answer' && "
                                        "onResult('done'); } })",
                                        "test.js")
                              .value());
    }));
    own = {};
    called->callProxyMethod("answer", "[]", onResult(), onError());
    EXPECT_EQ(runtime.lines(), Lines{"result: done"});
    callWatched(*called);
    EXPECT_EQ(dropped, 0);
    called.reset();
    test::waitUntil("the end of the callbacks", [&] { return dropped == 2; });
    EXPECT_EQ(runtime.lines(), Lines{"result: done"});
}

TEST_F(DraftQueueProxyTest, FailsWhenTheContextsThreadHasEnded) {
    const test::LogCapture log;
    auto thread = std::make_unique<platform::RunLoopThread>("short-lived");
    const js::Context own = js::Context::create(thread->runLoop());
    const auto called = DraftQueueProxy::create(own.perform([](js::Scope& scope) {
        return scope.keep(
            scope
                .evaluate("({ callProxyMethod(name, args, onResult) { onResult('done'); } })",
                          "test.js")
                .value());
    }));
    thread.reset();
    callWatched(*called);
    EXPECT_EQ(runtime.lines(), cannotInvoke);
    EXPECT_EQ(dropped, 2);
    EXPECT_EQ(log.lines(), Lines{"the runtime was not called: the thread that the context is bound "
                                 "to has ended"});
}

} // namespace
