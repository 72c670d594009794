// Uploads.

#include <zem/Core/BatchingDataService.h>
#include <zem/Core/DataService.h>
#include <zem/Tessel/JSON.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <Support/BinaryStore.h>
#include <Support/LogCapture.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using test::Results;
using test::ServiceRuntime;
using Lines = std::vector<std::string>;

CreateContentDocumentAndVersionConfig document(platform::Bytes bytes) {
    CreateContentDocumentAndVersionConfig config;
    config.title = "Site plan";
    config.description = "North \"side\"";
    config.fileData = std::move(bytes);
    return config;
}

CreateContentVersionConfig version() {
    CreateContentVersionConfig config;
    config.title = "Site plan";
    config.description = "";
    config.contentDocumentId = "069";
    config.fileData = {1, 2, 3};
    config.fileName = "plan.pdf";
    config.mimeType = "application/pdf";
    return config;
}

class DataServiceContent : public testing::Test {
  protected:
    std::shared_ptr<DataService> service() {
        return DataService::create(runtime.value("zem"), store, {}, 180);
    }

    ServiceRuntime runtime;
    Results results;
    std::shared_ptr<test::BinaryStore> store = std::make_shared<test::BinaryStore>();
};

TEST_F(DataServiceContent, StoresTheFileAndDescribesItByItsHandle) {
    const auto uploading = service();
    uploading->createContentVersion(version(), std::nullopt, results.callback());
    EXPECT_EQ(
        runtime.calls.wait(1),
        Lines{
            R"js(invokeAdapter("createContentVersion", "{\"title\":\"Site plan\",\"description\":\"\",\"contentDocumentId\":\"069\",\"fileData\":{\"handle\":\"blob-1\",\"name\":\"plan.pdf\",\"isFileReference\":true,\"size\":3,\"type\":\"application/pdf\"}}", callback, undefined))js"});
    EXPECT_EQ(store->transcript.lines(), Lines{"store application/pdf 3"});
    EXPECT_EQ(store->cachedData("blob-1"), (platform::Bytes{1, 2, 3}));
    runtime.answer(0, "{ data: { id: '068' } }");
    EXPECT_EQ(results.wait(1), Lines{R"({"id":"068"})"});
}

TEST_F(DataServiceContent, FallsBackToTheTitleAndToOctetStream) {
    const auto uploading = service();
    uploading->createContentDocumentAndVersion(document({}), std::nullopt, results.callback());
    EXPECT_EQ(
        runtime.calls.wait(1),
        Lines{
            R"js(invokeAdapter("createContentDocumentAndVersion", "{\"title\":\"Site plan\",\"description\":\"North \\\"side\\\"\",\"fileData\":{\"handle\":\"blob-1\",\"name\":\"Site plan\",\"isFileReference\":true,\"size\":0,\"type\":\"application/octet-stream\"}}", callback, undefined))js"});
    EXPECT_EQ(store->transcript.lines(), Lines{"store application/octet-stream 0"});
    runtime.answer(0, "{}");
    results.wait(1);
}

TEST_F(DataServiceContent, IsAMutatingCallWithMetadata) {
    const auto uploading = service();
    uploading->createContentDocumentAndVersion(document({7}), Metadata{{"a", "1"}},
                                               results.callback());
    EXPECT_EQ(
        runtime.calls.wait(1),
        Lines{
            R"js(invokeAdapterWithMetadata("createContentDocumentAndVersion", "{\"title\":\"Site plan\",\"description\":\"North \\\"side\\\"\",\"fileData\":{\"handle\":\"blob-1\",\"name\":\"Site plan\",\"isFileReference\":true,\"size\":1,\"type\":\"application/octet-stream\"}}", {"a":"1"}, callback))js"});
    uploading->createContentVersion(version(), Metadata{}, results.callback());
    EXPECT_TRUE(
        runtime.calls.wait(2)[1].starts_with("invokeAdapterWithMetadata(\"createContentVersion\""));
    runtime.answer(0, "{}");
    runtime.answer(1, "{}");
    results.wait(2);
}

TEST_F(DataServiceContent, FailsAtOnceWithoutABinaryStore) {
    store = nullptr;
    const auto uploading = DataService::create(runtime.value("zem"), nullptr, {}, 180);
    uploading->createContentDocumentAndVersion(document({1}), std::nullopt, results.callback());
    uploading->createContentVersion(version(), Metadata{}, results.callback());
    const std::string unavailable = "data service error - .binaryStoreUnavailable";
    EXPECT_EQ(results.lines(), (Lines{unavailable, unavailable}));
    EXPECT_EQ(runtime.calls.lines(), Lines{});
}

TEST_F(DataServiceContent, RemovesTheFileAgainWhenItCannotBeDescribed) {
    const auto uploading = service();
    auto config = version();
    config.title = "\xFF";
    uploading->createContentVersion(config, std::nullopt, results.callback());
    EXPECT_EQ(results.lines(), Lines{"executeAdapter error - unable to build json config"});
    EXPECT_EQ(store->transcript.lines(), (Lines{"store application/pdf 3", "remove blob-1"}));
    EXPECT_EQ(store->cachedData("blob-1"), std::nullopt);
    EXPECT_EQ(runtime.calls.lines(), Lines{});
}

TEST_F(DataServiceContent, KeepsTheFileOfACallThatFailsInTheRuntime) {
    const auto uploading = service();
    uploading->createContentVersion(version(), std::nullopt, results.callback());
    runtime.calls.wait(1);
    runtime.answer(0, "{ error: 'refused by the server' }");
    EXPECT_EQ(results.wait(1), Lines{"executeAdapter error - refused by the server"});
    EXPECT_EQ(store->transcript.lines(), Lines{"store application/pdf 3"});
    EXPECT_EQ(store->cachedData("blob-1"), (platform::Bytes{1, 2, 3}));
}

TEST(ContentAdapterConfigs, ReadBackWhatIsWritten) {
    const ZEMContentVersionConfig full{"t", "d", "069",
                                       FileData{"h", "n", true, 9007199254740993, "a/b"}};
    const ZEMContentVersionConfig least{"", "", std::nullopt,
                                        FileData{std::nullopt, "", false, -1, ""}};
    const std::string fullText =
        R"({"title":"t","description":"d","contentDocumentId":"069","fileData":)"
        R"({"handle":"h","name":"n","isFileReference":true,"size":9007199254740993,"type":"a/b"}})";
    const std::string leastText = R"({"title":"","description":"","fileData":)"
                                  R"({"name":"","isFileReference":false,"size":-1,"type":""}})";
    for (const auto& [config, text] : {std::pair(full, fullText), std::pair(least, leastText)}) {
        EXPECT_EQ(tessel::toText(tessel::toAny(config)), text);
        EXPECT_EQ(tessel::fromAny<ZEMContentVersionConfig>(tessel::parse(text).value()), config);
    }
}

TEST(ContentAdapterConfigs, NameTheFieldThatIsMissing) {
    const auto failure = [](const char* json) {
        return tessel::fromAny<ZEMContentVersionConfig>(tessel::parse(json).value())
            .error()
            .description();
    };
    EXPECT_EQ(failure(R"({"description":"","fileData":{}})"),
              "title: expected a string, found undefined");
    EXPECT_EQ(failure(R"({"title":"","description":""})"),
              "fileData: expected an object, found undefined");
    EXPECT_EQ(failure(R"({"title":"","description":"","fileData":{"name":"","size":1,"type":""}})"),
              "fileData.isFileReference: expected a boolean, found undefined");
}

TEST_F(DataServiceContent, FailsWithWhatTheBinaryStoreThrows) {
    const auto uploading = service();
    store->failing = [] {
        throw std::runtime_error("the disk is full");
    };
    uploading->createContentDocumentAndVersion(document({1}), std::nullopt, results.callback());
    store->failing = [] {
        throw 5;
    };
    uploading->createContentVersion(version(), Metadata{}, results.callback());
    EXPECT_EQ(results.lines(), (Lines{"executeAdapter error - the disk is full",
                                      "executeAdapter error - the binary store threw something "
                                      "that is no std::exception"}));
    EXPECT_EQ(store->transcript.lines(), Lines{});
    EXPECT_EQ(runtime.calls.lines(), Lines{});
}

TEST_F(DataServiceContent, FailsAloneWhenTheBinaryStoreThrowsDuringTheReplay) {
    const auto batching = BatchingDataService::create();
    batching->createContentVersion(version(), std::nullopt, results.callback("upload"));
    batching->createContentDocumentAndVersion(document({1}), Metadata{}, results.callback("other"));
    batching->invokeAdapter("call", "{}", results.callback("call"));
    const Unsubscribe list = batching->subscribeToAdapter("list", "{}", results.callback("list"));
    batching->setMetadataTTL(1, [&] { results.add("completed"); });
    store->failing = [threw = false]() mutable {
        if (!std::exchange(threw, true)) {
            throw std::runtime_error("the disk is full");
        }
    };
    const auto uploading =
        DataService::create(runtime.value("zem"), store, batching->takeState(), 180);
    EXPECT_EQ(results.lines(),
              (Lines{"completed", "upload: executeAdapter error - the disk is full"}));
    EXPECT_THAT(runtime.calls.wait(4),
                testing::UnorderedElementsAre(
                    "setMetadataTTL(1)",
                    R"js(subscribeToAdapter("list", "{}", callback, undefined))js",
                    R"js(invokeAdapter("call", "{}", callback, undefined))js",
                    testing::StartsWith("invokeAdapterWithMetadata(")));
    for (const char* name : {"call", "createContentDocumentAndVersion", "list"}) {
        runtime.emit(name, "{ data: {} }");
    }
    const Lines heard = results.wait(5);
    EXPECT_EQ(Lines(heard.begin() + 2, heard.end()), (Lines{"call: {}", "other: {}", "list: {}"}));
    list();
    EXPECT_EQ(runtime.calls.wait(5)[4], "unsubscribe(list)");
}

TEST_F(DataServiceContent, SaysWhyItFailedAlsoWhenTheFileCannotBeRemoved) {
    const test::LogCapture log;
    const auto uploading = service();
    auto config = version();
    config.title = "\xFF";
    store->failing = [kept = false]() mutable {
        if (std::exchange(kept, true)) {
            throw std::runtime_error("a secret");
        }
    };
    uploading->createContentVersion(config, std::nullopt, results.callback());
    EXPECT_EQ(results.lines(), Lines{"executeAdapter error - unable to build json config"});
    EXPECT_EQ(store->transcript.lines(), (Lines{"store application/pdf 3", "remove blob-1"}));
    EXPECT_EQ(log.lines(), Lines{"BinaryStore::remove threw: <private>"});
}

} // namespace
