#pragma once

// One SQLCipher database handle, open from construction to destruction. Not thread-safe: the store
// uses it from one thread at a time.

#include <zem/Platform/Bytes.h>
#include <zem/SqliteStore/Private/SQLiteStatement.h>
#include <zem/SqliteStore/Private/SQLiteStoreLog.h>
#include <zem/SqliteStore/SQLiteConnectionError.h>
#include <zem/SqliteStore/SQLiteFailure.h>
#include <zem/SqliteStore/SQLiteResultSet.h>
#include <zem/SqliteStore/SQLiteStorage.h>

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace zem {

class SQLiteConnection {
  public:
    using ConnectionError = SQLiteConnectionError;

    /// SQL texts by the schema version that they lead to.
    using Migrations = std::map<std::int32_t, std::vector<std::string>>;
    using SetUpAction = std::function<void(SQLiteConnection&)>;

    static constexpr const char* databaseFileName = "zem.db";

    struct Options {
        using Storage = SQLiteStorage;

        Storage storage;
        Migrations migrations;
        std::vector<SetUpAction> setUpActions;   ///< run after opening, before the migrations
        std::string fileName = databaseFileName; ///< in the storage's folder
    };

    /// Opens the database or throws: SQLiteResult, ConnectionError, the file system's error of
    /// creating the folder, or what a set-up action threw. A failure leaves no new empty file
    /// behind. Openings in one folder take turns, across processes.
    ///
    /// When it is open, no power cut takes it back to a version before the one that it has.
    explicit SQLiteConnection(const Options& options);

    /// Removes the database file when it is one that an interrupted first opening left; see
    /// isHalfMade. Returns whether it did: false too for a file that cannot be read or decrypted.
    /// Throws what a set-up action throws, and the file system's error of removing. The set-up
    /// actions give the key, and change nothing.
    static bool removeHalfMade(const Options& options);

    SQLiteConnection(const SQLiteConnection&) = delete;
    SQLiteConnection& operator=(const SQLiteConnection&) = delete;

    void useEncryptionKey(platform::BytesView key);
    /// With the salt given, the file's first 32 bytes stay plain and do not hold it.
    void useEncryptionKey(platform::BytesView key, platform::BytesView salt);
    void enableWriteAheadLogging();
    /// Syncs the write-ahead log with every commit.
    void useFullSynchronous();
    /// Throws SQLITE_CORRUPT when the pages of the file, which has been read, do not keep the space
    /// free that the cipher needs at their end.
    void expectReservedSpace();

    /// Reports failing statements to `handler` from now on. A failing rollback, which only undoes
    /// another failure, is not reported.
    void setFailureHandler(SQLiteFailureHandler handler) { whenFailing = std::move(handler); }

    /// Lowers how many bytes a text may have; for tests.
    void limitTextLength(std::int32_t bytes);

    /// Whether no text is longer than SQLite takes: binding it would bind NULL.
    bool fits(std::span<const SQLiteValue> values) const;
    /// Fails the statement `sql` for a value that does not fit.
    [[noreturn]] void failTooBig(const std::string& sql) const;

    SQLiteStatement prepare(const char* sql) {
        return SQLiteStatement(sql, connection.get(), &whenFailing);
    }
    SQLiteStatement prepare(const std::string& sql) { return prepare(sql.c_str()); }

    SQLiteResultSet query(const std::string& sql, std::span<const SQLiteValue> params);
    /// The same without building a result set.
    void query(const std::string& sql, std::span<const SQLiteValue> params,
               SQLiteRowReader& reader);

    /// Runs `body` with the connection between BEGIN and COMMIT. Whatever fails, the transaction is
    /// rolled back and the first error is thrown; a failure to roll back is ignored.
    template <class Body>
    void withTransaction(Body&& body) {
        try {
            emitSQLiteStoreEvent("transaction begin");
            execute("BEGIN TRANSACTION");
            body(*this);
            emitSQLiteStoreEvent("transaction commit");
            execute("COMMIT TRANSACTION");
            emitSQLiteStoreEvent("transaction committed");
        } catch (...) {
            rollBack();
            throw;
        }
    }

  private:
    struct Close {
        void operator()(sqlite3* handle) const;
    };

    SQLiteConnection() = default;

    void openFile(const std::filesystem::path& file, const Options& options);
    void open(const std::string& name, int flags);
    void ensureLinkedToSQLCipher();
    void setUp(const Options& options);
    int reservedSpace();
    static int reservedByCipher();
    std::int32_t version();
    void checkpoint();
    void execute(const Migrations& migrations);
    void execute(const char* sql);
    void rollBack() noexcept;

    SQLiteFailureHandler whenFailing;
    std::unique_ptr<sqlite3, Close> connection;
};

/// Builds a result set of the rows it is shown.
class SQLiteResultSetReader final : public SQLiteRowReader {
  public:
    void columns(std::vector<std::string> names) override;
    void row(std::span<const SQLiteCell> cells) override;

    SQLiteResultSet resultSet;
};

} // namespace zem
