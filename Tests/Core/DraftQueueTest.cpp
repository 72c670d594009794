#include <zem/Core/DraftQueue.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/Coding.h>

#include <gtest/gtest.h>

#include <Core/DraftQueueRuntime.h>
#include <Support/LogCapture.h>
#include <Support/Wait.h>
#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

namespace {

using namespace zem;
using Lines = std::vector<std::string>;
using Outcome = std::expected<ProcessActionResult, DraftQueueNativeError>;

std::string textOf(const Outcome& outcome) {
    if (outcome) {
        return std::string(tessel::rawText(*outcome));
    }
    if (const auto* rejection =
            std::get_if<DraftQueueNativeError::PromiseRejection>(&outcome.error().value)) {
        return "rejected: " + rejection->message;
    }
    return "not decoded: " +
           std::get<DraftQueueNativeError::DecodingPromiseError>(outcome.error().value)
               .error.description();
}

class DraftQueueTest : public testing::Test {
  protected:
    std::shared_ptr<DraftQueue> queue(const std::string& script) const {
        return DraftQueue::create(runtime.value("(" + script + ")"));
    }

    /// A queue whose function has this body.
    std::shared_ptr<DraftQueue> processing(const std::string& body) const {
        return queue("{ processNextAction() { " + body + " } }");
    }

    ProcessActionCallback response() {
        return [this](const Outcome& outcome) {
            runtime.transcript.add(textOf(outcome));
        };
    }

    /// A response that says when it is let go of.
    ProcessActionCallback watchedResponse() {
        return [watched = std::shared_ptr<void>(nullptr, [this](void*) { ++dropped; }),
                heard = response()](const Outcome& outcome) {
            heard(outcome);
        };
    }

    std::atomic<int> dropped = 0; // outlives what the engine holds
    test::DraftQueueRuntime runtime;
};

// --- The call

TEST_F(DraftQueueTest, CallsTheRuntimesFunctionWithoutArguments) {
    const auto asked = queue(R"js({
        name: "the queue",
        processNextAction(...values) {
            heard(`processNextAction on ${this.name} with ${values.length}`);
            return Promise.resolve("SUCCESS");
        },
    })js");
    asked->processNextAction(response());
    EXPECT_EQ(runtime.lines(), (Lines{"processNextAction on the queue with 0", "SUCCESS"}));
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_F(DraftQueueTest, CallsTheRuntimeOnceForEachCall) {
    const auto asked = processing("heard('asked'); return Promise.resolve('SUCCESS');");
    EXPECT_EQ(runtime.lines(), Lines{});
    asked->processNextAction(response());
    asked->processNextAction(response());
    EXPECT_EQ(runtime.lines(), (Lines{"asked", "SUCCESS", "asked", "SUCCESS"}));
}

TEST_F(DraftQueueTest, CallsAnInheritedFunction) {
    const auto asked = queue("new (class { processNextAction() { "
                             "return Promise.resolve('NETWORK_ERROR'); } })");
    asked->processNextAction(response());
    EXPECT_EQ(runtime.lines(), Lines{"NETWORK_ERROR"});
}

TEST_F(DraftQueueTest, WantsAValue) {
    try {
        (void)DraftQueue::create({});
        FAIL() << "it was made";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(),
                     "DraftQueue: expected the runtime's draft queue, found no value");
    }
}

// --- The answer

TEST_F(DraftQueueTest, AnswersWithEachOutcome) {
    const std::vector<std::pair<std::string, ProcessActionResult>> outcomes{
        {"ERROR", ProcessActionResult::actionError},
        {"SUCCESS", ProcessActionResult::actionSucceeded},
        {"NO_ACTION_TO_PROCESS", ProcessActionResult::noActionToProcess},
        {"ACTION_ALREADY_PROCESSING", ProcessActionResult::actionAlreadyProcessing},
        {"NETWORK_ERROR", ProcessActionResult::networkError},
        {"BLOCKED_ON_ERROR", ProcessActionResult::blockedOnError},
    };
    for (const auto& [text, expected] : outcomes) {
        std::optional<Outcome> heard;
        processing("return Promise.resolve('" + text + "');")
            ->processNextAction([&](Outcome outcome) { heard = std::move(outcome); });
        EXPECT_EQ(heard, Outcome(expected)) << text;
    }
}

