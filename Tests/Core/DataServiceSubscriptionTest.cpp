// Subscriptions of the data service: what they hear, and how they end.

#include <zem/Core/DataService.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <Core/SubscribingOnly.h>
#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace zem;
using test::HeldQueue;
using test::Results;
using test::ServiceRuntime;
using Lines = std::vector<std::string>;

TEST(DataServiceSubscription, AsksTheRuntimeAndHearsEveryAnswer) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    AdapterRequestContext context;
    context.observabilityContext =
        ObservabilityContext{.rootId = "r", .isRootActivitySampled = {}, .traceId = {}};
    const Unsubscribe unsubscribe =
        service->subscribeToAdapter("list", R"({"of":1})", context, results.callback());
    EXPECT_EQ(
        runtime.calls.wait(1),
        Lines{
            R"js(subscribeToAdapter("list", "{\"of\":1}", callback, {"observabilityContext":{"rootId":"r"}}))js"});
    runtime.answer(0, "{ data: { n: 1 } }");
    runtime.answer(0, "{ error: { code: 4 } }");
    runtime.answer(0, "{}");
    runtime.answer(0, "{ data: { n: 2 } }");
    EXPECT_EQ(results.wait(4), (Lines{R"({"n":1})", R"(executeAdapter error - {"code":4})",
                                      "executeAdapter error - .unknown", R"({"n":2})"}));
    unsubscribe();
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
}

TEST(DataServiceSubscription, HandsOverAnAbsentContextAsUndefined) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    const Unsubscribe unsubscribe = service->subscribeToAdapter("list", "{}", results.callback());
    EXPECT_EQ(runtime.calls.wait(1),
              Lines{R"js(subscribeToAdapter("list", "{}", callback, undefined))js"});
    unsubscribe();
    runtime.calls.wait(2);
}

TEST(DataServiceSubscription, GivesItsSlotBackAtTheFirstAnswer) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    std::vector<Unsubscribe> unsubscribes;
    for (int index = 0; index < 5; ++index) {
        unsubscribes.push_back(service->subscribeToAdapter("silent", "{}", results.callback()));
    }
    runtime.calls.wait(5);
    unsubscribes.push_back(service->subscribeToAdapter("sixth", "{}", results.callback()));
    EXPECT_EQ(runtime.calls.lines().size(), 5u);
    runtime.answer(3, "{ data: {} }");
    EXPECT_THAT(runtime.calls.wait(6)[5], testing::StartsWith("subscribeToAdapter(\"sixth\""));
    for (int call : {0, 1, 2, 4, 5}) {
        runtime.answer(call, "{ data: {} }");
    }
    results.wait(6);
    for (const Unsubscribe& unsubscribe : unsubscribes) {
        unsubscribe();
    }
    runtime.calls.wait(12);
}

TEST(DataServiceSubscription, ThatEndsTwiceCallsTheRuntimesFunctionOnce) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    const Unsubscribe unsubscribe = service->subscribeToAdapter("list", "{}", results.callback());
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: {} }");
    results.wait(1);
    unsubscribe();
    unsubscribe();
    runtime.calls.wait(2);
    // This call takes the same queue: a second "unsubscribe" would arrive before it.
    service->invokeAdapterWithMetadata("after", "{}", {}, results.callback());
    const Lines calls = runtime.calls.wait(3);
    EXPECT_EQ(std::ranges::count(calls, "unsubscribe(list)"), 1);
    runtime.answer(1, "{}");
    results.wait(2);
}

TEST(DataServiceSubscription, ThatEndsBeforeItsTurnNeverReachesTheRuntime) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    {
        HeldQueue held;
        const Unsubscribe unsubscribe =
            service->subscribeToAdapter("list", "{}", results.callback());
        unsubscribe();
    }
    runtime.expectAllSlotsFree();
    for (const std::string& call : runtime.calls.lines()) {
        EXPECT_THAT(call, testing::StartsWith("invokeAdapter(\"probe\""));
    }
    EXPECT_EQ(results.lines(), Lines{});
}

TEST(DataServiceSubscription, ThatEndsWhileTheRuntimeIsAskedIsUnsubscribedWhenTheFunctionArrives) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    test::Arrival<Unsubscribe> returned("the unsubscribe callback");
    test::setFunction(runtime.context, "endIt", 0, [&](js::Scope& scope, js::Local, js::Arguments) {
        returned.get()();
        return scope.undefined();
    });
    test::evaluate(runtime.context, "on.subscribeToAdapter = () => endIt();");
    returned.put(service->subscribeToAdapter("list", "{}", results.callback()));
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
    runtime.answer(0, "{ data: {} }");
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), Lines{});
    EXPECT_TRUE(service->takeState().subscriptions.empty());
}

TEST(DataServiceSubscription, HearsNothingAfterItsEnd) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    const Unsubscribe unsubscribe = service->subscribeToAdapter("list", "{}", results.callback());
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: {} }");
    results.wait(1);
    unsubscribe();
    runtime.calls.wait(2);
    runtime.answer(0, "{ data: { late: true } }");
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), Lines{"{}"});
}

