#include <zem/SqliteStore/Private/CallOut.h>
#include <zem/SqliteStore/Private/FatalError.h>
#include <zem/SqliteStore/Private/SQLiteStatement.h>
#include <zem/SqliteStore/Private/SQLiteStoreLog.h>

#include <limits>

namespace zem {

SQLiteCell SQLiteRow::cell(int column) const {
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
    case SQLITE_FLOAT:
        return sqlite3_column_double(statement, column);
    case SQLITE_NULL:
        return nullptr;
    case SQLITE_TEXT: {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
        if (text == nullptr) {
            throw SQLiteResult(SQLITE_NOMEM);
        }
        // Asked for after the text: fetching that may convert it.
        const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
        return std::string_view(text, length);
    }
    default:
        fatalError("a column holds a BLOB, which the store never keeps");
    }
}

platform::BytesView SQLiteRow::blob(int column) const {
    const void* bytes = sqlite3_column_blob(statement, column);
    const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
    return {static_cast<const std::uint8_t*>(bytes), length};
}

SQLiteValue SQLiteRow::value(int column) const {
    return std::visit([](auto payload) { return SQLiteValue(payload); }, cell(column));
}

void reportSQLiteFailure(const SQLiteFailure& failure, const SQLiteFailureHandler* handler) {
    if (handler != nullptr && *handler) {
        callOut("a failure handler", *handler, failure);
        return;
    }
    sqliteStoreLog().error("SQLite answered %{public}d: %{private}s, to: %{private}s",
                           {failure.code, failure.message, failure.sql});
}

SQLiteStatement::SQLiteStatement(const char* sql, sqlite3* connection,
                                 const SQLiteFailureHandler* whenFailing)
    : whenFailing(whenFailing) {
    const SQLiteResult result(sqlite3_prepare_v3(connection, sql, -1, 0, &statement, nullptr));
    if (result.rawValue != SQLITE_OK) {
        reportSQLiteFailure({result.rawValue, sqlite3_errmsg(connection), sql}, whenFailing);
        throw result;
    }
}

void SQLiteStatement::fail(std::int32_t result) const {
    if (result != SQLITE_DONE) { // no row is no failure of SQLite
        const char* sql = sqlite3_sql(statement);
        reportSQLiteFailure(
            {result, sqlite3_errmsg(sqlite3_db_handle(statement)), sql == nullptr ? "" : sql},
            whenFailing);
    }
    throw SQLiteResult(result);
}

SQLiteStatement::~SQLiteStatement() {
    sqlite3_finalize(statement);
}

std::int32_t SQLiteStatement::position(std::size_t index) {
    if (index >= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
        fatalError("a parameter's position does not fit 32 bits");
    }
    return static_cast<std::int32_t>(index + 1);
}

void SQLiteStatement::bind(std::span<const SQLiteValue> params) {
    for (std::size_t index = 0; index < params.size(); ++index) {
        const int at = position(index);
        const SQLiteValue& value = params[index];
        if (const std::string* text = value.string()) {
            sqlite3_bind_text(statement, at, text->c_str(), -1, SQLITE_TRANSIENT);
        } else if (const double* number = value.number()) {
            sqlite3_bind_double(statement, at, *number);
        } else if (const bool* boolean = value.boolean()) {
            sqlite3_bind_int(statement, at, *boolean ? 1 : 0);
        } else {
            sqlite3_bind_null(statement, at);
        }
    }
}

std::int32_t SQLiteStatement::columnCount() const {
    return sqlite3_column_count(statement);
}

std::vector<std::string> SQLiteStatement::columnNames() const {
    const std::int32_t count = columnCount();
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(count));
    for (std::int32_t column = 0; column < count; ++column) {
        const char* name = sqlite3_column_name(statement, column);
        if (name == nullptr) {
            throw SQLiteResult(SQLITE_NOMEM);
        }
        names.emplace_back(name);
    }
    return names;
}

std::int32_t SQLiteStatement::step() {
    return sqlite3_step(statement);
}

void SQLiteStatement::execute() {
    forEachRow([](SQLiteRow) {});
}

void SQLiteStatement::execute(std::span<const SQLiteValue> params) {
    sqlite3_reset(statement);
    bind(params);
    execute();
}

void SQLiteStatement::execute(std::span<const SQLiteValue> params, platform::BytesView blob) {
    sqlite3_reset(statement);
    bind(params);
    // No bytes have no address, and an address of nothing would bind NULL.
    const void* bytes = blob.empty() ? "" : static_cast<const void*>(blob.data());
    if (const std::int32_t result = sqlite3_bind_blob64(statement, position(params.size()), bytes,
                                                        blob.size(), SQLITE_STATIC);
        result != SQLITE_OK) {
        fail(result);
    }
    execute();
}

} // namespace zem
