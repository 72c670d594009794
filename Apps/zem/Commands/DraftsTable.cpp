#include "DraftsTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace zem::host {

namespace {

using Row = std::array<std::string, 8>;

const Row heading{"ID", "STATE", "OPERATION", "TARGET", "TYPE", "AGE", "ERROR", "MESSAGE"};
constexpr const char* absent = "-";

/// What the server said first, in the words of the body where it has any.
std::string firstMessage(const DraftQueueItemError& error) {
    const std::vector<Dictionary> body = error.body();
    if (!body.empty()) {
        const auto* message = body.front().if_contains("message");
        if (message != nullptr && message->is_string()) {
            return std::string(message->get_string());
        }
    }
    return error.statusText;
}

/// A cell is one line, and shows that there is something.
std::string cellOf(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, ' ');
    return text.empty() ? absent : text;
}

Row rowOf(const DraftQueueItem& item, std::int64_t now) {
    Row row{item.id,
            std::string(tessel::rawText(item.state)),
            std::string(tessel::rawText(item.operationType)),
            item.targetId.value_or(""),
            item.targetApiName().value_or(""),
            ageOf(item.timestamp, now),
            item.error ? fmt::format("{}", item.error->status) : "",
            item.error ? firstMessage(*item.error) : ""};
    std::ranges::transform(row, row.begin(), cellOf);
    return row;
}

/// In characters, all of them taken to be as wide.
std::size_t widthOf(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::count_if(
        text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

} // namespace

std::string ageOf(std::int64_t timestamp, std::int64_t now) {
    if (timestamp < 0 || timestamp > now) {
        return fmt::format("{}", timestamp);
    }
    const std::int64_t seconds = (now - timestamp) / 1000;
    if (seconds < 60) {
        return fmt::format("{} s", seconds);
    }
    const std::int64_t minutes = seconds / 60;
    if (minutes < 60) {
        return fmt::format("{} min", minutes);
    }
    const std::int64_t hours = minutes / 60;
    return hours < 24 ? fmt::format("{} h", hours) : fmt::format("{} d", hours / 24);
}

std::string describe(const DraftManagerState& state, std::int64_t now) {
    const std::size_t count = state.items.size();
    const std::string_view queue = tessel::rawText(state.queueState);
    if (count == 0) {
        return fmt::format("queue {}, no items", queue);
    }
    std::string text = fmt::format("queue {}, {} {}", queue, count, count == 1 ? "item" : "items");
    std::vector<Row> rows{heading};
    for (const DraftQueueItem& item : state.items) {
        rows.push_back(rowOf(item, now));
    }
    std::array<std::size_t, std::tuple_size_v<Row>> widths{};
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], widthOf(row[column]));
        }
    }
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            line += "  " + row[column];
            if (column + 1 < row.size()) {
                line.append(widths[column] - widthOf(row[column]), ' ');
            }
        }
        text += "\n" + line;
    }
    return text;
}

} // namespace zem::host
