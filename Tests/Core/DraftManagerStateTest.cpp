#include <zem/Core/DraftManagerState.h>

#include <gtest/gtest.h>

#include <Core/Records.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using test::expectAllDiffer;
using test::expectCrossesAs;

DraftQueueItem item(std::string id) {
    return {std::move(id),
            std::nullopt,
            DraftActionStatus::pending,
            DraftActionOperationType::custom,
            0,
            std::nullopt,
            std::nullopt};
}

std::string text(const std::string& id) {
    return R"({"id":")" + id + R"(","state":"pending","operationType":"custom","timestamp":0})";
}

TEST(DraftManagerState, CrossesWithItsFieldsAndItemsInOrder) {
    const js::Context context = test::makeContext();
    expectCrossesAs(context, DraftManagerState{DraftQueueState::stopped, {}},
                    R"({"queueState":"stopped","items":[]})");
    expectCrossesAs(
        context,
        DraftManagerState{DraftQueueState::waiting, {item("2"), item("10"), item("1"), item("2")}},
        R"({"queueState":"waiting","items":[)" + text("2") + "," + text("10") + "," + text("1") +
            "," + text("2") + "]}");
}

TEST(DraftManagerState, CannotBeReadWithOneItemThatCannot) {
    const auto outcome = test::decoded<DraftManagerState>(
        test::makeContext(), "({ queueState: 'started', items: [" + text("1") + "," + text("2") +
                                 ", { ...(" + text("3") + "), state: 'PENDING' }] })");
    ASSERT_FALSE(outcome);
    EXPECT_EQ(outcome.error(),
              (tessel::DecodingError{".items[2].state",
                                     R"(expected one of "pending", "uploading", "error", )"
                                     R"("completed", found another string)"}));
    EXPECT_EQ(outcome.error().description(),
              R"(items[2].state: expected one of "pending", "uploading", "error", "completed", )"
              "found another string");
}

// Large enough that the engine hands it over as one text where it can.
TEST(DraftManagerState, OfManyItemsIsReadAsOneOfFew) {
    const js::Context context = test::makeContext();
    test::evaluate(context, R"js(
        var many = (change) => {
            const items = Array.from({ length: 2000 }, (_, index) => ({
                id: `${index}`, targetId: null, state: "error", operationType: "update",
                timestamp: index, metadata: { a: "é" },
                error: { status: 400, headers: { b: "c" }, ok: false, statusText: "d" },
            }));
            change(items[1999]);
            return { queueState: "error", items };
        };
    )js");
    DraftManagerState expected{DraftQueueState::error, {}};
    for (int index = 0; index < 2000; ++index) {
        expected.items.push_back(
            {std::to_string(index), std::nullopt, DraftActionStatus::error,
             DraftActionOperationType::update, index, Metadata{{"a", "é"}},
             DraftQueueItemError{400, {{"b", "c"}}, false, "d", std::nullopt}});
    }
    EXPECT_EQ(test::decoded<DraftManagerState>(context, "many(() => {})"), expected);
    for (const auto& [change, reason] : std::vector<std::pair<std::string, std::string>>{
             {"delete item.id", "id: expected a string, found undefined"},
             {"item.id = undefined", "id: expected a string, found undefined"},
             {"item.id = () => {}", "id: expected a string, found a function"},
             {"item.targetId = 5", "targetId: expected a string, found a number"},
             {"item.timestamp = 0.5", "timestamp: expected an integer, found another number"},
             {"item.timestamp = NaN", "timestamp: expected an integer, found another number"},
             {"item.metadata.a = null", "metadata.a: expected a string, found null"},
             {"item.error.ok = 1", "error.ok: expected a boolean, found a number"},
             {"item.error.headers = []", "error.headers: expected an object, found an array"},
             {"Object.defineProperty(item, 'id', { get() { throw 'private'; } })",
              "id: reading it threw an exception"}}) {
        const auto outcome =
            test::decoded<DraftManagerState>(context, "many((item) => " + change + ")");
        ASSERT_FALSE(outcome) << change;
        EXPECT_EQ(outcome.error().description(), "items[1999]." + reason) << change;
    }
}

TEST(DraftManagerState, IsEqualFieldByField) {
    expectAllDiffer<DraftManagerState>({
        {DraftQueueState::started, {item("1"), item("2")}},
        {DraftQueueState::error, {item("1"), item("2")}},
        {DraftQueueState::started, {item("2"), item("1")}},
        {DraftQueueState::started, {item("1")}},
        {DraftQueueState::started, {}},
    });
}

} // namespace
