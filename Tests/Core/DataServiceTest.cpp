// One-shot calls.

#include <zem/Core/DataService.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace zem;
using test::HeldQueue;
using test::Results;
using test::ServiceRuntime;
using Lines = std::vector<std::string>;

AdapterRequestContext withPriority(AdapterRequestPriority priority) {
    AdapterRequestContext context;
    context.priority = priority;
    return context;
}

TEST(DataService, InvokesAnAdapterWithItsConfigAndContext) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    AdapterRequestContext context;
    context.cachePolicy = CachePolicy::cacheAndNetwork();
    context.priority = AdapterRequestPriority::high;
    service->invokeAdapter("getRecord", R"({"id":"1"})", context, results.callback());
    EXPECT_EQ(
        runtime.calls.wait(1),
        Lines{
            R"js(invokeAdapter("getRecord", "{\"id\":\"1\"}", callback, {"cachePolicy":{"staleDurationSeconds":null,"type":"cache-and-network"},"priority":"high"}))js"});
    runtime.answer(0, "{ data: { name: 'Ada' } }");
    EXPECT_EQ(results.wait(1), Lines{R"({"name":"Ada"})"});
}

TEST(DataService, HandsOverAnAbsentContextAsUndefinedAndAnEmptyOneAsAnObject) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    service->invokeAdapter("a", "{}", results.callback());
    runtime.calls.wait(1);
    service->invokeAdapter("b", "{}", AdapterRequestContext(), results.callback());
    EXPECT_EQ(runtime.calls.wait(2), (Lines{R"js(invokeAdapter("a", "{}", callback, undefined))js",
                                            R"js(invokeAdapter("b", "{}", callback, {}))js"}));
    runtime.answer(0, "{}");
    runtime.answer(1, "{}");
    results.wait(2);
}

TEST(DataService, PassesOnAConfigThatIsNoJSON) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    service->invokeAdapter("a", "{not \xC3\xA4 json", results.callback());
    EXPECT_EQ(runtime.calls.wait(1),
              Lines{"invokeAdapter(\"a\", \"{not \xC3\xA4 json\", callback, undefined)"});
    runtime.answer(0, "{}");
    results.wait(1);
}

TEST(DataService, CallsMutatingFunctionsWithTheirOwnArgumentOrders) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    service->invokeAdapterWithMetadata("create", "{}", {{"b", "2"}, {"a", "1"}},
                                       results.callback("metadata"));
    runtime.calls.wait(1);
    service->invokeAdapterWithDraftToReplace("create", "{}", "draft-7", results.callback("draft"));
    EXPECT_EQ(
        runtime.calls.wait(2),
        (Lines{R"js(invokeAdapterWithMetadata("create", "{}", {"a":"1","b":"2"}, callback))js",
               R"js(invokeAdapterWithDraftToReplace("create", "{}", "draft-7", callback))js"}));
    runtime.answer(1, "{ data: { id: 7 } }");
    runtime.answer(0, "{ error: 'refused' }");
    EXPECT_EQ(results.wait(2),
              (Lines{R"(draft: {"id":7})", "metadata: executeAdapter error - refused"}));
}

TEST(DataService, TakesAnAnswerWithoutDataAndErrorForAnEmptySuccess) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    service->invokeAdapter("plain", "{}", results.callback("plain"));
    runtime.calls.wait(1);
    service->invokeAdapterWithMetadata("metadata", "{}", {}, results.callback("metadata"));
    runtime.calls.wait(2);
    service->invokeAdapterWithDraftToReplace("draft", "{}", "1", results.callback("draft"));
    runtime.calls.wait(3);
    for (int call = 0; call < 3; ++call) {
        runtime.answer(call, "{ other: 1 }");
    }
    EXPECT_EQ(results.wait(3), (Lines{"plain: {}", "metadata: {}", "draft: {}"}));
}

TEST(DataService, DeliversOnItsCallbackQueueInTheRuntimesOrder) {
    ServiceRuntime runtime;
    test::Journal labels("a result");
    const auto service = runtime.service();
    for (int call = 0; call < 3; ++call) {
        service->invokeAdapter("a", std::to_string(call), [&](const DataServiceResult& result) {
            labels.add(platform::SerialQueue::currentLabel() + " " + test::textOf(result));
        });
        runtime.calls.wait(call + 1);
    }
    test::evaluate(runtime.context, R"js(
        callbacks[2]({ data: { call: 2 } });
        callbacks[0]({ data: { call: 0 } });
        callbacks[1]({ data: { call: 1 } });
    )js");
    const std::string label = "com.quorvane.data.service.callback-queue ";
    EXPECT_EQ(labels.wait(3),
              (Lines{label + R"({"call":2})", label + R"({"call":0})", label + R"({"call":1})"}));
}

TEST(DataService, HasAtMostFiveCallsUnansweredAcrossServices) {
    ServiceRuntime runtime;
    Results results;
    const auto first = runtime.service();
    const auto second = runtime.service();
    for (int call = 0; call < 3; ++call) {
        first->invokeAdapter("first", "{}", results.callback());
        second->invokeAdapter("second", "{}", results.callback());
    }
    runtime.calls.wait(5);
    // A mutating call takes a slot only while it calls, and has none to wait for here.
    Results mutating;
    first->invokeAdapterWithMetadata("mutating", "{}", {}, mutating.callback());
    EXPECT_EQ(runtime.calls.lines().size(), 5u);
    runtime.answer(0, "{}");
    const Lines calls = runtime.calls.wait(7);
    EXPECT_EQ(calls[5], R"js(invokeAdapterWithMetadata("mutating", "{}", {}, callback))js");
    for (int call = 1; call < 7; ++call) {
        runtime.answer(call, "{}");
    }
    results.wait(6);
    mutating.wait(1);
}

