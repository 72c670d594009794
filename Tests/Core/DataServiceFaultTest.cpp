// Runtimes, answers and callers that do not do as they should.

#include <zem/Core/BatchingDataService.h>
#include <zem/Core/DataService.h>
#include <zem/JavaScript/Scope.h>

#include <gtest/gtest.h>

#include <Core/ServiceCalls.h>
#include <Support/LogCapture.h>
#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using platform::Seconds;
using test::HeldQueue;
using test::replaced;
using test::Results;
using test::ServiceRuntime;
using Lines = std::vector<std::string>;

class DataServiceFault : public test::ServiceCallTest {};

// --- The runtime's object

TEST_P(DataServiceFault, OfTheRuntimesObjectIsToldToTheCaller) {
    const std::pair<const char*, const char*> faults[] = {
        {"({})", "TypeError: METHOD: expected a function, found undefined"},
        {"({ METHOD: 5 })", "TypeError: METHOD: expected a function, found a number"},
        {"({ METHOD: {} })", "TypeError: METHOD: expected a function, found an object"},
        {"({ get METHOD() { throw new Error('none') } })", "Error: none"},
        {"undefined", "TypeError: METHOD: called on undefined, which is no object"},
        {"null", "TypeError: METHOD: called on null, which is no object"},
        {"5", "TypeError: METHOD: called on a number, which is no object"},
        {"'text'", "TypeError: METHOD: called on a string, which is no object"},
        {"({ METHOD() { throw new Error('no') } })", "Error: no"},
        {"({ METHOD() { throw 'no' } })", "no"},
        {"({ METHOD() { throw undefined } })", "undefined"},
        {"({ METHOD() { throw { toString() { throw 1 } } } })", "an object"},
    };
    for (const auto& [object, text] : faults) {
        SCOPED_TRACE(object);
        Results heard;
        const auto service = serviceOf(replaced(object, "METHOD", GetParam().method));
        const Unsubscribe end = ask(*service, heard.callback());
        EXPECT_EQ(heard.wait(1),
                  Lines{"executeAdapter error - " + replaced(text, "METHOD", GetParam().method)});
        runtime.expectAllSlotsFree();
        end();
        runtime.expectAllSlotsFree();
        EXPECT_EQ(heard.lines().size(), 1u);
        EXPECT_EQ(service->subscriptionCount(), 0u);
    }
}

TEST_P(DataServiceFault, OfTheRuntimeAfterItsAnswerDoesNotTakeThatBack) {
    onCall("callback({ data: { n: 1 } }); throw new Error('too late');");
    const auto service = runtime.service();
    const Unsubscribe end = ask(*service, results.callback());
    Lines expected{R"({"n":1})"};
    if (GetParam().isSubscription) {
        expected.emplace_back("executeAdapter error - Error: too late");
    }
    EXPECT_EQ(results.wait(static_cast<int>(expected.size())), expected);
    end();
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), expected);
}

TEST_P(DataServiceFault, OfOneCallIsNoFaultOfTheNext) {
    onCall("if (callbacks.length === 1) { throw new Error('no'); } callback({ data: {} });");
    const auto service = runtime.service();
    const Unsubscribe first = ask(*service, results.callback("first"));
    results.wait(1);
    const Unsubscribe second = ask(*service, results.callback("second"));
    EXPECT_EQ(results.wait(2), (Lines{"first: executeAdapter error - Error: no", "second: {}"}));
    first();
    second();
    runtime.expectAllSlotsFree();
}

TEST_P(DataServiceFault, OfAFunctionThatIsNoneIsNoneOfTheSubscriptions) {
    for (const char* function : {"undefined", "null", "5", "({})", "Promise.resolve(() => {})"}) {
        SCOPED_TRACE(function);
        Results heard;
        const auto service = serviceOf(
            replaced("({ METHOD(...values) { values.find((value) => typeof value === 'function')({ "
                     "data: {} }); return " +
                         std::string(function) + "; } })",
                     "METHOD", GetParam().method));
        const Unsubscribe end = ask(*service, heard.callback());
        EXPECT_EQ(heard.wait(1), Lines{"{}"});
        if (GetParam().isSubscription) {
            test::waitForSubscriptions(*service, 1);
        }
        end();
        end();
        EXPECT_EQ(service->subscriptionCount(), 0u);
        runtime.expectAllSlotsFree();
    }
}

