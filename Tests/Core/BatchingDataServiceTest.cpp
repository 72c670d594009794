#include <zem/Core/BatchingDataService.h>
#include <zem/Core/DataService.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <Support/BinaryStore.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace zem;
using platform::Seconds;
using test::Results;
using test::ServiceRuntime;
using Lines = std::vector<std::string>;

CreateContentDocumentAndVersionConfig document(const std::string& title) {
    return {.title = title, .description = "", .fileData = {}, .fileName = {}, .mimeType = {}};
}

CreateContentVersionConfig version(const std::string& title) {
    return {.title = title,
            .description = "",
            .contentDocumentId = "id",
            .fileData = {},
            .fileName = {},
            .mimeType = {}};
}

void expectEmpty(const DataServiceState& state) {
    EXPECT_TRUE(state.subscriptions.empty());
    EXPECT_TRUE(state.mutatingSubscriptions.empty());
    EXPECT_TRUE(state.contentVersionOperations.empty());
    EXPECT_FALSE(state.recordTTL);
    EXPECT_FALSE(state.metadataTTL);
}

TEST(BatchingDataService, HasNothingToHandOverAtFirst) {
    expectEmpty(BatchingDataService::create()->takeState());
}

TEST(BatchingDataService, RecordsWhatIsAskedForInItsOrder) {
    ServiceRuntime runtime;
    Results results;
    const auto batching = BatchingDataService::create();
    AdapterRequestContext context;
    context.priority = AdapterRequestPriority::high;
    runtime.clock->advance(Seconds(7));
    const Unsubscribe list =
        batching->subscribeToAdapter("list", "l", context, results.callback("list"));
    batching->invokeAdapter("plain", "p", context, results.callback("plain"));
    batching->invokeAdapterWithMetadata("metadata", "m", {{"a", "1"}},
                                        results.callback("metadata"));
    batching->invokeAdapterWithDraftToReplace("draft", "d", "7", results.callback("draft"));
    batching->createContentDocumentAndVersion(document("t"), Metadata{{"b", "2"}},
                                              results.callback());
    batching->createContentVersion(version("u"), std::nullopt, results.callback());
    batching->setRimvoRecordTTL(11, [] {});
    batching->setMetadataTTL(12, [] {});

    const DataServiceState state = batching->takeState();
    ASSERT_EQ(state.subscriptions.size(), 1u);
    EXPECT_EQ(state.subscriptions[0]->unsubscribable->adapterId, "list");
    EXPECT_EQ(state.subscriptions[0]->unsubscribable->config, "l");
    EXPECT_EQ(state.subscriptions[0]->unsubscribable->requestContext, context);
    EXPECT_EQ(state.subscriptions[0]->preparedDate, runtime.clock->now());
    EXPECT_FALSE(state.subscriptions[0]->hasEmitted);
    EXPECT_EQ(state.subscriptions[0]->adapterOperation.lock(), nullptr);
    ASSERT_EQ(state.mutatingSubscriptions.size(), 3u);
    EXPECT_EQ(state.mutatingSubscriptions[0]->adapterId, "plain");
    EXPECT_EQ(state.mutatingSubscriptions[0]->config, "p");
    EXPECT_EQ(state.mutatingSubscriptions[0]->specialOperation, std::nullopt);
    EXPECT_EQ(state.mutatingSubscriptions[0]->requestContext, context);
    EXPECT_EQ(state.mutatingSubscriptions[1]->adapterId, "metadata");
    EXPECT_EQ(state.mutatingSubscriptions[1]->specialOperation,
              SpecialOperation::setMetadata({{"a", "1"}}));
    EXPECT_EQ(state.mutatingSubscriptions[1]->requestContext, std::nullopt);
    EXPECT_EQ(state.mutatingSubscriptions[2]->specialOperation,
              SpecialOperation::replaceDraft("7"));
    EXPECT_EQ(state.mutatingSubscriptions[2]->requestContext, std::nullopt);
    ASSERT_EQ(state.contentVersionOperations.size(), 2u);
    EXPECT_EQ(std::get<CreateContentDocumentAndVersionConfig>(
                  state.contentVersionOperations[0]->operation)
                  .title,
              "t");
    EXPECT_EQ(state.contentVersionOperations[0]->metadata, (Metadata{{"b", "2"}}));
    EXPECT_EQ(std::get<CreateContentVersionConfig>(state.contentVersionOperations[1]->operation)
                  .contentDocumentId,
              "id");
    EXPECT_EQ(state.contentVersionOperations[1]->metadata, std::nullopt);
    ASSERT_TRUE(state.recordTTL);
    EXPECT_EQ(state.recordTTL->ttlValue, 11);
    ASSERT_TRUE(state.metadataTTL);
    EXPECT_EQ(state.metadataTTL->ttlValue, 12);
    EXPECT_EQ(results.lines(), Lines{});
}