TEST(DataService, StartsByPriorityWithMutatingCallsFirst) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    // Each answers at once, so that the one slot that is let go of is passed on.
    test::evaluate(runtime.context, R"js(
        on.invokeAdapter = (id, config, callback) => callback({});
        on.subscribeToAdapter = (id, config, callback) => callback({});
    )js");
    HeldQueue held;
    service->invokeAdapter("background", "{}", withPriority(AdapterRequestPriority::background),
                           results.callback());
    service->invokeAdapter("normal", "{}", results.callback());
    const Unsubscribe unsubscribe = service->subscribeToAdapter(
        "high", "{}", withPriority(AdapterRequestPriority::high), results.callback());
    service->invokeAdapter("also high", "{}", withPriority(AdapterRequestPriority::high),
                           results.callback());
    service->invokeAdapterWithDraftToReplace("mutating", "{}", "1", results.callback());
    held.releaseOne();
    const Lines calls = runtime.calls.wait(5);
    EXPECT_THAT(calls, testing::ElementsAre(testing::HasSubstr("mutating"),
                                            testing::HasSubstr("\"high\", \"{}\", callback"),
                                            testing::HasSubstr("also high"),
                                            testing::HasSubstr("\"normal\", \"{}\", callback"),
                                            testing::HasSubstr("\"background\", \"{}\", cal")));
    runtime.answer(0, "{}");
    results.wait(5);
    unsubscribe();
    runtime.calls.wait(6);
}

TEST(DataService, NeverCallsTheRuntimeWhenItIsGoneBeforeItsTurn) {
    ServiceRuntime runtime;
    Results results;
    {
        HeldQueue held;
        auto service = runtime.service();
        service->invokeAdapter("a", "{}", results.callback());
        service->invokeAdapterWithMetadata("b", "{}", {}, results.callback());
        const Unsubscribe unsubscribe = service->subscribeToAdapter("c", "{}", results.callback());
        service.reset();
    }
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), Lines{});
    for (const std::string& call : runtime.calls.lines()) {
        EXPECT_THAT(call, testing::StartsWith("invokeAdapter(\"probe\""));
    }
}

TEST(DataService, DropsAnswersThatComeWhenItIsGone) {
    ServiceRuntime runtime;
    Results results;
    auto service = runtime.service();
    service->invokeAdapter("a", "{}", results.callback());
    runtime.calls.wait(1);
    test::destroy(service);
    runtime.answer(0, "{ data: {} }");
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), Lines{});
}

TEST(DataService, LeavesTheSlotsOfItsUnansweredCallsToOthersWhenItGoes) {
    ServiceRuntime runtime;
    Results results;
    auto silent = runtime.service();
    for (int call = 0; call < 5; ++call) {
        silent->invokeAdapter("silent", "{}", results.callback("silent"));
    }
    runtime.calls.wait(5);
    const auto other = runtime.service();
    const Unsubscribe end = other->subscribeToAdapter("list", "{}", results.callback("list"));
    other->invokeAdapter("call", "{}", results.callback("call"));
    other->invokeAdapterWithMetadata("mutating", "{}", {}, results.callback("mutating"));
    EXPECT_EQ(runtime.calls.lines().size(), 5u);
    silent.reset();
    const Lines calls = runtime.calls.wait(8);
    EXPECT_EQ(Lines(calls.begin() + 5, calls.end()),
              (Lines{R"js(invokeAdapterWithMetadata("mutating", "{}", {}, callback))js",
                     R"js(subscribeToAdapter("list", "{}", callback, undefined))js",
                     R"js(invokeAdapter("call", "{}", callback, undefined))js"}));
    for (int call = 0; call < 8; ++call) {
        runtime.answer(call, "{ data: {} }");
    }
    EXPECT_EQ(results.wait(3), (Lines{"mutating: {}", "list: {}", "call: {}"}));
    end();
    EXPECT_EQ(runtime.calls.wait(9)[8], "unsubscribe(list)");
}

TEST(DataService, RefusesARuntimeThatIsNoValue) {
    try {
        (void)DataService::create({}, nullptr, {}, 180);
        FAIL() << "nothing was thrown";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "DataService: expected the runtime's object, found no value");
    }
}

TEST(DataService, RefusesATimeoutThatIsNotANumber) {
    ServiceRuntime runtime;
    for (const double timeout : {std::numeric_limits<double>::quiet_NaN(),
                                 -std::numeric_limits<double>::quiet_NaN(), std::sqrt(-1.0)}) {
        try {
            (void)runtime.service({}, timeout);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(),
                         "DataService: expected a timeout in seconds, found one that is no number");
        }
    }
}

TEST(DataService, ForgetsACallbackOnceItHasCalledIt) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    test::Event dropped("the end of the callback");
    auto watched = std::shared_ptr<void>(nullptr, [&](void*) { dropped.signal(); });
    service->invokeAdapter("a", "{}", [watched = std::move(watched)](const DataServiceResult&) {});
    runtime.calls.wait(1);
    runtime.answer(0, "{}");
    // The runtime still has the function.
    dropped.wait();
}

} // namespace