// --- No answer

TEST_P(DataServiceFault, OfARuntimeThatForgetsTheCallbackIsSilence) {
    test::Event dropped("the end of the callback");
    const auto service = DataService::create(
        runtime.value("({ " + std::string(GetParam().method) + "() { heard('asked'); } })"),
        nullptr, {}, DataService::defaultWatchdogTimeout);
    Unsubscribe end =
        ask(*service, [watched = std::shared_ptr<void>(nullptr, [&](void*) { dropped.signal(); }),
                       heard = results.callback()](DataServiceResult result) { heard(result); });
    EXPECT_EQ(runtime.calls.wait(1), Lines{"asked"});
    if (GetParam().isSubscription) {
        end();
        end = {};
    }
    test::waitUntil("the collection of the callback", [&] {
        test::collectGarbage(runtime.context);
        return dropped.signalled() != 0;
    });
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), Lines{});
}

TEST_P(DataServiceFault, OfARuntimeThatNeverAnswersEndsWithTheService) {
    // A one-shot call that is never answered keeps its slot as long as its service lives.
    std::vector<Unsubscribe> ends;
    auto service = runtime.service();
    for (int call = 0; call < 5; ++call) {
        ends.push_back(ask(*service, results.callback()));
    }
    runtime.calls.wait(5);
    service.reset();
    runtime.expectAllSlotsFree();
    for (int call = 0; call < 5; ++call) {
        ends[static_cast<std::size_t>(call)]();
    }
    EXPECT_EQ(results.lines(), Lines{});
}

TEST_P(DataServiceFault, OfARuntimeThatNeverAnswersIsATimeoutForASubscriptionOnly) {
    std::vector<Unsubscribe> ends;
    auto service = runtime.service();
    for (int call = 0; call < 5; ++call) {
        ends.push_back(ask(*service, results.callback()));
    }
    runtime.calls.wait(5);
    if (GetParam().isSubscription) {
        test::waitForSubscriptions(*service, 5);
        runtime.clock->advance(Seconds(180));
        EXPECT_EQ(results.wait(5), Lines(5, "executeAdapter error - .executeAdapterTimeout"));
        runtime.expectAllSlotsFree();
        for (const Unsubscribe& end : ends) {
            end();
        }
    } else {
        runtime.clock->advance(Seconds(1000));
        service.reset();
        runtime.expectAllSlotsFree();
        EXPECT_EQ(results.lines(), Lines{});
    }
}

// --- What is passed on

TEST_P(DataServiceFault, OfAConfigIsNoneOfTheServices) {
    const std::pair<std::string, const char*> configs[] = {
        {"{not json", R"("{not json")"}, {"", R"("")"},
        {"]}'\"", R"("]}'\"")"},         {std::string("a\0b", 3), R"("a\u0000b")"},
        {"\xFF", "\"\xEF\xBF\xBD\""},
    };
    for (const auto& [config, shown] : configs) {
        SCOPED_TRACE(shown);
        test::evaluate(runtime.context, "callbacks = []");
        Results heard;
        const auto service = runtime.service();
        const int before = static_cast<int>(runtime.calls.lines().size());
        const Unsubscribe end = ask(*service, heard.callback(), config);
        const std::string call = runtime.calls.wait(before + 1).back();
        const std::string expected = std::string(GetParam().method) + "(\"adapter\", " + shown;
        EXPECT_EQ(call.substr(0, expected.size()), expected);
        runtime.answer(0, "{ data: {} }");
        EXPECT_EQ(heard.wait(1), Lines{"{}"});
        end();
        runtime.expectAllSlotsFree();
    }
}

// --- The service goes

TEST_P(DataServiceFault, OfAServiceThatGoesWithCallsQueuedIsSilence) {
    Unsubscribe end;
    {
        HeldQueue held;
        auto service = runtime.service();
        end = ask(*service, results.callback());
        service.reset();
    }
    runtime.expectAllSlotsFree();
    end();
    runtime.expectAllSlotsFree();
    EXPECT_EQ(std::ranges::count(runtime.calls.lines(),
                                 R"js(invokeAdapter("probe", "{}", callback, undefined))js"),
              static_cast<long>(runtime.calls.lines().size()));
    EXPECT_EQ(results.lines(), Lines{});
}