TEST_F(DraftQueueTest, FailsOnAnotherTextThanTheSix) {
    std::optional<Outcome> heard;
    processing("return Promise.resolve('success');")->processNextAction([&](Outcome outcome) {
        heard = std::move(outcome);
    });
    const tessel::DecodingError expected{
        {},
        R"(expected one of "ERROR", "SUCCESS", "NO_ACTION_TO_PROCESS", )"
        R"("ACTION_ALREADY_PROCESSING", "NETWORK_ERROR", "BLOCKED_ON_ERROR", found another string)"};
    EXPECT_EQ(heard,
              Outcome(std::unexpected(DraftQueueNativeError::decodingPromiseError(expected))));
}

TEST_F(DraftQueueTest, FailsOnWhatIsNoText) {
    const std::vector<std::pair<std::string, std::string>> values{
        {"undefined", "undefined"},
        {"null", "null"},
        {"true", "a boolean"},
        {"0", "a number"},
        {"['SUCCESS']", "an array"},
        {"{ result: 'SUCCESS' }", "an object"},
        {"new String('SUCCESS')", "an object"},
        {"() => 'SUCCESS'", "a function"},
        {"Symbol('SUCCESS')", "a symbol"},
        {"10n", "a BigInt"},
    };
    for (const auto& [value, kind] : values) {
        runtime.transcript.clear();
        processing("return Promise.resolve(" + value + ");")->processNextAction(response());
        EXPECT_EQ(runtime.lines(), Lines{"not decoded: expected a string, found " + kind}) << value;
    }
}

