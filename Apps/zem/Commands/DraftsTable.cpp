#include "DraftsTable.h"

#include "Table.h"

#include <fmt/format.h>

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

namespace zem::host {

namespace {

const TableRow heading{"ID", "STATE", "OPERATION", "TARGET", "TYPE", "AGE", "ERROR", "MESSAGE"};

/// The first message of the server, in the words of the body if that has any.
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

TableRow rowOf(const DraftQueueItem& item, std::int64_t now) {
    return {item.id,
            std::string(tessel::rawText(item.state)),
            std::string(tessel::rawText(item.operationType)),
            item.targetId.value_or(""),
            item.targetApiName().value_or(""),
            ageOf(item.timestamp, now),
            item.error ? fmt::format("{}", item.error->status) : "",
            item.error ? firstMessage(*item.error) : ""};
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
    std::vector<TableRow> rows{heading};
    for (const DraftQueueItem& item : state.items) {
        rows.push_back(rowOf(item, now));
    }
    return fmt::format("queue {}, {} {}{}", queue, count, count == 1 ? "item" : "items",
                       describeTable(std::move(rows)));
}

} // namespace zem::host