TEST_P(DataServiceFault, OfAServiceThatGoesWhileTheRuntimeIsCalledIsSilence) {
    std::shared_ptr<DataService> service = runtime.service();
    test::setFunction(runtime.context, "letGo", 0, [&](js::Scope& scope, js::Local, js::Arguments) {
        service.reset();
        return scope.undefined();
    });
    onCall("letGo(); callback({ data: { late: true } }); heard('answered');");
    const Unsubscribe end = ask(*service, results.callback());
    EXPECT_EQ(runtime.calls.wait(2)[1], "answered");
    runtime.expectAllSlotsFree();
    end();
    if (GetParam().isSubscription) {
        runtime.calls.wait(8);
    }
    EXPECT_EQ(ends(), GetParam().isSubscription ? 1 : 0);
    EXPECT_EQ(results.lines(), Lines{});
}

TEST_P(DataServiceFault, OfAServiceThatGoesWithAnAnswerOnItsWayIsNone) {
    test::Event entered("the first callback");
    test::Event left("the end of the service");
    auto service = runtime.service();
    const Unsubscribe first = ask(*service, [&](const DataServiceResult& result) {
        entered.signal();
        left.wait();
        results.add("first: " + test::textOf(result));
    });
    runtime.calls.wait(1);
    const Unsubscribe second = ask(*service, results.callback("second"));
    runtime.calls.wait(2);
    const Unsubscribe third = ask(*service, results.callback("third"));
    runtime.calls.wait(3);
    runtime.answer(0, "{ data: {} }");
    entered.wait();
    runtime.answer(1, "{ data: {} }");
    service.reset();
    runtime.answer(2, "{ data: {} }");
    left.signal();
    EXPECT_EQ(results.wait(2), (Lines{"first: {}", "second: {}"}));
    first();
    second();
    third();
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), (Lines{"first: {}", "second: {}"}));
}

TEST_P(DataServiceFault, OfAServiceThatGoesInACallbackIsNone) {
    test::Event gone("the end of the service");
    auto service = runtime.service();
    std::weak_ptr<DataService> watched = service;
    const Unsubscribe end = ask(*service, [&](const DataServiceResult& result) {
        service.reset();
        results.add(test::textOf(result));
        gone.signal();
    });
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: {} }");
    gone.wait();
    end();
    runtime.expectAllSlotsFree();
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(results.lines(), Lines{"{}"});
}

// --- The context goes

TEST_P(DataServiceFault, OfAnApplicationThatLetsGoOfItsContextIsNone) {
    std::shared_ptr<DataService> service;
    {
        const js::Context context = test::makeUncheckedContext();
        service = context.perform([&](js::Scope& scope) {
            const auto zem = scope.evaluate(
                replaced("({ METHOD(...values) { values.find((value) => typeof value === "
                         "'function')({ data: { alone: true } }); return () => {}; } })",
                         "METHOD", GetParam().method),
                "test.js");
            return DataService::create(scope.keep(zem.value()), nullptr, {},
                                       DataService::defaultWatchdogTimeout);
        });
    }
    const Unsubscribe end = ask(*service, results.callback());
    EXPECT_EQ(results.wait(1), Lines{R"({"alone":true})"});
    service.reset();
    end();
    runtime.expectAllSlotsFree();
}

TEST_P(DataServiceFault, OfAContextWhoseThreadHasEndedIsLogged) {
    const test::LogCapture log;
    auto thread = std::make_unique<platform::RunLoopThread>("short-lived");
    const js::Context context = js::Context::create(thread->runLoop());
    js::Value zem = context.perform(
        [&](js::Scope& scope) { return scope.keep(scope.evaluate("({})", "test.js").value()); });
    auto service = DataService::create(std::move(zem), nullptr, {}, 4);
    std::vector<Unsubscribe> ends;
    thread.reset();
    for (int call = 0; call < 7; ++call) {
        ends.push_back(ask(*service, results.callback()));
    }
    runtime.expectAllSlotsFree();
    const std::string line =
        "the runtime was not called: the thread that the context is bound to has ended";
    test::waitUntil("the calls", [&] { return std::ranges::count(log.lines(), line) == 7; });
    int completed = 0;
    service->setRimvoRecordTTL(1, [&] { ++completed; });
    service->setMetadataTTL(1, [&] { ++completed; });
    EXPECT_EQ(completed, 2);
    EXPECT_EQ(log.lines(), Lines(9, line));
    EXPECT_EQ(results.lines(), Lines{});
    // A subscription is one all the same, and silent.
    const bool isSubscription = std::string(GetParam().method) == "subscribeToAdapter";
    const int live = isSubscription ? 7 : 0;
    test::waitUntil("the subscriptions",
                    [&] { return service->subscriptionCount() == static_cast<std::size_t>(live); });
    runtime.clock->advance(Seconds(100));
    EXPECT_EQ(results.wait(live), Lines(static_cast<std::size_t>(live),
                                        "executeAdapter error - .executeAdapterTimeout"));
    for (const Unsubscribe& end : ends) {
        end();
    }
    service.reset();
    runtime.expectAllSlotsFree();
}

