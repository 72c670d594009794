#include <zem/Core/DraftManagerState.h>

#include <gtest/gtest.h>

#include <Core/Records.h>
#include <optional>
#include <string>
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
