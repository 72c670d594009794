#include <zem/Core/DraftQueueItem.h>

#include <gtest/gtest.h>

#include <Core/Records.h>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using test::expectAllDiffer;
using test::expectCrossesAs;

const DraftQueueItemError wholeError{
    400, {{"content-type", "application/json"}}, false, "Bad Request", "[]"};
const DraftQueueItem wholeItem{"7",
                               "record",
                               DraftActionStatus::error,
                               DraftActionOperationType::delete_,
                               1700000000123,
                               Metadata{{"a", "1"}, {"b", ""}},
                               wholeError};
const DraftQueueItem bareItem{
    "7",          std::nullopt, DraftActionStatus::pending, DraftActionOperationType::create, 3,
    std::nullopt, std::nullopt};

TEST(DraftQueueItem, CrossesWithItsFieldsInOrder) {
    expectCrossesAs(test::makeContext(), wholeItem,
                    R"({"id":"7","targetId":"record","state":"error","operationType":"delete",)"
                    R"("timestamp":1700000000123,"metadata":{"a":"1","b":""},)"
                    R"("error":{"status":400,"headers":{"content-type":"application/json"},)"
                    R"("ok":false,"statusText":"Bad Request","bodyString":"[]"}})");
}

TEST(DraftQueueItem, LeavesOutWhatIsAbsent) {
    expectCrossesAs(test::makeContext(), bareItem,
                    R"({"id":"7","state":"pending","operationType":"create","timestamp":3})");
}

TEST(DraftQueueItem, WritesWhatIsEmptyButNotAbsent) {
    DraftQueueItem item = bareItem;
    item.targetId = "";
    item.metadata = Metadata{};
    expectCrossesAs(
        test::makeContext(), item,
        R"({"id":"7","targetId":"","state":"pending","operationType":"create","timestamp":3,"metadata":{}})");
}

TEST(DraftQueueItem, ReadsNullAndUndefinedAsAbsent) {
    const js::Context context = test::makeContext();
    for (const char* nothing : {"null", "undefined"}) {
        const std::string value = nothing;
        EXPECT_EQ(test::decoded<DraftQueueItem>(
                      context, "({ id: '7', targetId: " + value +
                                   ", state: 'pending', operationType: 'create', timestamp: 3," +
                                   " metadata: " + value + ", error: " + value + " })"),
                  bareItem);
    }
    EXPECT_EQ(tessel::fromAny<DraftQueueItem>(tessel::parse(R"({
                  "id": "7", "targetId": null, "state": "pending", "operationType": "create",
                  "timestamp": 3, "metadata": null, "error": null})")
                                                  .value()),
              bareItem);
}

TEST(DraftQueueItem, CannotBeReadWithAnUnknownStateOrOperationType) {
    const js::Context context = test::makeContext();
    const auto failure = [&](const std::string& fields) {
        const auto outcome =
            test::decoded<DraftQueueItem>(context, "({ id: '7', timestamp: 3, " + fields + " })");
        return outcome ? "it was read" : outcome.error().description();
    };
    EXPECT_EQ(failure("state: 'Pending', operationType: 'create'"),
              R"(state: expected one of "pending", "uploading", "error", "completed", )"
              "found another string");
    EXPECT_EQ(failure("state: 'pending', operationType: 'merge'"),
              R"(operationType: expected one of "create", "update", "delete", "custom", )"
              "found another string");
}