TEST_P(DataServiceFault, OfAContextWhoseThreadEndsWithCallsUnansweredIsSilence) {
    auto thread = std::make_unique<platform::RunLoopThread>("short-lived");
    const js::Context context = js::Context::create(thread->runLoop());
    test::Event asked("a call of the runtime");
    test::setFunction(context, "asked", 0, [&](js::Scope& scope, js::Local, js::Arguments) {
        asked.signal();
        return scope.undefined();
    });
    js::Value zem = context.perform([&](js::Scope& scope) {
        const std::string script =
            replaced("var kept = []; ({ METHOD(...values) { kept.push(values); asked(); "
                     "return () => {}; } })",
                     "METHOD", GetParam().method);
        return scope.keep(scope.evaluate(script, "test.js").value());
    });
    auto service = DataService::create(std::move(zem), nullptr, {}, 4);
    std::vector<Unsubscribe> ends;
    for (int call = 0; call < 5; ++call) {
        ends.push_back(ask(*service, results.callback()));
    }
    asked.wait(5);
    thread.reset();
    service.reset();
    for (const Unsubscribe& end : ends) {
        end();
    }
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), Lines{});
}

// --- Callers

TEST_P(DataServiceFault, OfACallbackThatThrowsIsLoggedAndNobodyElses) {
    const test::LogCapture log;
    const auto service = runtime.service();
    const std::function<void()> throws[] = {
        [] { throw std::runtime_error("a secret"); },
        [] { throw 5; },
        [] {},
    };
    std::vector<Unsubscribe> ends;
    int call = 0;
    for (const auto& throwing : throws) {
        ends.push_back(ask(*service, [this, throwing](const DataServiceResult& result) {
            results.add(test::textOf(result));
            throwing();
        }));
        runtime.calls.wait(++call);
    }
    test::evaluate(runtime.context, "callbacks.forEach((callback) => callback({ data: {} }))");
    EXPECT_EQ(results.wait(3), Lines(3, "{}"));
    runtime.expectAllSlotsFree();
    test::waitUntil("two lines", [&] { return log.lines().size() == 2; });
    EXPECT_EQ(log.lines(), (Lines{"a result callback threw: <private>",
                                  "a result callback threw something that is no std::exception"}));
    for (const Unsubscribe& end : ends) {
        end();
    }
}

TEST_P(DataServiceFault, OfACallerWithoutACallbackIsNone) {
    const test::LogCapture log;
    const auto service = runtime.service();
    const Unsubscribe end = ask(*service, nullptr);
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: {} }");
    const Unsubscribe other = ask(*service, results.callback());
    runtime.calls.wait(2);
    runtime.answer(1, "{ data: {} }");
    EXPECT_EQ(results.wait(1), Lines{"{}"});
    end();
    other();
    runtime.expectAllSlotsFree();
    EXPECT_EQ(log.lines(), Lines{});
}

INSTANTIATE_TEST_SUITE_P(, DataServiceFault, testing::ValuesIn(test::serviceCalls),
                         test::serviceCallName);

// --- Times to live