TEST(BatchingDataService, HandsOverOnlyWhatCameSinceTheLastTime) {
    Results results;
    const auto batching = BatchingDataService::create();
    batching->invokeAdapter("first", "{}", results.callback());
    batching->setRimvoRecordTTL(1, [] {});
    (void)batching->takeState();
    batching->invokeAdapter("second", "{}", results.callback());
    const Unsubscribe unsubscribe = batching->subscribeToAdapter("list", "{}", results.callback());
    const DataServiceState state = batching->takeState();
    ASSERT_EQ(state.mutatingSubscriptions.size(), 1u);
    EXPECT_EQ(state.mutatingSubscriptions[0]->adapterId, "second");
    EXPECT_EQ(state.subscriptions.size(), 1u);
    EXPECT_FALSE(state.recordTTL);
    // The last requested TTL stays known.
    EXPECT_EQ(batching->lastRecordTTL(), 1);
    EXPECT_EQ(batching->lastMetadataTTL(), std::nullopt);
    expectEmpty(batching->takeState());
}

TEST(BatchingDataService, ReplaysEverythingInTheGivenOrder) {
    ServiceRuntime runtime;
    Results results;
    const auto batching = BatchingDataService::create();
    // Asked for in another order than that of the replay.
    const Unsubscribe first = batching->subscribeToAdapter("list 1", "{}", results.callback());
    const Unsubscribe second = batching->subscribeToAdapter("list 2", "{}", results.callback());
    batching->createContentDocumentAndVersion(document("upload 1"), Metadata{}, results.callback());
    batching->createContentVersion(version("upload 2"), std::nullopt, results.callback());
    batching->createContentVersion(version("upload 3"), Metadata{}, results.callback());
    batching->createContentDocumentAndVersion(document("upload 4"), std::nullopt,
                                              results.callback());
    batching->invokeAdapter("call 1", "{}", results.callback());
    batching->invokeAdapterWithMetadata("call 2", "{}", {{"a", "1"}}, results.callback());
    batching->invokeAdapterWithDraftToReplace("call 3", "{}", "7", results.callback());
    batching->invokeAdapter("call 4", "{}", results.callback());
    batching->setMetadataTTL(2, [&] { runtime.calls.add("metadata TTL completed"); });
    batching->setRimvoRecordTTL(1, [&] { runtime.calls.add("record TTL completed"); });
    // Each call answers at once and is written down with its adapter or, of an upload, the title.
    runtime.run(R"js(
        for (const name of Object.keys(zem)) {
            zem[name] = (id, config = "{}", ...others) => {
                heard(name + " " + (JSON.parse(config).title ?? id));
                others.find((value) => typeof value === "function")?.({ data: {} });
                return () => heard("end " + id);
            };
        }
    )js");

    const auto store = std::make_shared<test::BinaryStore>();
    test::HeldQueue held;
    const auto service =
        DataService::create(runtime.value("zem"), store, batching->takeState(), 180);
    // These before the service is there, on the thread that makes it.
    Lines expected{"setRimvoRecordTTL 1",       "record TTL completed",
                   "setMetadataTTL 2",          "metadata TTL completed",
                   "subscribeToAdapter list 1", "subscribeToAdapter list 2"};
    EXPECT_EQ(runtime.calls.lines(), expected);
    // The others through the shared queue, of which one slot is free: mutating calls before plain
    // ones, and both in the order of the replay.
    held.releaseOne();
    expected.insert(expected.end(),
                    {"invokeAdapterWithMetadata call 2", "invokeAdapterWithDraftToReplace call 3",
                     "invokeAdapterWithMetadata upload 1", "invokeAdapterWithMetadata upload 3",
                     "invokeAdapter call 1", "invokeAdapter call 4", "invokeAdapter upload 2",
                     "invokeAdapter upload 4"});
    EXPECT_EQ(runtime.calls.wait(static_cast<int>(expected.size())), expected);
    EXPECT_EQ(results.wait(10).size(), 10u);
    // The handles that the caller was given while there was no runtime.
    first();
    expected.emplace_back("end list 1");
    EXPECT_EQ(runtime.calls.wait(static_cast<int>(expected.size())), expected);
    second();
    expected.emplace_back("end list 2");
    EXPECT_EQ(runtime.calls.wait(static_cast<int>(expected.size())), expected);
    EXPECT_EQ(service->subscriptionCount(), 0u);
}

