#pragma once

// The rows of a query, as the commands print them.

#include <zem/SqliteStore/SQLiteResultSet.h>
#include <zem/Tessel/JSON.h>

#include <string>

namespace zem::host {

/// {"columns":[...],"rows":[[...], ...]}
tessel::Any toAny(const SQLiteResultSet& found);

/// The columns, and then a row a line, each as a JSON array behind the label; "done" for a
/// statement that has no columns.
std::string describe(const SQLiteResultSet& found, const std::string& label);

} // namespace zem::host