TEST(DataServiceSubscription, MayEndItselfFromItsCallback) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    test::Arrival<Unsubscribe> returned("the unsubscribe callback");
    returned.put(service->subscribeToAdapter("list", "{}", [&](const DataServiceResult& result) {
        results.add(test::textOf(result));
        returned.get()();
    }));
    runtime.calls.wait(1);
    test::evaluate(runtime.context,
                   "callbacks[0]({ data: { n: 1 } }); callbacks[0]({ data: { n: 2 } });");
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), Lines{R"({"n":1})"});
}

TEST(DataServiceSubscription, ThatHasEndedInItsCallbackIsNotReadAnyMore) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    test::Arrival<Unsubscribe> returned("the unsubscribe callback");
    test::Event ended("the end of the subscription");
    test::Event answered("the late answer");
    returned.put(service->subscribeToAdapter("list", "{}", [&](const DataServiceResult& result) {
        returned.get()();
        ended.signal();
        answered.wait();
        results.add(test::textOf(result));
    }));
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: {} }");
    ended.wait();
    runtime.answer(0, "{ get data() { heard('read'); return {}; } }");
    answered.signal();
    EXPECT_EQ(results.wait(1), Lines{"{}"});
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
    runtime.expectAllSlotsFree();
    EXPECT_EQ(std::ranges::count(runtime.calls.lines(), "read"), 0);
    EXPECT_EQ(results.lines().size(), 1u);
}

TEST(DataServiceSubscription, CanBeEndedWhenItsServiceIsGone) {
    ServiceRuntime runtime;
    Results results;
    auto service = runtime.service();
    const Unsubscribe unsubscribe = service->subscribeToAdapter("list", "{}", results.callback());
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: {} }");
    results.wait(1);
    test::destroy(service);
    runtime.answer(0, "{ data: { late: true } }");
    unsubscribe();
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
    EXPECT_EQ(results.lines(), Lines{"{}"});
}

TEST(DataServiceSubscription, IsAskedForAgainByTheServiceThatTakesItOver) {
    ServiceRuntime runtime;
    Results results;
    const auto first = runtime.service();
    const Unsubscribe unsubscribe = first->subscribeToAdapter("list", "{}", results.callback());
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: { n: 1 } }");
    results.wait(1);
    test::waitForSubscriptions(*first, 1);
    DataServiceState state = first->takeState();
    EXPECT_EQ(state.subscriptions.size(), 1u);
    EXPECT_TRUE(state.mutatingSubscriptions.empty());
    EXPECT_TRUE(state.contentVersionOperations.empty());
    EXPECT_FALSE(state.recordTTL);
    EXPECT_FALSE(state.metadataTTL);
    EXPECT_TRUE(first->takeState().subscriptions.empty());
    // Not cancelled in the runtime by the hand-over itself.
    EXPECT_EQ(runtime.calls.lines().size(), 1u);

    const auto second = runtime.service(std::move(state));
    // The runtime is asked again before the service is there. The function of the first time is
    // called now: no later call reaches it.
    EXPECT_EQ(runtime.calls.wait(3),
              (Lines{R"js(subscribeToAdapter("list", "{}", callback, undefined))js",
                     R"js(subscribeToAdapter("list", "{}", callback, undefined))js",
                     "unsubscribe(list)"}));
    runtime.answer(1, "{ data: { n: 2 } }");
    EXPECT_EQ(results.wait(2), (Lines{R"({"n":1})", R"({"n":2})"}));
    // The runtime is not told a second time; the caller hears nothing all the same.
    unsubscribe();
    EXPECT_EQ(second->subscriptionCount(), 0u);
    runtime.answer(1, "{ data: { n: 3 } }");
    runtime.expectAllSlotsFree();
    EXPECT_EQ(std::ranges::count(runtime.calls.lines(), "unsubscribe(list)"), 1);
    EXPECT_EQ(results.lines().size(), 2u);
}

/// A callback that writes down what it hears, and how often it is inside itself.
class Watched {
  public:
    ResultCallback callback() {
        return [this](const DataServiceResult& result) {
            if (++inside != 1) {
                isAlone = false;
            }
            std::this_thread::yield();
            --inside;
            heard.add(test::textOf(result)); // the last that it touches
        };
    }

    /// Every `step`th number from `first`, one at a time and in their order.
    void expectNumbers(int count, int first, int step) {
        Lines expected;
        for (int number = first; number < count; number += step) {
            expected.push_back(R"({"n":)" + std::to_string(number) + "}");
        }
        EXPECT_EQ(heard.wait(static_cast<int>(expected.size())), expected);
        EXPECT_TRUE(isAlone);
    }

  private:
    test::Journal heard{"a result"};
    std::atomic<int> inside = 0;
    std::atomic<bool> isAlone = true;
};

