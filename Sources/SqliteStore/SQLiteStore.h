#pragma once

// The encrypted key/value store in which the JavaScript runtime keeps its cache and its drafts.

#include <zem/Platform/Bytes.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/Queue.h>
#include <zem/SqliteStore/SQLiteFailure.h>
#include <zem/SqliteStore/SQLiteOperations.h>
#include <zem/SqliteStore/SQLiteResultSet.h>
#include <zem/SqliteStore/SQLiteRowSink.h>
#include <zem/SqliteStore/SQLiteStorage.h>
#include <zem/Tessel/Callback.h>
#include <zem/Tessel/Plugin.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace zem {

class KeyStoring;
class SQLiteConnection;

/// Thread-safe. All database work is done on one serial queue in the order of the calls, so a query
/// sees what the batches before it wrote; every result is delivered on another serial queue, in the
/// same order. One store per database file.
///
/// There is no closing: the database is open until the last reference is dropped, which may be done
/// anywhere, from a callback or a listener too; `whenClosed` tells when it is closed. Work that has
/// not begun by then is dropped without any callback. When a caller hears of its work, that work no
/// longer holds the store.
///
/// Callbacks may be empty. What they throw is logged and dropped.
class SQLiteStore final : public tessel::Plugin, public std::enable_shared_from_this<SQLiteStore> {
  public:
    /// Returns the bytes of a secret, or throws.
    using SecretProvider = std::function<platform::SecretBytes()>;

    /// Where the key of the database comes from, and its salt, without which the file keeps a salt
    /// of its own in its first bytes. Providers are called once, during construction.
    struct EncryptionOption {
        struct Key {
            SecretProvider keyProvider;
        };
        struct KeyAndSalt {
            SecretProvider keyProvider;
            SecretProvider saltProvider;
        };
        struct InternalKeyAndSalt {};

        static EncryptionOption key(SecretProvider keyProvider) {
            return {Key{std::move(keyProvider)}};
        }
        /// The salt is 16 bytes.
        static EncryptionOption keyAndSalt(SecretProvider keyProvider,
                                           SecretProvider saltProvider) {
            return {KeyAndSalt{std::move(keyProvider), std::move(saltProvider)}};
        }
        /// A key and a salt that are kept in `keyStore`, made on first use; in the platform's key
        /// store when it is null. Opening fails with SQLiteSecretError when a new one could not be
        /// kept, and with what the key store throws. The choice of most applications.
        static EncryptionOption kept(const std::shared_ptr<KeyStoring>& keyStore = nullptr);
        /// The same with the platform's key store, but a new key or salt that could not be kept is
        /// used for this session: what is written then can never be read again. The log gets an
        /// error.
        static EncryptionOption internalKeyAndSalt() { return {InternalKeyAndSalt{}}; }

        std::variant<Key, KeyAndSalt, InternalKeyAndSalt> value;
    };

    /// When what is written is synced to the disk. `normal`: when the write-ahead log is taken into
    /// the file, now and then. `full`: with every batch, which then takes as long as the disk does.
    enum class Synchronous { normal, full };

    struct Options {
        Options(SQLiteStorage where, EncryptionOption how)
            : storage(std::move(where))
            , encryption(std::move(how)) {}
        /// The database is the file "zem.db" in this folder.
        Options(std::filesystem::path databaseFolder, EncryptionOption how)
            : Options(SQLiteStorage::file(std::move(databaseFolder)), std::move(how)) {}

        SQLiteStorage storage;
        EncryptionOption encryption;
        Synchronous synchronous = Synchronous::normal; ///< of no meaning in memory
        /// Hears SQLite's own words on every statement that fails once the store is open, on the
        /// connection queue, before the caller hears. For a developer's eyes: they may quote
        /// values. Without it they go to the log, marked private.
        SQLiteFailureHandler onFailure = {};
    };

    /// Opens the store and brings its schema up to date before returning. Throws what went wrong:
    /// SQLiteResult, of which SQLiteOpeningError is one with a reason; SQLiteConnectionError,
    /// SQLiteSecretError, the file system's error of creating the folder, or what a provider threw.
    /// A failure leaves no new empty database file behind.
    ///
    /// A new folder has mode 0700 and a new file 0600. Openings in one folder take turns, across
    /// processes: SQLITE_BUSY is thrown when another one does not end within 30 seconds.
    static std::shared_ptr<SQLiteStore> create(Options options);

