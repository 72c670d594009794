// "ZemDraftQueue": what it passes on, and the whole way from JavaScript to a draft queue and back.

#include <zem/Core/DraftQueueProxy.h>
#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/Connection.h>
#include <zem/TesselPluginZEM/DraftQueue/DraftQueuePlugin.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using Lines = std::vector<std::string>;

const std::string noQueue = "Unable to get reference to draft queue";

/// Writes down how it is called, and does then what the test says.
class FakeDraftQueue final : public DraftQueueable {
  public:
    using Answer = std::function<void(DraftQueueCallback onResult, DraftQueueCallback onError)>;

    FakeDraftQueue(test::Transcript& transcript, std::string name, Answer answer)
        : transcript(transcript)
        , name(std::move(name))
        , answer(std::move(answer)) {}

    void callProxyMethod(std::string methodName, std::string serializedArgsArray,
                         DraftQueueCallback onResult, DraftQueueCallback onError) override {
        transcript.add(name + ": " + methodName + "(" + serializedArgsArray + ")");
        answer(std::move(onResult), std::move(onError));
    }

  private:
    test::Transcript& transcript;
    const std::string name;
    const Answer answer;
};

class DraftQueuePluginTest : public testing::Test {
  protected:
    DraftQueuePluginTest() {
        setUp(context);
        connection.emplace(context);
        connection->add(*plugin);
    }
    ~DraftQueuePluginTest() override {
        context.setUncaughtHandler(nullptr);
        // Tasks on their way to the context's thread still use the test's members.
        context.perform([](js::Scope&) {});
    }

    void setUp(const js::Context& made) {
        made.setUncaughtHandler(
            [this](js::Scope&, const js::Exception& exception) { uncaught.add(exception.text()); });
        test::setFunction(made, "heard", 1,
                          [this](js::Scope& scope, js::Local, js::Arguments arguments) {
                              transcript.add(scope.toText(arguments[0]));
                              happened.signal();
                              return scope.undefined();
                          });
        test::evaluate(made, R"js(
            var result = (text) => heard("result: " + text);
            var error = (text) => heard("error: " + text);
        )js");
    }

    std::shared_ptr<FakeDraftQueue> fake(FakeDraftQueue::Answer answer,
                                         std::string name = "queue") {
        return std::make_shared<FakeDraftQueue>(transcript, std::move(name), std::move(answer));
    }

    DraftQueueCallback adds(const std::string& prefix) {
        return [this, prefix](const std::string& text) {
            transcript.add(prefix + ": " + text);
        };
    }

    void call(DraftQueuePlugin& called, const std::string& methodName = "method") {
        called.callProxyMethod(methodName, "[]", adds("result"), adds("error"));
    }

    void evaluate(const std::string& script) const { test::evaluate(context, script); }

    /// All lines, once JavaScript has heard this often.
    Lines waitForHeard(int times) {
        happened.wait(times);
        return transcript.lines();
    }

    /// The proxy of an object whose function has this body.
    static std::shared_ptr<DraftQueueProxy> proxy(const js::Context& of, const std::string& body) {
        return DraftQueueProxy::create(of.perform([&](js::Scope& scope) {
            return scope.keep(scope
                                  .evaluate("({ callProxyMethod(name, args, onResult, onError) { " +
                                                body + " } })",
                                            "test.js")
                                  .value());
        }));
    }

    test::Transcript transcript;
    test::Transcript uncaught;
    test::Event happened{"a line of JavaScript"};
    const js::Context context = test::makeContext();
    std::shared_ptr<DraftQueuePlugin> plugin = DraftQueuePlugin::create(nullptr);
    std::optional<tessel::Connection> connection;
};

// --- The method

TEST_F(DraftQueuePluginTest, BindsItsMethod) {
    EXPECT_EQ(plugin->namespace_(), "ZemDraftQueue");
    test::expectEval(context, "Object.keys(ZemDraftQueue)", "array", R"(["callProxyMethod"])");
    test::expectEval(context,
                     "[ZemDraftQueue.callProxyMethod.name, ZemDraftQueue.callProxyMethod.length]",
                     "array", R"(["callProxyMethod",4])");
}

