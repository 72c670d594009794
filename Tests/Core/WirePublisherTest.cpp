#include <zem/Core/BatchingDataService.h>
#include <zem/Core/DataService.h>
#include <zem/Core/WirePublisher.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <Core/SubscribingOnly.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace zem;
using platform::Demand;
using platform::Seconds;
using test::Results;
using test::ServiceRuntime;
using Lines = std::vector<std::string>;

/// Writes down what it receives, and keeps its subscription.
class Recorder final : public DictionarySubscriber {
  public:
    void receive(std::shared_ptr<platform::Subscription> received) override {
        subscription = std::move(received);
        journal.add("subscription");
    }
    Demand receive(const Dictionary& value) override {
        journal.add(tessel::toText(value));
        return Demand::none();
    }
    void receive(const platform::Completion<DataServiceError>& completion) override {
        journal.add(completion.failure ? completion.failure->errorDescription() : "finished");
    }

    test::Journal journal{"something from the publisher"};
    std::shared_ptr<platform::Subscription> subscription;
};

TEST(WirePublisher, GivesEverySubscriberASubscriptionOfItsOwn) {
    ServiceRuntime runtime;
    const auto service = runtime.service();
    AdapterRequestContext context;
    context.priority = AdapterRequestPriority::high;
    const WirePublisher publisher(service, "list", R"({"a":1})", context);
    const auto first = std::make_shared<Recorder>();
    const auto second = std::make_shared<Recorder>();
    publisher.receive(first);
    runtime.calls.wait(1);
    publisher.receive(second);
    const std::string call =
        R"js(subscribeToAdapter("list", "{\"a\":1}", callback, {"priority":"high"}))js";
    EXPECT_EQ(runtime.calls.wait(2), (Lines{call, call}));
    EXPECT_NE(first->subscription->combineIdentifier(), second->subscription->combineIdentifier());
    runtime.answer(1, "{ data: { to: 'second' } }");
    EXPECT_EQ(second->journal.wait(2), (Lines{"subscription", R"({"to":"second"})"}));
    runtime.answer(0, "{ data: { to: 'first' } }");
    EXPECT_EQ(first->journal.wait(2), (Lines{"subscription", R"({"to":"first"})"}));
    first->subscription->cancel();
    EXPECT_EQ(runtime.calls.wait(3)[2], "unsubscribe(list)");
    second->subscription->cancel();
    EXPECT_EQ(runtime.calls.wait(4)[3], "unsubscribe(list)");
}

TEST(WirePublisher, DeliversWithoutDemand) {
    ServiceRuntime runtime;
    const auto service = runtime.service();
    const auto subscriber = std::make_shared<Recorder>();
    WirePublisher(service, "list", "{}", std::nullopt).receive(subscriber);
    runtime.calls.wait(1);
    subscriber->subscription->request(Demand::none());
    test::evaluate(runtime.context,
                   "callbacks[0]({ data: { n: 1 } }); callbacks[0]({ data: { n: 2 } });");
    EXPECT_EQ(subscriber->journal.wait(3), (Lines{"subscription", R"({"n":1})", R"({"n":2})"}));
    subscriber->subscription->cancel();
    runtime.calls.wait(2);
}

TEST(WirePublisher, EndsWithTheFirstFailure) {
    ServiceRuntime runtime;
    const auto service = runtime.service();
    const auto subscriber = std::make_shared<Recorder>();
    WirePublisher(service, "list", "{}", std::nullopt).receive(subscriber);
    runtime.calls.wait(1);
    test::evaluate(runtime.context, R"js(
        callbacks[0]({ data: {} });
        callbacks[0]({ error: "gone" });
        callbacks[0]({ error: "again" });
        callbacks[0]({ data: {} });
    )js");
    subscriber->journal.wait(3);
    // The runtime's subscription is there until it is cancelled, and then no more.
    EXPECT_EQ(runtime.calls.lines().size(), 1u);
    subscriber->subscription->cancel();
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
    runtime.expectAllSlotsFree();
    EXPECT_EQ(subscriber->journal.lines(),
              (Lines{"subscription", "{}", "executeAdapter error - gone"}));
}

TEST(WirePublisher, FailsWithTheWatchdogsTimeout) {
    ServiceRuntime runtime;
    const auto service = runtime.service();
    const auto subscriber = std::make_shared<Recorder>();
    WirePublisher(service, "list", "{}", std::nullopt).receive(subscriber);
    test::waitForSubscriptions(*service, 1);
    runtime.clock->advance(Seconds(180));
    EXPECT_EQ(subscriber->journal.wait(2),
              (Lines{"subscription", "executeAdapter error - .executeAdapterTimeout"}));
    subscriber->subscription->cancel();
}

TEST(WirePublisher, UnsubscribesAsOftenAsItIsCancelled) {
    int unsubscribed = 0;
    const auto service = std::make_shared<test::SubscribingOnly>([&](const ResultCallback&) {
        return [&] {
            ++unsubscribed;
        };
    });
    const auto subscriber = std::make_shared<Recorder>();
    WirePublisher(service, "list", "{}", std::nullopt).receive(subscriber);
    subscriber->subscription->cancel();
    subscriber->subscription->cancel();
    EXPECT_EQ(unsubscribed, 2);
}

TEST(WirePublisher, CallsTheRuntimesFunctionOnceHoweverOftenItIsCancelled) {
    ServiceRuntime runtime;
    const auto service = runtime.service();
    const auto subscriber = std::make_shared<Recorder>();
    WirePublisher(service, "list", "{}", std::nullopt).receive(subscriber);
    runtime.calls.wait(1);
    subscriber->subscription->cancel();
    subscriber->subscription->cancel();
    runtime.expectAllSlotsFree();
    EXPECT_THAT(runtime.calls.lines(), testing::Contains("unsubscribe(list)").Times(1));
}

TEST(WirePublisher, ReceivesAfterTheHandOverWhatWasAskedForBefore) {
    ServiceRuntime runtime;
    Results results;
    const auto batching = BatchingDataService::create();
    auto cancellable = platform::sink(
        batching->subscribeToAdapter("list", "{}", std::nullopt),
        [&](const platform::Completion<DataServiceError>& completion) {
            results.add(completion.failure->errorDescription());
        },
        [&](const Dictionary& value) { results.add(tessel::toText(value)); });
    const auto service = runtime.service(batching->takeState());
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: { n: 1 } }");
    EXPECT_EQ(results.wait(1), Lines{R"({"n":1})"});
    cancellable.cancel();
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
}

TEST(WireProviderError, IsEqualByCaseAndPayload) {
    EXPECT_EQ(WireProviderError::jsException("a"), WireProviderError::jsException("a"));
    EXPECT_NE(WireProviderError::jsException("a"), WireProviderError::missingJSObject("a"));
    EXPECT_NE(WireProviderError::missingJSObject("a"), WireProviderError::missingJSObject("b"));
    EXPECT_NE(WireProviderError::loadingError(), WireProviderError::wiresNotFound());
}

} // namespace
