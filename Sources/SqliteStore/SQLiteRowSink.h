#pragma once

// Reading rows as they come, without building a result set.

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zem {

/// One cell of the row at hand: TEXT (borrowed, and whole even when it holds NULs), INTEGER or
/// REAL, or NULL.
using SQLiteCell = std::variant<std::string_view, double, std::nullptr_t>;

/// Is shown the rows of a query one after the other while the statement is stepped. What it throws
/// ends the query and is its failure.
class SQLiteRowReader {
  public:
    virtual ~SQLiteRowReader() = default;

    /// Once, before any row: the column names in statement order.
    virtual void columns(std::vector<std::string> names) = 0;

    /// Once a row, in order: a cell for every column. The cells and their text are valid during the
    /// call only.
    virtual void row(std::span<const SQLiteCell> cells) = 0;
};

/// Takes a whole query: the rows on the store's connection queue, then on its callback queue
/// exactly one of `finished` and `failed`, after which it is destroyed. It is destroyed without
/// either when the store was destroyed before the query's turn came.
class SQLiteRowSink : public SQLiteRowReader {
  public:
    virtual void finished() = 0;

    /// `text` is opaque and not empty. Rows may have come before; they count for nothing.
    virtual void failed(const std::string& text) = 0;
};

} // namespace zem
