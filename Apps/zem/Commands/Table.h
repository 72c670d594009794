#pragma once

// Rows of text in columns.

#include <string>
#include <vector>

namespace zem::host {

using TableRow = std::vector<std::string>;

/// A line for each row, each behind a line feed and two spaces, its cells in columns. All rows have
/// as many cells as the first, the heading. An empty cell is "-"; a control character is a space.
std::string describeTable(std::vector<TableRow> rows);

} // namespace zem::host
