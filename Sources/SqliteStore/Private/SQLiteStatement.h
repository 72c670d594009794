#pragma once

// A prepared statement: binding, stepping and reading rows.

#include <zem/Platform/Bytes.h>
#include <zem/SqliteStore/SQLiteFailure.h>
#include <zem/SqliteStore/SQLiteResult.h>
#include <zem/SqliteStore/SQLiteRowSink.h>
#include <zem/SqliteStore/SQLiteValue.h>

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace zem {

/// The row that a statement stands on. It does not own the handle and is valid until the next step.
class SQLiteRow {
  public:
    explicit SQLiteRow(sqlite3_stmt* handle)
        : statement(handle) {}

    /// A column without copying its text. A BLOB ends the process: the store never keeps one.
    SQLiteCell cell(int column) const;

    /// The bytes of a BLOB, without copying them.
    platform::BytesView blob(int column) const;

    /// A column as a value of its own.
    SQLiteValue value(int column) const;

  private:
    sqlite3_stmt* statement;
};

/// Tells `handler` what SQLite says of a failure. Where there is none it goes to the log, its texts
/// marked private.
void reportSQLiteFailure(const SQLiteFailure& failure, const SQLiteFailureHandler* handler);

/// Every failure of SQLite is reported before it is thrown.
class SQLiteStatement {
  public:
    /// Prepares `sql` up to its terminator; throws SQLiteResult when that fails. `whenFailing`
    /// hears of failures and outlives the statement.
    SQLiteStatement(const char* sql, sqlite3* connection,
                    const SQLiteFailureHandler* whenFailing = nullptr);
    ~SQLiteStatement();
    SQLiteStatement(const SQLiteStatement&) = delete;
    SQLiteStatement& operator=(const SQLiteStatement&) = delete;

    /// Binds each parameter at its index + 1. Text is bound up to its first NUL. The results of the
    /// single bindings are not looked at: one too many is ignored, one too few reads as NULL.
    void bind(std::span<const SQLiteValue> params);

    std::int32_t columnCount() const;
    std::vector<std::string> columnNames() const;

    /// Steps to the end, dropping rows; throws any last result but SQLITE_DONE.
    void execute();

    /// Runs the statement anew with `params`. Bindings of the run before are overwritten, not
    /// cleared, so every run gives as many.
    void execute(std::span<const SQLiteValue> params);

    /// The same with one more parameter behind `params`: a BLOB, whose bytes are not copied. Throws
    /// SQLITE_TOOBIG, and runs nothing, when it is longer than SQLite takes.
    void execute(std::span<const SQLiteValue> params, platform::BytesView blob);

    /// Steps once and returns what `reader` makes of the row; throws the result when there is none.
    template <class Reader>
    auto fetch(Reader&& reader) {
        if (const std::int32_t result = step(); result != SQLITE_ROW) {
            fail(result);
        }
        return reader(SQLiteRow(statement));
    }

    /// Steps to the end and calls `reader` with each row; throws any last result but SQLITE_DONE.
    template <class Reader>
    void forEachRow(Reader&& reader) {
        std::int32_t result = step();
        for (; result == SQLITE_ROW; result = step()) {
            reader(SQLiteRow(statement));
        }
        if (result != SQLITE_DONE) {
            fail(result);
        }
    }

    /// The results of `reader` for every row. Rows read before a failure are dropped.
    template <class Reader>
    auto fetchAll(Reader&& reader) {
        std::vector<std::invoke_result_t<Reader&, SQLiteRow>> rows;
        forEachRow([&](SQLiteRow row) { rows.push_back(reader(row)); });
        return rows;
    }

    /// The position in SQL, which counts from 1 in 32 bits, of the parameter at `index`.
    static std::int32_t position(std::size_t index);

  private:
    std::int32_t step();
    [[noreturn]] void fail(std::int32_t result) const;

    const SQLiteFailureHandler* whenFailing;
    sqlite3_stmt* statement = nullptr;
};

} // namespace zem