TEST_F(DraftQueueTest, FailsWithTheErrorOfARejectionsReason) {
    for (const test::RejectionReason& reason : test::rejectionReasons) {
        std::optional<Outcome> heard;
        processing(std::string("return Promise.reject(") + reason.script + ");")
            ->processNextAction([&](Outcome outcome) { heard = std::move(outcome); });
        EXPECT_EQ(heard,
                  Outcome(std::unexpected(DraftQueueNativeError::promiseRejection(reason.text))))
            << reason.script;
    }
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_F(DraftQueueTest, HandlesAPromiseThatWasRejectedBefore) {
    ASSERT_TRUE(runtime.context.setRejectionHandler(
        [this](js::Scope&, const js::Exception& reason) { runtime.uncaught.add(reason.text()); }));
    processing("return Promise.reject({ error: 'early' });")->processNextAction(response());
    EXPECT_EQ(runtime.lines(), Lines{"rejected: early"});
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
    runtime.context.setRejectionHandler(nullptr);
}

TEST_F(DraftQueueTest, SaysThatThereIsNoErrorToAReasonThatIsAText) {
    std::optional<Outcome> heard;
    processing("return Promise.reject('offline');")->processNextAction([&](Outcome outcome) {
        heard = std::move(outcome);
    });
    EXPECT_EQ(heard, Outcome(std::unexpected(DraftQueueNativeError::promiseRejection(
                         "Promise Rejected but no error found."))));
}

// --- What is no draft queue, and what are no promises

struct Fault {
    const char* name;
    const char* queue; ///< a script
    Lines lines;
    Lines uncaught = {};
    /// Run after the call.
    const char* then = "";
};

TEST_F(DraftQueueTest, EndsEachFaultOfTheRuntimeAtMostOnce) {
    const std::string noText = "not decoded: expected a string, found undefined";
    const std::vector<Fault> faults{
        {"no object",
         "5",
         {},
         {"TypeError: processNextAction: called on a number, which is no object"}},
        {"undefined",
         "undefined",
         {},
         {"TypeError: processNextAction: called on undefined, which is no object"}},
        {"no function",
         "{}",
         {},
         {"TypeError: processNextAction: expected a function, found undefined"}},
        {"another kind",
         "{ processNextAction: 'x' }",
         {},
         {"TypeError: processNextAction: expected a function, found a string"}},
        {"a getter that throws",
         "{ get processNextAction() { throw new Error('g'); } }",
         {},
         {"Error: g"}},
        {"throws", "{ processNextAction() { throw new Error('t'); } }", {}, {"Error: t"}},
        {"throws no Error", "{ processNextAction() { throw 'text'; } }", {}, {"text"}},

        {"nothing",
         "{ processNextAction() {} }",
         {},
         {"TypeError: processNextAction: expected a promise, found undefined"}},
        {"null",
         "{ processNextAction() { return null; } }",
         {},
         {"TypeError: processNextAction: expected a promise, found null"}},
        {"a text",
         "{ processNextAction() { return 'SUCCESS'; } }",
         {},
         {"TypeError: processNextAction: expected a promise, found a string"}},
        {"an object",
         "{ processNextAction() { return {}; } }",
         {},
         {"TypeError: processNextAction: expected a promise, found an object"}},
        {"then is no function",
         "{ processNextAction() { return { then: 1 }; } }",
         {},
         {"TypeError: then: expected a function, found a number"}},
        {"then's getter throws",
         "{ processNextAction() { return { get then() { throw 'g'; } }; } }",
         {},
         {"g"}},
        {"then throws", "{ processNextAction() { return { then() { throw 't'; } }; } }", {}, {"t"}},

        {"never settles", "{ processNextAction() { return new Promise(() => {}); } }", {}},
        {"a thenable that never settles", "{ processNextAction() { return { then() {} }; } }", {}},
        {"settles later",
         "{ processNextAction() { return new Promise((resolve) => { settle = resolve; }); } }",
         {"settling", "SUCCESS", "settled"},
         {},
         "heard('settling'); settle('SUCCESS'); Promise.resolve().then(() => heard('settled'))"},
        {"settles twice",
         "{ processNextAction() { return new Promise((resolve, reject) => { resolve('SUCCESS'); "
         "resolve('ERROR'); reject({ error: 'x' }); }); } }",
         {"SUCCESS"}},
        {"an async function that throws",
         "{ async processNextAction() { throw { error: 'async' }; } }",
         {"rejected: async"}},
        {"a promise of a promise",
         "{ processNextAction() { return Promise.resolve(Promise.reject({ error: 'inner' })); } }",
         {"rejected: inner"}},

        {"a thenable within then",
         "{ processNextAction() { return { then(done) { heard('in'); done('SUCCESS'); "
         "heard('out'); } }; } }",
         {"in", "SUCCESS", "out"}},
        {"rejects within then",
         "{ processNextAction() { return { then(done, failed) { failed({ error: 'x' }); } }; } }",
         {"rejected: x"}},
        {"fulfils twice",
         "{ processNextAction() { return { then(done) { done('SUCCESS'); done('ERROR'); } }; } }",
         {"SUCCESS"}},
        {"rejects twice",
         "{ processNextAction() { return { then(done, failed) { failed({ error: '1' }); failed({ "
         "error: '2' }); } }; } }",
         {"rejected: 1"}},
        {"fulfils, then rejects",
         "{ processNextAction() { return { then(done, failed) { done('ERROR'); failed({ error: 'x' "
         "}); } }; } }",
         {"ERROR"}},
        {"rejects, then fulfils",
         "{ processNextAction() { return { then(done, failed) { failed({ error: 'x' }); "
         "done('ERROR'); } }; } }",
         {"rejected: x"}},
        {"fulfils with something else, then right",
         "{ processNextAction() { return { then(done) { done(); done('SUCCESS'); } }; } }",
         {noText}},
        {"rejects with nothing at all",
         "{ processNextAction() { return { then(done, failed) { failed(); } }; } }",
         {"rejected: Promise Rejected but no error found."}},
        {"settles, then throws",
         "{ processNextAction() { return { then(done) { done('SUCCESS'); throw 't'; } }; } }",
         {"SUCCESS"},
         {"t"}},
        {"throws, then settles",
         "{ processNextAction() { return { then(done) { settle = done; throw 't'; } }; } }",
         {"settling", "SUCCESS"},
         {"t"},
         "heard('settling'); settle('SUCCESS'); settle('ERROR')"},
        {"settles within then and later",
         "{ processNextAction() { return { then(done) { settle = done; done('ERROR'); } }; } }",
         {"ERROR"},
         {},
         "settle('SUCCESS')"},
        {"a function with then",
         "{ processNextAction() { return Object.assign(() => {}, { then(done) { done('SUCCESS'); } "
         "}); } }",
         {"SUCCESS"}},
        {"an array with then",
         "{ processNextAction() { return Object.assign([], { then(done) { done('SUCCESS'); } }); } "
         "}",
         {"SUCCESS"}},
        {"an inherited then",
         "{ processNextAction() { return new (class { then(done) { done('SUCCESS'); } }); } }",
         {"SUCCESS"}},
        {"then on itself with two functions",
         "{ processNextAction() { return { it: 'self', then(...given) { heard(`${this.it} "
         "${given.map((one) => typeof one)}`); } }; } }",
         {"self function,function"}},
    };
    runtime.evaluate("var settle;");
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.name);
        runtime.transcript.clear();
        runtime.uncaught.clear();
        queue(fault.queue)->processNextAction(response());
        runtime.evaluate(fault.then);
        EXPECT_EQ(runtime.lines(), fault.lines);
        EXPECT_EQ(runtime.uncaught.lines(), fault.uncaught);
    }
}

TEST_F(DraftQueueTest, GivesTheRuntimeNothingBackOfASettlement) {
    processing("return { then(done, failed) { "
               "heard(String(done('SUCCESS'))); heard(String(failed())); } };")
        ->processNextAction(response());
    EXPECT_EQ(runtime.lines(), (Lines{"SUCCESS", "undefined", "undefined"}));
}

