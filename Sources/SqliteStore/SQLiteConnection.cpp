#include <zem/Platform/URL.h>
#include <zem/SqliteStore/Private/DatabaseFile.h>
#include <zem/SqliteStore/Private/HalfMade.h>
#include <zem/SqliteStore/Private/SQLiteConnection.h>
#include <zem/SqliteStore/SQLiteOpeningError.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

namespace zem {
namespace {

namespace fs = std::filesystem;

constexpr int existing = SQLITE_OPEN_READWRITE | SQLITE_OPEN_URI;
constexpr int existingOrNew = existing | SQLITE_OPEN_CREATE;

/// Absent for a database in memory.
std::optional<fs::path> databaseFolder(const SQLiteStorage& storage) {
    const auto* file = std::get_if<SQLiteStorage::File>(&storage.value);
    return file == nullptr ? std::nullopt : std::optional(file->folder);
}

std::string uriOf(const fs::path& file) {
    return platform::URL::file(file).absoluteString();
}

/// True for the answers that SQLite gives for a file which it cannot decrypt: no database or, where
/// the file's header is plain and the first page fails its check, out of memory.
bool isNotDecrypted(const SQLiteResult& result) {
    return result.rawValue == SQLITE_NOTADB || result.rawValue == SQLITE_NOMEM;
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
    const std::optional<fs::path> folder = databaseFolder(options.storage);
    if (!folder) {
        open(":memory:", existingOrNew);
        setUp(options);
        execute(options.migrations);
        return;
    }
    makePrivateFolder(*folder);
    const OpeningTurn turn(*folder);
    const fs::path file = *folder / options.fileName;
    // The file is there, empty, long before anything is known to be right.
    const bool isNew = makePrivateFile(file) && turn.isAlone();
    try {
        openFile(file, options);
    } catch (...) {
        connection.reset();
        if (isNew) {
            removeIfEmpty(file);
        }
        throw;
    }
}

void SQLiteConnection::openFile(const fs::path& file, const Options& options) {
    open(uriOf(file), existingOrNew);
    try {
        setUp(options);
        version();
    } catch (const SQLiteResult& result) {
        if (isNotDecrypted(result)) {
            throw SQLiteOpeningError(SQLiteOpeningError::notDecrypted, result, file);
        }
        throw;
    }
    try {
        execute(options.migrations);
    } catch (const SQLiteResult& result) {
        if (result.rawValue == SQLITE_ERROR && isHalfMade(*this, options.migrations)) {
            throw SQLiteOpeningError(SQLiteOpeningError::halfMade, result, file);
        }
        throw;
    }
    // Versions that only the unsynced log holds would be gone after a power cut, also those that
    // an opening before this one ran and did not live to sync.
    checkpoint();
}

bool SQLiteConnection::removeHalfMade(const Options& options) {
    const std::optional<fs::path> folder = databaseFolder(options.storage);
    if (!folder || !fs::exists(*folder / options.fileName)) {
        return false;
    }
    const OpeningTurn turn(*folder);
    if (!turn.isAlone()) {
        return false;
    }
    const fs::path file = *folder / options.fileName;
    SQLiteConnection database;
    try {
        database.open(uriOf(file), existing);
        database.setUp(options);
        database.execute("BEGIN EXCLUSIVE"); // so that no row comes while the file goes
        if (!isHalfMade(database, options.migrations)) {
            return false;
        }
    } catch (const SQLiteResult&) {
        return false;
    }
    removeDatabaseFile(file);
    return true;
}

void SQLiteConnection::open(const std::string& name, int flags) {
    sqlite3* handle = nullptr;
    const SQLiteResult result(sqlite3_open_v2(name.c_str(), &handle, flags, nullptr));
    connection.reset(handle); // there is a handle to close even when opening failed
    result.expectOk();
    ensureLinkedToSQLCipher();
}

void SQLiteConnection::setUp(const Options& options) {
    for (const SetUpAction& action : options.setUpActions) {
        action(*this);
    }
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

void SQLiteConnection::useFullSynchronous() {
    execute("PRAGMA synchronous = FULL");
}

void SQLiteConnection::limitTextLength(std::int32_t bytes) {
    sqlite3_limit(connection.get(), SQLITE_LIMIT_LENGTH, bytes);
}

bool SQLiteConnection::fits(std::span<const SQLiteValue> values) const {
    constexpr int unchanged = -1;
    const auto most =
        static_cast<std::size_t>(sqlite3_limit(connection.get(), SQLITE_LIMIT_LENGTH, unchanged));
    return std::ranges::all_of(values, [most](const SQLiteValue& value) {
        const std::string* text = value.string();
        // It is bound up to its first NUL.
        return text == nullptr || text->size() <= most || strnlen(text->c_str(), most + 1) <= most;
    });
}

void SQLiteConnection::failTooBig(const std::string& sql) const {
    reportSQLiteFailure({SQLITE_TOOBIG, sqlite3_errstr(SQLITE_TOOBIG), sql}, &whenFailing);
    throw SQLiteResult(SQLITE_TOOBIG);
}

void SQLiteConnection::expectReservedSpace() {
    // The number of bytes kept free at the end of each page stands in the plain part of the header,
    // which nothing authenticates. With a wrong one SQLite would write over the cipher's own bytes.
    if (reservedSpace() != reservedByCipher()) {
        throw SQLiteResult(SQLITE_CORRUPT);
    }
}

int SQLiteConnection::reservedSpace() {
    // The answer is the larger of the space that is wanted and the space that is kept. The first
    // call sets what is wanted to nothing, the second puts it back and tells what is kept.
    int bytes = 0;
    for (int call = 0; call < 2; ++call) {
        sqlite3_file_control(connection.get(), nullptr, SQLITE_FCNTL_RESERVE_BYTES, &bytes);
    }
    return bytes;
}

int SQLiteConnection::reservedByCipher() {
    static const int bytes = [] {
        SQLiteConnection database({.storage = SQLiteStorage::memory(),
                                   .migrations = {},
                                   .setUpActions = {[](SQLiteConnection& given) {
                                       given.useEncryptionKey(platform::Bytes{1});
                                   }}});
        return database.reservedSpace();
    }();
    return bytes;
}

std::int32_t SQLiteConnection::version() {
    return prepare("PRAGMA user_version").fetch([](SQLiteRow row) {
        return static_cast<std::int32_t>(*row.value(0).number());
    });
}

void SQLiteConnection::checkpoint() {
    execute("PRAGMA wal_checkpoint(PASSIVE)");
}

void SQLiteConnection::execute(const Migrations& migrations) {
    const std::int32_t current = version();
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
    const SQLiteFailureHandler silent = [](const SQLiteFailure&) {
    };
    emitSQLiteStoreEvent("transaction rollback");
    try {
        SQLiteStatement("ROLLBACK TRANSACTION", connection.get(), &silent).execute();
    } catch (const SQLiteResult&) {
        // The caller is to see what went wrong first.
    }
    emitSQLiteStoreEvent("transaction rolled back");
}

void SQLiteConnection::query(const std::string& sql, std::span<const SQLiteValue> params,
                             SQLiteRowReader& reader) {
    SQLiteStatement statement = prepare(sql);
    if (!fits(params)) {
        failTooBig(sql);
    }
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
