#include <zem/Platform/URL.h>
#include <zem/SqliteStore/Private/SQLiteConnection.h>

#include <cstring>
#include <filesystem>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

namespace zem {
namespace {

namespace fs = std::filesystem;

/// The path of the database file, its folder created; nothing for a database in memory.
std::optional<fs::path> databaseFile(const SQLiteStorage& storage) {
    const auto* file = std::get_if<SQLiteStorage::File>(&storage.value);
    if (file == nullptr) {
        return std::nullopt;
    }
    fs::create_directories(file->folder);
    return file->folder / "zem.db";
}

bool isMissing(const fs::path& file) {
    std::error_code error;
    return fs::symlink_status(file, error).type() == fs::file_type::not_found;
}

void removeIfEmpty(const fs::path& file) {
    std::error_code error;
    if (fs::file_size(file, error) == 0 && !error) {
        fs::remove(file, error);
    }
}

/// The statement that sets the salt, with its terminator, in memory that is wiped.
platform::SecretBytes saltPragma(platform::BytesView salt) {
    constexpr std::string_view before = "PRAGMA cipher_salt = \"x'";
    constexpr std::string_view after = "'\"";
    constexpr char digits[] = "0123456789abcdef";

    auto sql = platform::SecretBytes::ofLength(before.size() + 2 * salt.size() + after.size() + 1);
    std::uint8_t* end = sql.data();
    const auto append = [&end](std::string_view text) {
        std::memcpy(end, text.data(), text.size());
        end += text.size();
    };
    append(before);
    for (const std::uint8_t byte : salt) {
        *end++ = static_cast<std::uint8_t>(digits[byte >> 4]);
        *end++ = static_cast<std::uint8_t>(digits[byte & 0xF]);
    }
    append(after);
    return sql;
}

} // namespace

void SQLiteConnection::Close::operator()(sqlite3* handle) const {
    sqlite3_close_v2(handle);
}

SQLiteConnection::SQLiteConnection(const Options& options) {
    const std::optional<fs::path> file = databaseFile(options.storage);
    // Opening creates the file at once, empty, long before anything is known to be right.
    const bool isNew = file.has_value() && isMissing(*file);
    try {
        open(file ? platform::URL::file(*file).absoluteString() : ":memory:", options);
    } catch (...) {
        connection.reset();
        if (isNew) {
            removeIfEmpty(*file);
        }
        throw;
    }
}

void SQLiteConnection::open(const std::string& name, const Options& options) {
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_URI;
    sqlite3* handle = nullptr;
    const SQLiteResult result(sqlite3_open_v2(name.c_str(), &handle, flags, nullptr));
    connection.reset(handle); // there is a handle to close even when opening failed
    result.expectOk();

    ensureLinkedToSQLCipher();
    for (const SetUpAction& setUp : options.setUpActions) {
        setUp(*this);
    }
    execute(options.migrations);
}

void SQLiteConnection::ensureLinkedToSQLCipher() {
    try {
        prepare("PRAGMA cipher_version").fetch([](SQLiteRow row) { return row.value(0); });
    } catch (const SQLiteResult&) {
        throw ConnectionError(ConnectionError::sqlcipherLinkError);
    }
}

void SQLiteConnection::useEncryptionKey(platform::BytesView key) {
    if (key.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        throw SQLiteResult(SQLITE_TOOBIG);
    }
    SQLiteResult(sqlite3_key(connection.get(), key.data(), static_cast<int>(key.size())))
        .expectOk();
}

void SQLiteConnection::useEncryptionKey(platform::BytesView key, platform::BytesView salt) {
    useEncryptionKey(key);
    execute("PRAGMA cipher_plaintext_header_size = 32");
    const platform::SecretBytes sql = saltPragma(salt);
    execute(reinterpret_cast<const char*>(sql.data()));
}

void SQLiteConnection::enableWriteAheadLogging() {
    const SQLiteValue mode =
        prepare("PRAGMA journal_mode = WAL").fetch([](SQLiteRow row) { return row.value(0); });
    if (mode != SQLiteValue("wal")) {
        throw ConnectionError(ConnectionError::walJournalModeError);
    }
    execute("PRAGMA synchronous = NORMAL");
}

void SQLiteConnection::execute(const Migrations& migrations) {
    const auto current = prepare("PRAGMA user_version").fetch([](SQLiteRow row) {
        return static_cast<std::int32_t>(*row.value(0).number());
    });
    // No transaction spans a version: each statement stands by itself, and the version is recorded
    // after the last, so that an interrupted version is run again as a whole.
    for (auto version = migrations.upper_bound(current); version != migrations.end(); ++version) {
        for (const std::string& sql : version->second) {
            execute(sql.c_str());
        }
        execute(("PRAGMA user_version = " + std::to_string(version->first)).c_str());
    }
}

void SQLiteConnection::execute(const char* sql) {
    prepare(sql).execute();
}

void SQLiteConnection::rollBack() noexcept {
    emitSQLiteStoreEvent("transaction rollback");
    try {
        execute("ROLLBACK TRANSACTION");
    } catch (const SQLiteResult&) {
        // The caller is to see what went wrong first.
    }
    emitSQLiteStoreEvent("transaction rolled back");
}

void SQLiteConnection::query(const std::string& sql, std::span<const SQLiteValue> params,
                             SQLiteRowReader& reader) {
    SQLiteStatement statement = prepare(sql);
    statement.bind(params);
    reader.columns(statement.columnNames());

    std::vector<SQLiteCell> cells(static_cast<std::size_t>(statement.columnCount()));
    statement.forEachRow([&](SQLiteRow row) {
        for (std::size_t column = 0; column < cells.size(); ++column) {
            cells[column] = row.cell(static_cast<int>(column));
        }
        reader.row(cells);
    });
}

SQLiteResultSet SQLiteConnection::query(const std::string& sql,
                                        std::span<const SQLiteValue> params) {
    SQLiteResultSetReader reader;
    query(sql, params, reader);
    return std::move(reader.resultSet);
}

void SQLiteResultSetReader::columns(std::vector<std::string> names) {
    resultSet.columns = std::move(names);
}

void SQLiteResultSetReader::row(std::span<const SQLiteCell> cells) {
    std::vector<SQLiteValue>& values = resultSet.rows.emplace_back();
    values.reserve(cells.size());
    for (const SQLiteCell& cell : cells) {
        std::visit([&values](auto payload) { values.emplace_back(payload); }, cell);
    }
}

} // namespace zem