// --- Threads

TEST_F(DraftQueueTest, AsksTheRuntimeOnTheCallersThread) {
    std::thread::id asked;
    test::setFunction(runtime.context, "where", 0, [&](js::Scope& scope, js::Local, js::Arguments) {
        asked = std::this_thread::get_id();
        return scope.undefined();
    });
    const auto called = processing("where();");
    called->processNextAction(response());
    EXPECT_EQ(asked, runtime.engineThread());
    std::thread other([&] {
        called->processNextAction(response());
        EXPECT_EQ(asked, runtime.engineThread());
    });
    other.join();
}

TEST_F(DraftQueueTest, AnswersOnTheThreadThatSettlesBeforeThatGoesOn) {
    runtime.evaluate("var settle;");
    std::thread::id answered;
    processing("return new Promise((resolve) => { settle = resolve; });")
        ->processNextAction([&](const Outcome& outcome) {
            answered = std::this_thread::get_id();
            runtime.transcript.add(textOf(outcome));
        });
    EXPECT_EQ(runtime.lines(), Lines{});
    std::thread other([&] {
        runtime.evaluate("settle('BLOCKED_ON_ERROR')");
        EXPECT_EQ(runtime.lines(), Lines{"BLOCKED_ON_ERROR"});
        EXPECT_EQ(answered, runtime.engineThread());
    });
    other.join();
}

TEST_F(DraftQueueTest, CountsTheFirstOfTwoAnswersFromTwoThreads) {
    runtime.evaluate("var done, failed;");
    const auto asked = processing("return { then(...given) { [done, failed] = given; } };");
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> answers = 0;
        asked->processNextAction([&](const Outcome&) { ++answers; });
        std::thread other([&] { runtime.evaluate("done('SUCCESS')"); });
        runtime.evaluate("failed({ error: 'x' })");
        other.join();
        EXPECT_EQ(answers, 1);
    }
}

