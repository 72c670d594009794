#include "Table.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

namespace zem::host {

namespace {

/// A cell is one line, and never invisible.
std::string cellOf(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, ' ');
    return text.empty() ? "-" : text;
}

/// In characters, all of them taken to be as wide.
std::size_t widthOf(std::string_view text) {
    return static_cast<std::size_t>(std::ranges::count_if(
        text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

} // namespace

std::string describeTable(std::vector<TableRow> rows) {
    std::vector<std::size_t> widths(rows.front().size());
    for (TableRow& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            row[column] = cellOf(std::move(row[column]));
            widths[column] = std::max(widths[column], widthOf(row[column]));
        }
    }
    std::string text;
    for (const TableRow& row : rows) {
        text += '\n';
        for (std::size_t column = 0; column < row.size(); ++column) {
            text += "  " + row[column];
            if (column + 1 < row.size()) {
                text.append(widths[column] - widthOf(row[column]), ' ');
            }
        }
    }
    return text;
}

} // namespace zem::host