TEST(DataServiceFaultTTL, IsReportedAndCompletesAllTheSame) {
    ServiceRuntime runtime;
    test::Transcript transcript;
    for (const char* object : {"({})", "5", "({ setMetadataTTL: 5, setRimvoRecordTTL: 5 })"}) {
        const auto service = DataService::create(runtime.value(object), nullptr, {}, 4);
        service->setMetadataTTL(1, [&] { transcript.add("metadata"); });
        service->setRimvoRecordTTL(1, [&] { transcript.add("record"); });
    }
    EXPECT_EQ(transcript.lines(),
              (Lines{"metadata", "record", "metadata", "record", "metadata", "record"}));
    EXPECT_EQ(runtime.uncaught.lines(),
              (Lines{"TypeError: setMetadataTTL: expected a function, found undefined",
                     "TypeError: setRimvoRecordTTL: expected a function, found undefined",
                     "TypeError: setMetadataTTL: called on a number, which is no object",
                     "TypeError: setRimvoRecordTTL: called on a number, which is no object",
                     "TypeError: setMetadataTTL: expected a function, found a number",
                     "TypeError: setRimvoRecordTTL: expected a function, found a number"}));
}

TEST(DataServiceFaultTTL, OfAThenThatThrowsIsReportedAndNeverCompletes) {
    ServiceRuntime runtime;
    test::Transcript transcript;
    test::evaluate(runtime.context, R"js(
        on.setMetadataTTL = () => ({ then() { throw new Error('no'); } });
        on.setRimvoRecordTTL = () => ({ get then() { throw new Error('none'); } });
    )js");
    const auto service = runtime.service();
    service->setMetadataTTL(1, [&] { transcript.add("metadata"); });
    service->setRimvoRecordTTL(1, [&] { transcript.add("record"); });
    EXPECT_EQ(transcript.lines(), Lines{});
    EXPECT_EQ(runtime.uncaught.lines(), (Lines{"Error: no", "Error: none"}));
}

TEST(DataServiceFaultTTL, OfACompletionThatThrowsIsLogged) {
    const test::LogCapture log;
    ServiceRuntime runtime;
    test::evaluate(runtime.context, R"js(
        on.setMetadataTTL = () => ({ then(finish) { finish(); heard('finished'); } });
    )js");
    const auto service = runtime.service();
    service->setMetadataTTL(1, [] { throw std::runtime_error("a secret"); });
    service->setRimvoRecordTTL(2, [] { throw 5; });
    EXPECT_EQ(runtime.calls.lines(),
              (Lines{"setMetadataTTL(1)", "finished", "setRimvoRecordTTL(2)"}));
    EXPECT_EQ(log.lines(), (Lines{"a completion threw: <private>",
                                  "a completion threw something that is no std::exception"}));
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

// --- The clock

TEST(DataServiceFaultClock, ThatDoesNotMoveFailsNothing) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service({}, 0.0);
    const Unsubscribe end = service->subscribeToAdapter("list", "{}", results.callback());
    test::waitForSubscriptions(*service, 1);
    runtime.clock->advance(Seconds(0));
    runtime.clock->advance(Seconds(-1000));
    EXPECT_EQ(results.lines(), Lines{});
    runtime.clock->advance(Seconds(1));
    EXPECT_EQ(results.wait(1), Lines{"executeAdapter error - .executeAdapterTimeout"});
    end();
    runtime.expectAllSlotsFree();
}

TEST(DataServiceFaultClock, ThatStoodLaterWhenASubscriptionWasMadeOnlyMakesItWait) {
    ServiceRuntime runtime;
    Results results;
    DataServiceState state;
    Unsubscribe end;
    {
        // Another run loop's clock, a thousand seconds ahead.
        const auto ahead = platform::ManualRunLoop::create();
        ahead->advance(Seconds(1000));
        const auto batching = BatchingDataService::create();
        end = batching->subscribeToAdapter("list", "{}", results.callback());
        state = batching->takeState();
    }
    const auto service = runtime.service(std::move(state));
    runtime.calls.wait(1);
    runtime.clock->advance(Seconds(1170));
    // The look at 1170 s is over when the one of this younger service is.
    const auto witness = runtime.service({}, 1.0);
    const Unsubscribe other =
        witness->subscribeToAdapter("witness", "{}", results.callback("witness"));
    test::waitForSubscriptions(*witness, 1);
    runtime.clock->advance(Seconds(1));
    EXPECT_EQ(results.wait(1), Lines{"witness: executeAdapter error - .executeAdapterTimeout"});
    other();
    // 1180 s old: the next look is at 1215 s.
    runtime.clock->advance(Seconds(44));
    EXPECT_EQ(results.wait(2)[1], "executeAdapter error - .executeAdapterTimeout");
    end();
    runtime.expectAllSlotsFree();
}

} // namespace
