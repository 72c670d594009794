// The calls that give a future.

#include <zem/Core/BatchingDataService.h>
#include <zem/Core/DataService.h>

#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <Support/Detached.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace zem;
using platform::Future;
using platform::Seconds;
using test::Detached;
using test::Results;
using test::ServiceRuntime;
using Lines = std::vector<std::string>;

std::string waited(const Future<DataServiceResult>& future) {
    const auto result = future.wait(Seconds(test::waitLimit));
    return result ? test::textOf(*result) : "nothing came";
}

TEST(DataServiceFuture, IsCompletedWithTheResultOfEachCall) {
    ServiceRuntime runtime;
    const auto service = runtime.service();
    AdapterRequestContext context;
    context.priority = AdapterRequestPriority::background;
    const auto plain = service->invokeAdapter("plain", "{}", context);
    runtime.calls.wait(1);
    const auto metadata = service->invokeAdapterWithMetadata("metadata", "{}", {{"a", "1"}});
    runtime.calls.wait(2);
    const auto draft = service->invokeAdapterWithDraftToReplace("draft", "{}", "7");
    EXPECT_EQ(runtime.calls.wait(3),
              (Lines{R"js(invokeAdapter("plain", "{}", callback, {"priority":"background"}))js",
                     R"js(invokeAdapterWithMetadata("metadata", "{}", {"a":"1"}, callback))js",
                     R"js(invokeAdapterWithDraftToReplace("draft", "{}", "7", callback))js"}));
    EXPECT_FALSE(plain.wait(Seconds(0)));
    runtime.answer(0, "{ data: { n: 0 } }");
    runtime.answer(1, "{ error: 'no' }");
    runtime.answer(2, "{}");
    EXPECT_EQ(waited(plain), R"({"n":0})");
    EXPECT_EQ(waited(metadata), "executeAdapter error - no");
    EXPECT_EQ(waited(draft), "{}");
}

TEST(DataServiceFuture, ContinuesOnTheCallbackQueue) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    service->invokeAdapter("a", "{}", std::nullopt).then([&](const DataServiceResult& result) {
        results.add(platform::SerialQueue::currentLabel() + " " + test::textOf(result));
    });
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: {} }");
    EXPECT_EQ(results.wait(1), Lines{"com.quorvane.data.service.callback-queue {}"});
}

Detached readTwo(std::shared_ptr<DataService> service, Results& results) {
    const DataServiceResult first = co_await service->invokeAdapter("first", "{}", std::nullopt);
    results.add("first " + test::textOf(first));
    const DataServiceResult second =
        co_await service->invokeAdapterWithDraftToReplace("second", "{}", "1");
    results.add("second " + test::textOf(second));
}

TEST(DataServiceFuture, CanBeAwaitedOneAfterTheOther) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    readTwo(service, results);
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: { n: 1 } }");
    runtime.calls.wait(2);
    runtime.answer(1, "{ data: { n: 2 } }");
    EXPECT_EQ(results.wait(2), (Lines{R"(first {"n":1})", R"(second {"n":2})"}));
}

TEST(DataServiceFuture, FailsWhenItsCallIsDropped) {
    auto batching = BatchingDataService::create();
    const auto future = batching->invokeAdapter("a", "{}", std::nullopt);
    batching.reset();
    EXPECT_EQ(waited(future), "executeAdapter error - .unknown");
}

TEST(DataServiceFuture, IsCompletedAfterAHandOver) {
    ServiceRuntime runtime;
    const auto batching = BatchingDataService::create();
    const auto future = batching->invokeAdapterWithMetadata("a", "{}", {});
    const auto service = runtime.service(batching->takeState());
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: {} }");
    EXPECT_EQ(waited(future), "{}");
}

} // namespace