TEST_F(DraftQueuePluginTest, PassesAllFourOnUnchanged) {
    plugin->setDraftQueue(
        fake([](const DraftQueueCallback& onResult, const DraftQueueCallback&) { onResult("1"); }));
    plugin->callProxyMethod("getQueue", R"(["a",1])", adds("result"), adds("error"));
    plugin->setDraftQueue(
        fake([](const DraftQueueCallback&, const DraftQueueCallback& onError) { onError("2"); }));
    plugin->callProxyMethod("", "not JSON", adds("result"), adds("error"));
    EXPECT_EQ(transcript.lines(),
              (Lines{R"(queue: getQueue(["a",1]))", "result: 1", "queue: (not JSON)", "error: 2"}));
}

TEST_F(DraftQueuePluginTest, PassesCallsOfJavaScriptOnUnchanged) {
    plugin->setDraftQueue(fake([](const DraftQueueCallback& onResult, const DraftQueueCallback&) {
        onResult("{\"a\": [1]}");
    }));
    evaluate(R"js(ZemDraftQueue.callProxyMethod("getQueue", '["a", 1]', result, error))js");
    EXPECT_EQ(waitForHeard(1), (Lines{R"(queue: getQueue(["a", 1]))", R"(result: {"a": [1]})"}));
    plugin->setDraftQueue(
        fake([](const DraftQueueCallback&, const DraftQueueCallback& onError) { onError("é\n"); }));
    evaluate(R"js(ZemDraftQueue.callProxyMethod("é", "", result, error, "a fifth"))js");
    EXPECT_EQ(waitForHeard(2), (Lines{R"(queue: getQueue(["a", 1]))", R"(result: {"a": [1]})",
                                      "queue: é()", "error: é\n"}));
    EXPECT_EQ(uncaught.lines(), Lines{});
}

TEST_F(DraftQueuePluginTest, ReturnsNothingToJavaScript) {
    plugin->setDraftQueue(fake([](const DraftQueueCallback&, const DraftQueueCallback&) {}));
    test::expectEval(context, "ZemDraftQueue.callProxyMethod('method', '[]', result, error)",
                     "undefined", "undefined");
}

TEST_F(DraftQueuePluginTest, WantsTwoTextsAndTwoFunctions) {
    plugin->setDraftQueue(fake([](const DraftQueueCallback&, const DraftQueueCallback&) {}));
    struct Kind {
        const char* script;
        const char* name;
    };
    const Kind kinds[] = {
        {"undefined", "undefined"}, {"null", "null"},           {"true", "a boolean"},
        {"5", "a number"},          {"'x'", "a string"},        {"['x']", "an array"},
        {"({})", "an object"},      {"() => {}", "a function"}, {"Symbol()", "a symbol"},
        {"10n", "a BigInt"},
    };
    const std::vector<std::string> right{"'method'", "'[]'", "result", "error"};
    for (std::size_t place = 0; place < right.size(); ++place) {
        const std::string wanted = place < 2 ? "a string" : "a function";
        const std::string prefix = "TypeError: ZemDraftQueue.callProxyMethod, argument " +
                                   std::to_string(place + 1) + ": expected " + wanted + ", found ";
        const auto callWith = [&](std::size_t count, const std::string& changed) {
            std::string script = "ZemDraftQueue.callProxyMethod(";
            for (std::size_t index = 0; index < count; ++index) {
                script += (index == 0 ? "" : ", ") + (index == place ? changed : right[index]);
            }
            return script + ")";
        };
        for (const Kind& kind : kinds) {
            if (kind.name != wanted) {
                test::expectEval(context, callWith(right.size(), kind.script), "exception",
                                 prefix + kind.name);
            }
        }
        test::expectEval(context, callWith(place, ""), "exception", prefix + "nothing");
    }
    EXPECT_EQ(transcript.lines(), Lines{});
    test::collectGarbage(context);
    EXPECT_EQ(connection->activity().outstanding(), 0u);
}

// --- Without a draft queue

TEST_F(DraftQueuePluginTest, FailsEveryCallAtOnceWithoutADraftQueue) {
    for (int index = 0; index < 3; ++index) {
        transcript.clear();
        std::thread::id heard;
        plugin->callProxyMethod("method", "[]", adds("result"), [&](const std::string& text) {
            heard = std::this_thread::get_id();
            transcript.add("error: " + text);
        });
        EXPECT_EQ(transcript.lines(), Lines{"error: " + noQueue});
        EXPECT_EQ(heard, std::this_thread::get_id());
    }
    plugin->callProxyMethod("method", "[]", adds("result"), nullptr);
    EXPECT_EQ(transcript.lines(), Lines{"error: " + noQueue});
}