TEST_F(DraftQueueTest, MayBeCalledOnAnyThread) {
    constexpr int threads = 4;
    constexpr int calls = 100;
    const auto asked = processing("return Promise.resolve('SUCCESS');");
    std::atomic<int> succeeded = 0;
    std::vector<std::thread> callers;
    for (int thread = 0; thread < threads; ++thread) {
        callers.emplace_back([&] {
            for (int call = 0; call < calls; ++call) {
                asked->processNextAction([&](const Outcome& outcome) {
                    if (outcome == Outcome(ProcessActionResult::actionSucceeded)) {
                        ++succeeded;
                    }
                });
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    // Inline, another thread's promise jobs may run as a part of this thread's.
    test::waitUntil("all answers", [&] { return succeeded == threads * calls; });
}

// --- Callers

TEST_F(DraftQueueTest, MayBeCalledFromItsResponse) {
    const auto asked = processing("heard('asked'); return Promise.resolve('SUCCESS');");
    asked->processNextAction([&](const Outcome& first) {
        runtime.transcript.add("first " + textOf(first));
        asked->processNextAction(
            [&](const Outcome& second) { runtime.transcript.add("second " + textOf(second)); });
        runtime.transcript.add("first is done");
    });
    EXPECT_EQ(runtime.lines(),
              (Lines{"asked", "first SUCCESS", "asked", "first is done", "second SUCCESS"}));
}

TEST_F(DraftQueueTest, LogsWhatAResponseThrows) {
    const test::LogCapture log;
    const auto asked = processing(R"js(return {
        then(done) {
            try { done("SUCCESS"); heard("went on"); } catch (error) { heard("threw"); }
        },
    };)js");
    asked->processNextAction([](const Outcome&) { throw std::runtime_error("a secret"); });
    asked->processNextAction([](const Outcome&) { throw 5; });
    EXPECT_EQ(runtime.lines(), (Lines{"went on", "went on"}));
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
    EXPECT_EQ(
        log.lines(),
        (Lines{"the response of processNextAction threw: <private>",
               "the response of processNextAction threw something that is no std::exception"}));
}

TEST_F(DraftQueueTest, AsksAlsoWhereNobodyListens) {
    const test::LogCapture log;
    processing("heard('asked'); return Promise.resolve('SUCCESS');")->processNextAction(nullptr);
    EXPECT_EQ(runtime.lines(), Lines{"asked"});
    EXPECT_EQ(log.lines(), Lines{});
}

// --- Ends

TEST_F(DraftQueueTest, LetsGoOfTheResponseWhenItIsAnswered) {
    runtime.evaluate("var kept;");
    processing("return { then(...given) { kept = given; } };")
        ->processNextAction(watchedResponse());
    EXPECT_EQ(dropped, 0);
    runtime.evaluate("kept[1]({ error: 'x' })");
    EXPECT_EQ(runtime.lines(), Lines{"rejected: x"});
    EXPECT_EQ(dropped, 1) << "the runtime still has both functions";
}

TEST_F(DraftQueueTest, LetsGoOfTheResponseWhenNoAnswerCanCome) {
    const Lines bodies{"",
                       "return 5;",
                       "throw 'x';",
                       "return {};",
                       "return { then() {} };",
                       "return new Promise(() => {});"};
    int expected = 0;
    for (const std::string& body : bodies) {
        processing(body)->processNextAction(watchedResponse());
        ++expected;
        test::waitUntil("the end of the response to " + body, [&] {
            test::collectGarbage(runtime.context);
            return dropped == expected;
        });
    }
    EXPECT_EQ(runtime.lines(), Lines{});
}

TEST_F(DraftQueueTest, AnswersAlsoWhenItIsGone) {
    runtime.evaluate("var settle;");
    auto asked = processing("return new Promise((resolve) => { settle = resolve; });");
    asked->processNextAction(response());
    const std::weak_ptr<DraftQueue> watched = asked;
    asked.reset();
    EXPECT_TRUE(watched.expired());
    runtime.evaluate("settle('NO_ACTION_TO_PROCESS')");
    EXPECT_EQ(runtime.lines(), Lines{"NO_ACTION_TO_PROCESS"});
}

TEST_F(DraftQueueTest, MayGoWhileTheRuntimeIsCalled) {
    std::shared_ptr<DraftQueue> asked;
    test::setFunction(runtime.context, "drop", 0, [&](js::Scope& scope, js::Local, js::Arguments) {
        asked.reset();
        return scope.undefined();
    });
    asked = processing("drop(); return Promise.resolve('SUCCESS');");
    asked->processNextAction(response());
    EXPECT_EQ(asked, nullptr);
    EXPECT_EQ(runtime.lines(), Lines{"SUCCESS"});
}

TEST_F(DraftQueueTest, MayGoInItsResponse) {
    auto asked = processing("return { then(done) { done('SUCCESS'); heard('then returns'); } };");
    asked->processNextAction([&](const Outcome& outcome) {
        asked.reset();
        runtime.transcript.add(textOf(outcome));
    });
    EXPECT_EQ(asked, nullptr);
    EXPECT_EQ(runtime.lines(), (Lines{"SUCCESS", "then returns"}));
}

TEST_F(DraftQueueTest, KeepsTheContextThatTheApplicationLetGoOf) {
    js::Context own = test::makeUncheckedContext();
    auto asked = DraftQueue::create(own.perform([](js::Scope& scope) {
        return scope.keep(
            scope
                .evaluate("({ processNextAction() { return Promise.resolve('SUCCESS'); } })",
                          "test.js")
                .value());
    }));
    own = {};
    asked->processNextAction(watchedResponse());
    EXPECT_EQ(runtime.lines(), Lines{"SUCCESS"});
}

TEST_F(DraftQueueTest, LetsGoOfTheContextWithAPromiseThatWasNeverSettled) {
    js::Context own = test::makeUncheckedContext();
    auto asked = DraftQueue::create(own.perform([](js::Scope& scope) {
        return scope.keep(scope
                              .evaluate("var kept = []; ({ processNextAction() { return "
                                        "{ then(...given) { kept.push(given); } }; } })",
                                        "test.js")
                              .value());
    }));
    asked->processNextAction(watchedResponse());
    own = {};
    asked.reset();
    test::waitUntil("the end of the response", [&] { return dropped == 1; });
    EXPECT_EQ(runtime.lines(), Lines{});
}

TEST_F(DraftQueueTest, IsSilentWhenTheContextsThreadHasEnded) {
    const test::LogCapture log;
    auto thread = std::make_unique<platform::RunLoopThread>("short-lived");
    const js::Context own = js::Context::create(thread->runLoop());
    const auto asked = DraftQueue::create(own.perform([](js::Scope& scope) {
        return scope.keep(
            scope
                .evaluate("({ processNextAction() { return Promise.resolve('SUCCESS'); } })",
                          "test.js")
                .value());
    }));
    thread.reset();
    asked->processNextAction(watchedResponse());
    EXPECT_EQ(runtime.lines(), Lines{});
    EXPECT_EQ(dropped, 1);
    EXPECT_EQ(log.lines(), Lines{"the runtime was not called: the thread that the context is bound "
                                 "to has ended"});
}

} // namespace
