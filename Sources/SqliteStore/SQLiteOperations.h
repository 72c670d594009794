#pragma once

// The operations of a batch, and the changes that listeners hear of.

#include <zem/SqliteStore/SQLiteValue.h>

#include <boost/describe.hpp>

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace zem {

enum class SQLiteOperationType { upsert, delete_ };

/// The raw texts, by which the types cross the bridge.
inline constexpr std::array<std::pair<SQLiteOperationType, std::string_view>, 2>
    sqliteOperationTypeTexts{{
        {SQLiteOperationType::upsert, "upsert"},
        {SQLiteOperationType::delete_, "delete"},
    }};

/// Opaque caller data, copied from an operation into its change record.
using SQLiteContext = std::map<std::string, SQLiteValue>;

/// Writes rows; one whose conflict columns meet an existing row changes that row's other columns.
struct SQLiteUpsert {
    std::string table;
    /// The column whose value identifies a row: never updated, and reported as the change key.
    std::string keyColumn;
    std::vector<std::string> conflictColumns;
    std::vector<std::string> columns;
    std::vector<std::vector<SQLiteValue>> rows; ///< each in the order of `columns`
    SQLiteContext context;

    /// The statement that is run once a row. Names are not quoted.
    std::string sqlString() const;

    bool operator==(const SQLiteUpsert&) const = default;
};
BOOST_DESCRIBE_STRUCT(SQLiteUpsert, (), (table, keyColumn, conflictColumns, columns, rows, context))

/// Deletes the rows whose `keyColumn` equals one of `ids`.
struct SQLiteDelete {
    std::string table;
    std::string keyColumn;
    std::vector<SQLiteValue> ids;
    SQLiteContext context;

    /// The statement that is run once an id. Names are not quoted.
    std::string sqlString() const;

    bool operator==(const SQLiteDelete&) const = default;
};
BOOST_DESCRIBE_STRUCT(SQLiteDelete, (), (table, keyColumn, ids, context))

/// One operation of a batch.
struct SQLiteOperation {
    SQLiteOperation(SQLiteUpsert upsert)
        : value(std::move(upsert)) {}
    SQLiteOperation(SQLiteDelete delete_)
        : value(std::move(delete_)) {}

    SQLiteOperationType type() const {
        return std::holds_alternative<SQLiteUpsert>(value) ? SQLiteOperationType::upsert
                                                           : SQLiteOperationType::delete_;
    }

    bool operator==(const SQLiteOperation&) const = default;

    std::variant<SQLiteUpsert, SQLiteDelete> value;
};

/// The effect of one operation of a committed batch. An upsert whose key column is not among its
/// columns is reported without keys.
struct SQLiteStoreChange {
    SQLiteOperationType type = SQLiteOperationType::upsert;
    std::string table;
    std::vector<SQLiteValue> keys;
    SQLiteContext context;

    bool operator==(const SQLiteStoreChange&) const = default;
};
BOOST_DESCRIBE_STRUCT(SQLiteStoreChange, (), (type, table, keys, context))

} // namespace zem