TEST_F(DraftQueuePluginTest, FailsEveryCallOfJavaScriptWithoutADraftQueue) {
    evaluate("for (let i = 0; i < 3; i++) "
             "ZemDraftQueue.callProxyMethod('method', '[]', result, error);");
    EXPECT_EQ(waitForHeard(3), Lines(3, "error: " + noQueue));
    EXPECT_EQ(uncaught.lines(), Lines{});
}

TEST_F(DraftQueuePluginTest, FailsWhenTheDraftQueueIsTakenOut) {
    plugin->setDraftQueue(fake(
        [](const DraftQueueCallback& onResult, const DraftQueueCallback&) { onResult("done"); }));
    call(*plugin);
    plugin->setDraftQueue(nullptr);
    call(*plugin);
    EXPECT_EQ(transcript.lines(),
              (Lines{"queue: method([])", "result: done", "error: " + noQueue}));
}

// --- Replacing and ends

TEST_F(DraftQueuePluginTest, TakesTheDraftQueueItIsMadeWith) {
    const auto own = DraftQueuePlugin::create(fake(
        [](const DraftQueueCallback& onResult, const DraftQueueCallback&) { onResult("done"); }));
    call(*own);
    EXPECT_EQ(transcript.lines(), (Lines{"queue: method([])", "result: done"}));
}

TEST_F(DraftQueuePluginTest, UsesTheDraftQueueThatIsInstalledWhenACallBegins) {
    const auto second = fake([](const DraftQueueCallback& onResult,
                                const DraftQueueCallback&) { onResult("of the second"); },
                             "second");
    auto first = fake(
        [&](const DraftQueueCallback& onResult, const DraftQueueCallback&) {
            plugin->setDraftQueue(second);
            call(*plugin, "within");
            onResult("of the first");
        },
        "first");
    const std::weak_ptr<FakeDraftQueue> watched = first;
    plugin->setDraftQueue(std::exchange(first, nullptr));
    call(*plugin);
    EXPECT_EQ(transcript.lines(), (Lines{"first: method([])", "second: within([])",
                                         "result: of the second", "result: of the first"}));
    EXPECT_TRUE(watched.expired()) << "it was kept for as long as it was called";
}

TEST_F(DraftQueuePluginTest, MayBeCalledByADraftQueueThatIsLetGoOf) {
    std::shared_ptr<void> token(nullptr, [&](void*) {
        platform::Mutex::assertNoneHeld("a draft queue is let go of");
        call(*plugin);
    });
    plugin->setDraftQueue(
        fake([token = std::move(token)](const DraftQueueCallback&, const DraftQueueCallback&) {}));
    plugin->setDraftQueue(nullptr);
    EXPECT_EQ(transcript.lines(), Lines{"error: " + noQueue});
}

TEST_F(DraftQueuePluginTest, IsGoneForJavaScriptWhenItWasDropped) {
    plugin.reset();
    test::expectEval(context, "ZemDraftQueue.callProxyMethod('method', '[]', result, error)",
                     "exception", "Error: ZemDraftQueue.callProxyMethod: the plugin is gone");
}

TEST_F(DraftQueuePluginTest, AnswersWhatItPassedOnAlsoWhenItIsGone) {
    std::vector<DraftQueueCallback> kept;
    plugin->setDraftQueue(fake([&](DraftQueueCallback onResult, const DraftQueueCallback&) {
        kept.push_back(std::move(onResult));
    }));
    evaluate("ZemDraftQueue.callProxyMethod('method', '[]', result, error)");
    plugin.reset();
    connection.reset();
    kept.at(0)("done");
    EXPECT_EQ(waitForHeard(1), (Lines{"queue: method([])", "result: done"}));
}

TEST_F(DraftQueuePluginTest, MayGoWhileItIsCalled) {
    plugin->setDraftQueue(fake([&](const DraftQueueCallback& onResult, const DraftQueueCallback&) {
        plugin.reset();
        onResult("done");
    }));
    evaluate("ZemDraftQueue.callProxyMethod('method', '[]', result, error)");
    EXPECT_EQ(waitForHeard(1), (Lines{"queue: method([])", "result: done"}));
    EXPECT_EQ(plugin, nullptr);
}

