#pragma once

// The result of a query.

#include <zem/SqliteStore/SQLiteValue.h>

#include <boost/describe.hpp>

#include <string>
#include <vector>

namespace zem {

struct SQLiteResultSet {
    std::vector<std::string> columns;           ///< column names in statement order
    std::vector<std::vector<SQLiteValue>> rows; ///< each in column order

    bool operator==(const SQLiteResultSet&) const = default;
};
BOOST_DESCRIBE_STRUCT(SQLiteResultSet, (), (columns, rows))

} // namespace zem
