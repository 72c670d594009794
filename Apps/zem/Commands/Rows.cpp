#include "Rows.h"

#include <type_traits>
#include <variant>

namespace zem::host {

namespace {

tessel::Any toAny(const SQLiteValue& cell) {
    return std::visit(
        [](const auto& value) -> tessel::Any {
            if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::string>) {
                return boost::json::string(value);
            } else {
                return value;
            }
        },
        cell.value);
}

tessel::Any toAny(const std::vector<SQLiteValue>& row) {
    boost::json::array cells;
    for (const SQLiteValue& cell : row) {
        cells.push_back(toAny(cell));
    }
    return cells;
}

} // namespace

tessel::Any toAny(const SQLiteResultSet& found) {
    boost::json::array rows;
    for (const auto& row : found.rows) {
        rows.push_back(toAny(row));
    }
    return boost::json::object{{"columns", tessel::toAny(found.columns)},
                               {"rows", std::move(rows)}};
}

std::string describe(const SQLiteResultSet& found, const std::string& label) {
    if (found.columns.empty()) {
        return "done";
    }
    std::string text = tessel::toText(tessel::toAny(found.columns));
    for (const auto& row : found.rows) {
        text += "\n" + label + ": " + tessel::toText(toAny(row));
    }
    return text;
}

} // namespace zem::host