TEST(DraftQueueItem, PassesTheTimestampThrough) {
    const js::Context context = test::makeContext();
    for (const auto& [script, timestamp] : std::vector<std::pair<std::string, std::int64_t>>{
             {"0", 0},
             {"-0", 0},
             {"-1", -1},
             {"1e3", 1000},
             {"Number.MAX_SAFE_INTEGER", 9007199254740991},
             {"-(2 ** 63)", std::numeric_limits<std::int64_t>::min()}}) {
        DraftQueueItem expected = bareItem;
        expected.timestamp = timestamp;
        EXPECT_EQ(
            test::decoded<DraftQueueItem>(
                context, "({ id: '7', state: 'pending', operationType: 'create', timestamp: " +
                             script + " })"),
            expected)
            << script;
    }
    for (const char* script : {"NaN", "Infinity", "-Infinity", "2 ** 63", "0.1"}) {
        const auto outcome = test::decoded<DraftQueueItem>(
            context,
            std::string("({ id: '7', state: 'pending', operationType: 'create', timestamp: ") +
                script + " })");
        ASSERT_FALSE(outcome) << script;
        EXPECT_EQ(outcome.error().description(),
                  "timestamp: expected an integer, found another number")
            << script;
    }
    // JSON has all of the 64 bits, the engine the nearest double.
    DraftQueueItem item = bareItem;
    for (const std::int64_t timestamp :
         {std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
        item.timestamp = timestamp;
        EXPECT_EQ(tessel::fromAny<DraftQueueItem>(tessel::toAny(item)), item);
    }
}

TEST(DraftQueueItem, TakesMetadataUnderAnyName) {
    const js::Context context = test::makeContext();
    DraftQueueItem item = bareItem;
    item.metadata = Metadata{{"", "empty"}, {"__proto__", "own"}, {"a b", "é"}, {"toString", "x"}};
    expectCrossesAs(context, item,
                    R"({"id":"7","state":"pending","operationType":"create","timestamp":3,)"
                    R"("metadata":{"":"empty","__proto__":"own","a b":"é","toString":"x"}})");
}

TEST(DraftQueueItem, IsEqualFieldByField) {
    std::vector<DraftQueueItem> items(8, wholeItem);
    items[1].id = "8";
    items[2].targetId = std::nullopt;
    items[3].state = DraftActionStatus::uploading;
    items[4].operationType = DraftActionOperationType::update;
    items[5].timestamp = 4;
    items[6].metadata->erase("b");
    items[7].error->ok = true;
    expectAllDiffer(items);
}

TEST(DraftQueueItem, HasTheTargetApiNameOfItsMetadata) {
    DraftQueueItem item = bareItem;
    EXPECT_EQ(item.targetApiName(), std::nullopt);
    item.metadata = Metadata{};
    EXPECT_EQ(item.targetApiName(), std::nullopt);
    item.metadata = Metadata{{"zem_action_metadata_api_name", "Account"},
                             {"ZEM_ACTION_METADATA_API_NAM", "Account"},
                             {"ZEM_ACTION_METADATA_API_NAME ", "Account"}};
    EXPECT_EQ(item.targetApiName(), std::nullopt);
    item.metadata = Metadata{{"ZEM_ACTION_METADATA_API_NAME", "Account"}, {"other", "x"}};
    EXPECT_EQ(item.targetApiName(), "Account");
    // Asked of the metadata each time.
    item.metadata->at("ZEM_ACTION_METADATA_API_NAME") = "";
    EXPECT_EQ(item.targetApiName(), "");
    item.metadata->clear();
    EXPECT_EQ(item.targetApiName(), std::nullopt);
}

TEST(DraftQueueItem, DoesNotWriteWhatItDerives) {
    DraftQueueItem item = bareItem;
    item.metadata = Metadata{{"ZEM_ACTION_METADATA_API_NAME", "Account"}};
    expectCrossesAs(test::makeContext(), item,
                    R"({"id":"7","state":"pending","operationType":"create","timestamp":3,)"
                    R"("metadata":{"ZEM_ACTION_METADATA_API_NAME":"Account"}})");
}

TEST(DraftQueueItemError, CrossesWithItsFieldsInOrder) {
    const js::Context context = test::makeContext();
    expectCrossesAs(context, wholeError,
                    R"({"status":400,"headers":{"content-type":"application/json"},)"
                    R"("ok":false,"statusText":"Bad Request","bodyString":"[]"})");
    expectCrossesAs(context, DraftQueueItemError{-1, {}, true, "", std::nullopt},
                    R"({"status":-1,"headers":{},"ok":true,"statusText":""})");
}

TEST(DraftQueueItemError, ReadsNullAndUndefinedAsAbsent) {
    const js::Context context = test::makeContext();
    const DraftQueueItemError expected{500, {}, false, "x", std::nullopt};
    for (const char* nothing : {"null", "undefined"}) {
        EXPECT_EQ(test::decoded<DraftQueueItemError>(
                      context, std::string("({ status: 500, headers: {}, ok: false, "
                                           "statusText: 'x', bodyString: ") +
                                   nothing + " })"),
                  expected);
    }
}

TEST(DraftQueueItemError, IsEqualFieldByField) {
    std::vector<DraftQueueItemError> errors(6, wholeError);
    errors[1].status = 401;
    errors[2].headers.clear();
    errors[3].ok = true;
    errors[4].statusText = "Bad request";
    errors[5].bodyString = std::nullopt;
    expectAllDiffer(errors);
}

/// The JSON text of the body that `bodyString` is parsed to.
std::string body(std::optional<std::string> bodyString) {
    DraftQueueItemError error = wholeError;
    error.bodyString = std::move(bodyString);
    tessel::Any objects = boost::json::array();
    for (const Dictionary& object : error.body()) {
        objects.get_array().push_back(object);
    }
    return tessel::toText(objects);
}

TEST(DraftQueueItemError, HasABodyOfTheObjectsOfAnArray) {
    EXPECT_EQ(body(R"([{"errorCode":"X","fields":["Name",{"a":null}],"n":1,"d":2.5,"t":true}])"),
              R"([{"errorCode":"X","fields":["Name",{"a":null}],"n":1,"d":2.5,"t":true}])");
    EXPECT_EQ(body(R"([{"z":1,"a":2},{},{"é":"\u00e9\n"}])"),
              "[{\"z\":1,\"a\":2},{},{\"é\":\"é\\n\"}]");
    EXPECT_EQ(body(" \t\r\n[ {} ]\n"), "[{}]");
}

TEST(DraftQueueItemError, HasNoBodyOfAnythingElse) {
    EXPECT_EQ(body(std::nullopt), "[]");
    for (const char* text :
         {"", " ", "[]", "{}", R"({"a":[{}]})", "[1,2]", R"(["a"])", "[null]", "[[]]", "[[{}]]",
          "[{},1]", "[1,{}]", "[{},null]", "[{},[]]", "1", "\"x\"", "\"[{}]\"", "null", "true"}) {
        EXPECT_EQ(body(text), "[]") << text;
    }
}

TEST(DraftQueueItemError, HasNoBodyOfWhatIsNoJSON) {
    for (const std::string& text : std::vector<std::string>{
             "not JSON", "[{}", "[{}]]", "[{}] x", "[{},]", "[{a:1}]", "[{'a':1}]", "[{\"a\":}]",
             "[{\"a\":NaN}]", "[{\"a\":01}]", "// x\n[{}]", "[{\"a\":\"\n\"}]", "[{\"a\":\"\\x\"}]",
             "<html></html>", std::string("[{}]\0", 5),
             // Not UTF-8: a byte on its own, half of a pair, a sequence that is cut off.
             "[{\"a\":\"\xff\"}]", "[{\"a\":\"\xed\xa0\x80\"}]", "[{\"a\":\"\xc3\"}]",
             // Deeper than anything that crosses.
             "[{\"a\":" + std::string(600, '[') + std::string(600, ']') + "}]"}) {
        EXPECT_EQ(body(text), "[]") << text;
    }
}

} // namespace