    /// Removes the database file of a store whose first opening was interrupted by the end of the
    /// process, a full disk or a power cut. `create` throws SQLiteOpeningError::halfMade for such a
    /// file, always. Returns whether there was one. A file that holds a row, is of any version, has
    /// objects of another make, or cannot be decrypted is never removed. No store may have the file
    /// open. Throws what a provider throws, and the file system's error of removing.
    static bool removeHalfMade(Options options);

    ~SQLiteStore() override;
    SQLiteStore(const SQLiteStore&) = delete;
    SQLiteStore& operator=(const SQLiteStore&) = delete;

    /// Runs one statement of any kind, outside any transaction, and reports no changes to
    /// listeners. Calls back exactly once on the callback queue: `onResult` with all rows, or
    /// `onError` with an opaque text that is not empty. `params` are bound in order.
    void query(std::string sql, std::vector<SQLiteValue> params,
               std::function<void(SQLiteResultSet)> onResult,
               std::function<void(std::string)> onError);

    /// The same, handing the rows over one by one while the statement is stepped.
    void queryRows(std::string sql, std::vector<SQLiteValue> params,
                   std::unique_ptr<SQLiteRowSink> sink);

    /// Runs the operations in order in one transaction. When all succeeded the change listeners
    /// hear of one change per operation, on the connection queue, and then `onCompletion` is called
    /// with nothing; else the database is unchanged, no listener hears anything, and `onCompletion`
    /// gets an opaque text that is not empty. It is called exactly once, on the callback queue.
    ///
    /// A batch that was acknowledged, by a completion with nothing, survives the end of the
    /// process, however it ends. A power cut it survives with Synchronous::full only: with the
    /// default, the last batches since the log was synced may be gone then. Those that are left are
    /// whole, and none is gone before one that is left.
    ///
    /// A text longer than SQLite takes, a billion bytes, makes the whole batch fail.
    void batchOperations(std::vector<SQLiteOperation> operations,
                         std::function<void(std::optional<std::string>)> onCompletion);

    /// Calls `callback` once, on the callback queue, after the last reference to the store was
    /// dropped: the work that it was at is done and answered, what waited is dropped, and the file
    /// is closed. Of several, each is called, in the order of the calls.
    void whenClosed(std::function<void()> callback);

    /// The bridge plugin "ZemSqliteStore": the methods "query", "batchOperations",
    /// "registerOnChangedListener" and "unsubscribeOnChangedListener". The first two return at
    /// once; a query's rows become engine values in chunks while later ones are still being read.
    /// The connection queue never waits for JavaScript: everything that JavaScript hears, changes
    /// too, it hears from the callback queue, a batch's changes before its completion.
    std::string_view namespace_() const override { return "ZemSqliteStore"; }
    void bind(tessel::Connection& to) override;

  private:
    void runtimeQuery(std::string sql, std::vector<SQLiteValue> params,
                      tessel::Callback<SQLiteResultSet> onResult,
                      tessel::Callback<std::string> onError);
    void runtimeBatchOperations(std::vector<SQLiteOperation> operations,
                                tessel::Callback<std::optional<std::string>> onCompletion);
    std::string
    registerOnChangedListener(const tessel::Callback<std::vector<SQLiteStoreChange>>& callback);
    void unsubscribeOnChangedListener(const std::string& uuid);

    friend struct SQLiteStoreInspection;

    class Work;
    class Query;
    class Batch;

    explicit SQLiteStore(Options options);
    void enqueue(std::unique_ptr<Work> work);

    // The queues live on in their tasks when the store is gone.
    std::shared_ptr<platform::SerialQueue> connectionQueue;
    std::shared_ptr<platform::SerialQueue> callbackQueue;
    std::unique_ptr<SQLiteConnection> connection; // used on connectionQueue only
    platform::Mutex mutex;
    std::vector<std::function<void()>> closedCallbacks;
};

} // namespace zem