TEST_F(DraftQueuePluginTest, ThrowsToItsCallerWhatTheDraftQueueThrows) {
    plugin->setDraftQueue(fake([](const DraftQueueCallback&, const DraftQueueCallback&) {
        throw std::runtime_error("no such method");
    }));
    test::expectEval(context, "ZemDraftQueue.callProxyMethod('method', '[]', result, error)",
                     "exception", "Error: no such method");
    EXPECT_THROW(call(*plugin), std::runtime_error);
}

TEST_F(DraftQueuePluginTest, MayBeCalledAndGivenAnotherDraftQueueOnAnyThread) {
    constexpr int threads = 3;
    constexpr int calls = 200;
    std::atomic<int> asked = 0;
    const auto installed = fake([&](const DraftQueueCallback& onResult, const DraftQueueCallback&) {
        ++asked;
        onResult("done");
    });
    std::atomic<int> results = 0;
    std::atomic<int> errors = 0;
    std::vector<std::thread> callers;
    for (int thread = 0; thread < threads; ++thread) {
        callers.emplace_back([&] {
            for (int index = 0; index < calls; ++index) {
                plugin->callProxyMethod(
                    "method", "[]", [&](const std::string&) { ++results; },
                    [&](const std::string&) { ++errors; });
            }
        });
    }
    for (int index = 0; index < calls; ++index) {
        plugin->setDraftQueue(index % 2 == 0 ? installed : nullptr);
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(results + errors, threads * calls);
    EXPECT_EQ(results, asked);
}

// --- Callbacks that JavaScript waits for

TEST_F(DraftQueuePluginTest, CountsBothCallbacksUntilTheyAreLetGoOf) {
    std::vector<DraftQueueCallback> kept;
    plugin->setDraftQueue(fake([&](DraftQueueCallback onResult, DraftQueueCallback onError) {
        kept = {std::move(onResult), std::move(onError)};
    }));
    evaluate("ZemDraftQueue.callProxyMethod('method', '[]', result, error)");
    EXPECT_EQ(connection->activity().outstanding(), 2u);
    kept.clear();
    EXPECT_EQ(connection->activity().outstanding(), 0u);
}

TEST_F(DraftQueuePluginTest, LeavesNothingOutstandingWhenAProxyHasAnswered) {
    evaluate("var kept = [];");
    plugin->setDraftQueue(proxy(context, "kept.push(onResult, onError); heard('asked');"));
    evaluate("ZemDraftQueue.callProxyMethod('method', '[]', result, error); "
             "ZemDraftQueue.callProxyMethod('method', '[]', result, error);");
    EXPECT_EQ(waitForHeard(2), (Lines{"asked", "asked"}));
    EXPECT_EQ(connection->activity().outstanding(), 4u);
    evaluate("kept[0]('done'); kept[3]('failed')");
    EXPECT_EQ(waitForHeard(4), (Lines{"asked", "asked", "result: done", "error: failed"}));
    test::waitUntil("the end of all that is outstanding",
                    [&] { return connection->activity().outstanding() == 0; });
    evaluate("kept[1]('late'); kept[2]('late')");
    context.perform([](js::Scope&) {});
    EXPECT_EQ(transcript.lines(), (Lines{"asked", "asked", "result: done", "error: failed"}));
}

TEST_F(DraftQueuePluginTest, LeavesNothingOutstandingWhenTheRuntimeForgetsToAnswer) {
    plugin->setDraftQueue(proxy(context, "new Promise(() => {}).then(onResult, onError);"));
    evaluate("ZemDraftQueue.callProxyMethod('method', '[]', result, error)");
    test::waitUntil("the end of all that is outstanding", [&] {
        test::collectGarbage(context);
        return connection->activity().outstanding() == 0;
    });
    EXPECT_EQ(transcript.lines(), Lines{});
}

// --- All the way

TEST_F(DraftQueuePluginTest, ReachesADraftQueueOfTheSameEngine) {
    plugin->setDraftQueue(proxy(context, R"js(
        heard(`asked for ${name} of ${args}`);
        const answer = JSON.stringify(JSON.parse(args).map((text) => text.toUpperCase()));
        Promise.resolve().then(() => name === "upper" ? onResult(answer) : onError("no " + name));
    )js"));
    evaluate(R"js(
        ZemDraftQueue.callProxyMethod("upper", '["a","b"]', result, error);
        ZemDraftQueue.callProxyMethod("lower", "[]", result, error);
        heard("returned");
    )js");
    EXPECT_EQ(waitForHeard(5), (Lines{R"(asked for upper of ["a","b"])", "asked for lower of []",
                                      "returned", R"(result: ["A","B"])", "error: no lower"}));
    EXPECT_EQ(uncaught.lines(), Lines{});
}

// Inline a callback is called at once, bound when the thread has nothing else to do.
TEST_F(DraftQueuePluginTest, AnswersTheSameEngineAtOnceWhereThatIsEnteredInline) {
    plugin->setDraftQueue(proxy(context, "onResult('done');"));
    evaluate("ZemDraftQueue.callProxyMethod('method', '[]', result, error); heard('returned');");
    const Lines expected = test::engineEntry == test::EngineEntry::inline_
                               ? Lines{"result: done", "returned"}
                               : Lines{"returned", "result: done"};
    EXPECT_EQ(waitForHeard(2), expected);
}

TEST_F(DraftQueuePluginTest, TellsJavaScriptOfAnObjectThatCannotBeCalled) {
    plugin->setDraftQueue(DraftQueueProxy::create({}));
    evaluate("ZemDraftQueue.callProxyMethod('method', '[]', result, error)");
    plugin->setDraftQueue(proxy(context, "throw new Error('broken');"));
    evaluate("ZemDraftQueue.callProxyMethod('method', '[]', result, error)");
    EXPECT_EQ(waitForHeard(2), Lines(2, "error: unable to invoke callProxyMethod"));
    EXPECT_EQ(uncaught.lines(), Lines{"Error: broken"});
}

TEST_F(DraftQueuePluginTest, LeavesWhatACallbackThrowsToTheContextsHandler) {
    plugin->setDraftQueue(proxy(context, "onResult('done'); heard('went on');"));
    evaluate("ZemDraftQueue.callProxyMethod('method', '[]', "
             "(text) => { throw new Error('in the callback'); }, error)");
    EXPECT_EQ(waitForHeard(1), Lines{"went on"});
    context.perform([](js::Scope&) {});
    EXPECT_EQ(uncaught.lines(), Lines{"Error: in the callback"});
    EXPECT_EQ(transcript.lines(), Lines{"went on"});
}

TEST_F(DraftQueuePluginTest, ReachesADraftQueueOfAnotherEngine) {
    const platform::RunLoopThread thread("another engine");
    const js::Context other = test::engineEntry == test::EngineEntry::inline_
                                  ? js::Context::create()
                                  : js::Context::create(thread.runLoop());
    setUp(other);
    plugin->setDraftQueue(proxy(other, R"js(
        heard(`asked for ${name} of ${args}`);
        name === "succeed" ? onResult(args) : onError({ error: "no " + name });
    )js"));
    evaluate("ZemDraftQueue.callProxyMethod('succeed', '[1]', result, error)");
    EXPECT_EQ(waitForHeard(2), (Lines{"asked for succeed of [1]", "result: [1]"}));
    evaluate("ZemDraftQueue.callProxyMethod('fail', '[]', result, error)");
    EXPECT_EQ(waitForHeard(4), (Lines{"asked for succeed of [1]", "result: [1]",
                                      "asked for fail of []", "error: no fail"}));
    EXPECT_EQ(uncaught.lines(), Lines{});
    other.setUncaughtHandler(nullptr);
    plugin->setDraftQueue(nullptr);
}

TEST_F(DraftQueuePluginTest, ServesSeveralEngines) {
    const js::Context other = test::makeContext();
    setUp(other);
    tessel::Connection second(other);
    second.add(*plugin);
    plugin->setDraftQueue(proxy(context, "onResult(name);"));
    evaluate("ZemDraftQueue.callProxyMethod('from the first', '[]', result, error)");
    waitForHeard(1);
    test::evaluate(other, "ZemDraftQueue.callProxyMethod('from the second', '[]', result, error)");
    EXPECT_EQ(waitForHeard(2), (Lines{"result: from the first", "result: from the second"}));
    other.setUncaughtHandler(nullptr);
}

} // namespace