TEST(DataServiceSubscription, IsCalledOnceAtATimeAndInOrderAcrossHandOvers) {
    ServiceRuntime runtime;
    Watched watched;
    std::vector<std::shared_ptr<DataService>> services{runtime.service()};
    const Unsubscribe unsubscribe =
        services[0]->subscribeToAdapter("list", "{}", watched.callback());
    test::waitForSubscriptions(*services[0], 1);
    while (services.size() < 3) {
        services.push_back(runtime.service(services.back()->takeState()));
    }
    // The runtime goes on with what it was asked for three times.
    runtime.run("for (let n = 0; n < 1200; ++n) callbacks[n % 3]({ data: { n } });");
    watched.expectNumbers(1200, 0, 1);
    unsubscribe();
}

TEST(DataServiceSubscription, IsCalledOnceAtATimeInAServiceMadeOfTheStatesOfTwo) {
    ServiceRuntime runtime;
    Watched ofFirst;
    Watched ofSecond;
    const auto first = runtime.service();
    const Unsubscribe one = first->subscribeToAdapter("one", "{}", ofFirst.callback());
    runtime.calls.wait(1);
    const auto second = runtime.service();
    const Unsubscribe two = second->subscribeToAdapter("two", "{}", ofSecond.callback());
    test::waitForSubscriptions(*first, 1);
    test::waitForSubscriptions(*second, 1);
    DataServiceState state = first->takeState();
    state.subscriptions.push_back(second->takeState().subscriptions.front());
    const auto third = runtime.service(std::move(state));
    // Even numbers go to the one, odd ones to the other, by turns to what was asked for first and
    // again.
    runtime.run("for (let n = 0; n < 1200; ++n) callbacks[n % 4]({ data: { n } });");
    ofFirst.expectNumbers(1200, 0, 2);
    ofSecond.expectNumbers(1200, 1, 2);
    one();
    two();
}

TEST(DataServiceSubscription, IsSelfEndingWhenTheCallerSaysSo) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    int heard = 0;
    service->executeAdapter("list", "{}", [&](const DataServiceResult& result) {
        results.add(test::textOf(result));
        return ++heard == 2;
    });
    runtime.calls.wait(1);
    test::evaluate(runtime.context, R"js(
        for (const n of [1, 2, 3]) callbacks[0]({ data: { n } });
    )js");
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), (Lines{R"({"n":1})", R"({"n":2})"}));
}

TEST(DataServiceSubscription, ThatIsSelfEndingCanBeEndedByTheCaller) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    AdapterRequestContext context;
    context.priority = AdapterRequestPriority::high;
    const Unsubscribe unsubscribe =
        service->executeAdapter("list", "{}", context, [&](const DataServiceResult& result) {
            results.add(test::textOf(result));
            return false;
        });
    EXPECT_EQ(runtime.calls.wait(1),
              Lines{R"js(subscribeToAdapter("list", "{}", callback, {"priority":"high"}))js"});
    runtime.answer(0, "{ data: {} }");
    results.wait(1);
    unsubscribe();
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
}

TEST(DataServiceSubscription, ThatIsSelfEndingEndsAsSoonAsItCan) {
    test::Transcript transcript;
    test::SubscribingOnly service([&](const ResultCallback& callback) -> Unsubscribe {
        callback(Dictionary());
        callback(Dictionary());
        transcript.add("subscribed");
        return [&] {
            transcript.add("unsubscribed");
        };
    });
    service.executeAdapter("list", "{}", [&](const DataServiceResult&) {
        transcript.add("result");
        return true;
    });
    EXPECT_EQ(transcript.lines(), (Lines{"result", "subscribed", "unsubscribed"}));
}

TEST(DataServiceSubscription, ThatIsSelfEndingHearsNothingMoreOnceItHasSaidSo) {
    // A service that goes on after the end.
    test::Transcript transcript;
    ResultCallback emit;
    test::SubscribingOnly service([&](ResultCallback callback) -> Unsubscribe {
        emit = std::move(callback);
        return [&] {
            transcript.add("unsubscribed");
        };
    });
    bool isEnough = false;
    const Unsubscribe unsubscribe =
        service.executeAdapter("list", "{}", [&](const DataServiceResult& result) {
            transcript.add(test::textOf(result));
            return isEnough;
        });
    emit(Dictionary{{"n", 1}});
    isEnough = true;
    emit(Dictionary{{"n", 2}});
    isEnough = false;
    emit(Dictionary{{"n", 3}});
    emit(std::unexpected(DataServiceError::unknown()));
    EXPECT_EQ(transcript.lines(), (Lines{R"({"n":1})", R"({"n":2})", "unsubscribed"}));
    // The caller holds the function that the service returned: it runs again.
    unsubscribe();
    EXPECT_EQ(transcript.lines().size(), 4u);
    EXPECT_EQ(transcript.lines().back(), "unsubscribed");
}

TEST(DataServiceSubscription, ThatIsSelfEndingHearsNothingOfWhatIsOnItsWay) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    test::Event entered("the first result");
    test::Event ended("the end of the answers");
    service->executeAdapter("list", "{}", [&](const DataServiceResult& result) {
        entered.signal();
        ended.wait();
        results.add(test::textOf(result));
        return true;
    });
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: { n: 1 } }");
    entered.wait();
    runtime.run("callbacks[0]({ data: { n: 2 } }); callbacks[0]({ data: { n: 3 } });");
    ended.signal();
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), Lines{R"({"n":1})"});
}

} // namespace