TEST(BatchingDataService, AnswersEachOfTheReplayedToItsCaller) {
    ServiceRuntime runtime;
    Results results;
    const auto batching = BatchingDataService::create();
    const Unsubscribe list = batching->subscribeToAdapter("list", "{}", results.callback("list"));
    batching->createContentDocumentAndVersion(document("t"), Metadata{},
                                              results.callback("document"));
    batching->createContentVersion(version("t"), Metadata{}, results.callback("version"));
    batching->invokeAdapterWithMetadata("metadata", "{}", {{"a", "1"}},
                                        results.callback("metadata"));
    batching->invokeAdapterWithDraftToReplace("draft", "{}", "7", results.callback("draft"));
    batching->invokeAdapter("plain", "{}", results.callback("plain"));
    const auto service = DataService::create(
        runtime.value("zem"), std::make_shared<test::BinaryStore>(), batching->takeState(), 180);
    EXPECT_THAT(
        runtime.calls.wait(6),
        testing::UnorderedElementsAre(
            R"js(subscribeToAdapter("list", "{}", callback, undefined))js",
            R"js(invokeAdapterWithMetadata("metadata", "{}", {"a":"1"}, callback))js",
            R"js(invokeAdapterWithDraftToReplace("draft", "{}", "7", callback))js",
            testing::StartsWith("invokeAdapterWithMetadata(\"createContentDocumentAndVersion\""),
            testing::StartsWith("invokeAdapterWithMetadata(\"createContentVersion\""),
            R"js(invokeAdapter("plain", "{}", callback, undefined))js"));
    for (const char* name : {"metadata", "draft", "createContentDocumentAndVersion",
                             "createContentVersion", "plain", "list"}) {
        runtime.emit(name, "{ data: {} }");
    }
    EXPECT_EQ(results.wait(6), (Lines{"metadata: {}", "draft: {}", "document: {}", "version: {}",
                                      "plain: {}", "list: {}"}));
    list();
    EXPECT_EQ(runtime.calls.wait(7)[6], "unsubscribe(list)");
}

TEST(BatchingDataService, ForgetsASubscriptionThatEndsBeforeTheHandOver) {
    ServiceRuntime runtime;
    Results results;
    const auto batching = BatchingDataService::create();
    const Unsubscribe first = batching->subscribeToAdapter("first", "{}", results.callback());
    const Unsubscribe second = batching->subscribeToAdapter("second", "{}", results.callback());
    first();
    first();
    DataServiceState state = batching->takeState();
    ASSERT_EQ(state.subscriptions.size(), 1u);
    EXPECT_EQ(state.subscriptions[0]->unsubscribable->adapterId, "second");
    // One that ends between the two is not asked for either.
    second();
    const auto service = runtime.service(std::move(state));
    EXPECT_EQ(runtime.calls.lines(), Lines{});
    EXPECT_TRUE(service->takeState().subscriptions.empty());
}

TEST(BatchingDataService, KeepsOnlyTheLastTTLAndItsCompletion) {
    ServiceRuntime runtime;
    test::Transcript transcript;
    const auto batching = BatchingDataService::create();
    batching->setMetadataTTL(1, [&] { transcript.add("first"); });
    batching->setMetadataTTL(2, [&] { transcript.add("second"); });
    const auto service = runtime.service(batching->takeState());
    EXPECT_EQ(runtime.calls.lines(), Lines{"setMetadataTTL(2)"});
    EXPECT_EQ(transcript.lines(), Lines{"second"});
    EXPECT_EQ(batching->lastMetadataTTL(), 2);
}

TEST(BatchingDataService, RecordsASelfEndingSubscription) {
    ServiceRuntime runtime;
    Results results;
    const auto batching = BatchingDataService::create();
    batching->executeAdapter("list", "{}", [&](const DataServiceResult& result) {
        results.add(test::textOf(result));
        return true;
    });
    const auto service = runtime.service(batching->takeState());
    runtime.calls.wait(1);
    runtime.answer(0, "{ data: {} }");
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
    runtime.answer(0, "{ data: { late: true } }");
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), Lines{"{}"});
}

TEST(BatchingDataService, DropsCallbacksWithoutCallingThemWhenItIsDestroyed) {
    Results results;
    auto batching = BatchingDataService::create();
    const Unsubscribe list = batching->subscribeToAdapter("list", "{}", results.callback());
    batching->invokeAdapter("plain", "{}", results.callback());
    batching->setMetadataTTL(1, [&] { results.add("completed"); });
    batching.reset();
    list();
    EXPECT_EQ(results.lines(), Lines{});
}

} // namespace
