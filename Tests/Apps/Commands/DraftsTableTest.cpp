// The draft queue as people read it.

#include <gtest/gtest.h>

#include <Apps/zem/Commands/DraftsTable.h>
#include <cstdint>
#include <limits>

namespace {

using zem::DraftActionOperationType;
using zem::DraftActionStatus;
using zem::DraftManagerState;
using zem::DraftQueueItem;
using zem::DraftQueueItemError;
using zem::DraftQueueState;
using zem::host::ageOf;
using zem::host::describe;

constexpr std::int64_t second = 1000;
constexpr std::int64_t minute = 60 * second;
constexpr std::int64_t hour = 60 * minute;
constexpr std::int64_t day = 24 * hour;
constexpr std::int64_t now = 1'000 * day;

TEST(DraftsTable, AgesAreCountedInTheLargestUnitThatIsFull) {
    struct Case {
        std::int64_t ago;
        const char* age;
    };
    for (const auto& [ago, age] :
         {Case{0, "0 s"}, Case{second - 1, "0 s"}, Case{second, "1 s"}, Case{minute - 1, "59 s"},
          Case{minute, "1 min"}, Case{hour - 1, "59 min"}, Case{hour, "1 h"}, Case{day - 1, "23 h"},
          Case{day, "1 d"}, Case{now, "1000 d"}}) {
        EXPECT_EQ(ageOf(now - ago, now), age) << ago;
    }
}

TEST(DraftsTable, WhatIsNoPassedTimeIsThePlainNumber) {
    EXPECT_EQ(ageOf(-1, now), "-1");
    EXPECT_EQ(ageOf(now + 1, now), "86400000001");
    EXPECT_EQ(ageOf(std::numeric_limits<std::int64_t>::min(), now), "-9223372036854775808");
    EXPECT_EQ(ageOf(std::numeric_limits<std::int64_t>::max(), now), "9223372036854775807");
}

TEST(DraftsTable, AnEmptyQueueHasNoRows) {
    EXPECT_EQ(describe({DraftQueueState::error, {}}, now), "queue error, no items");
}

/// An item whose upload was answered so.
DraftQueueItem failedItem(std::string statusText, std::optional<std::string> body) {
    return {"a",
            std::nullopt,
            DraftActionStatus::error,
            DraftActionOperationType::delete_,
            now,
            std::nullopt,
            DraftQueueItemError{503, {}, false, std::move(statusText), std::move(body)}};
}

TEST(DraftsTable, TheFirstMessageIsTheBodysOrElseTheStatusText) {
    struct Case {
        std::optional<std::string> body;
        const char* message;
    };
    for (const auto& [body, message] :
         {Case{R"([{"message":"first"},{"message":"second"}])", "first"},
          Case{R"([{"other":1},{"message":"second"}])", "Busy"}, Case{R"([{"message":7}])", "Busy"},
          Case{R"({"message":"no array"})", "Busy"}, Case{"[]", "Busy"}, Case{"no JSON", "Busy"},
          Case{std::nullopt, "Busy"}}) {
        EXPECT_EQ(describe({DraftQueueState::waiting, {failedItem("Busy", body)}}, now),
                  std::string("queue waiting, 1 item\n"
                              "  ID  STATE  OPERATION  TARGET  TYPE  AGE  ERROR  MESSAGE\n"
                              "  a   error  delete     -       -     0 s  503    ") +
                      message);
    }
}

TEST(DraftsTable, ColumnsAreAsWideAsTheirWidestCellInCharacters) {
    DraftQueueItem first{"äöü€😀",
                         "001",
                         DraftActionStatus::uploading,
                         DraftActionOperationType::custom,
                         now - 90 * minute,
                         zem::Metadata{{"ZEM_ACTION_METADATA_API_NAME", "Case"}},
                         std::nullopt};
    DraftQueueItem other = failedItem("", std::nullopt);
    other.state = DraftActionStatus::completed;
    EXPECT_EQ(describe({DraftQueueState::started, {first, other}}, now),
              "queue started, 2 items\n"
              "  ID     STATE      OPERATION  TARGET  TYPE  AGE  ERROR  MESSAGE\n"
              "  äöü€😀  uploading  custom     001     Case  1 h  -      -\n"
              "  a      completed  delete     -       -     0 s  503    -");
}

TEST(DraftsTable, ACellIsOneLine) {
    EXPECT_EQ(describe({DraftQueueState::started, {failedItem("a\nb\tc\r\x7f\x1b[m", "")}}, now),
              "queue started, 1 item\n"
              "  ID  STATE  OPERATION  TARGET  TYPE  AGE  ERROR  MESSAGE\n"
              "  a   error  delete     -       -     0 s  503    a b c   [m");
}

} // namespace
