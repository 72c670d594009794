#include <zem/SqliteStore/KeyHandler.h>
#include <zem/SqliteStore/Migrations.h>
#include <zem/SqliteStore/Private/CallOut.h>
#include <zem/SqliteStore/Private/LocalizedDescription.h>
#include <zem/SqliteStore/Private/SQLiteConnection.h>
#include <zem/SqliteStore/Private/SQLiteSetUp.h>
#include <zem/SqliteStore/Private/SQLiteStoreLog.h>
#include <zem/SqliteStore/SQLiteStore.h>
#include <zem/SqliteStore/SQLiteStoreNotifier.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <span>

namespace zem {
namespace {

SQLiteConnection::Options encryptedOnly(SQLiteStore::Options options) {
    return {.storage = std::move(options.storage),
            .migrations = MIGRATIONS(),
            .setUpActions = {encryptionSetUp(std::move(options.encryption))}};
}

SQLiteConnection::Options connectionOptions(SQLiteStore::Options options) {
    const SQLiteStore::Synchronous synchronous = options.synchronous;
    SQLiteConnection::Options result = encryptedOnly(std::move(options));
    if (result.storage.isFile()) { // a database in memory has no write-ahead log
        result.setUpActions.push_back(fileSetUp(synchronous));
    }
    return result;
}

void perform(const SQLiteUpsert& upsert, SQLiteConnection& connection) {
    SQLiteStatement statement = connection.prepare(upsert.sqlString());
    for (const std::vector<SQLiteValue>& row : upsert.rows) {
        // A shorter row would be written with the rest of the row before it.
        if (row.size() != upsert.columns.size()) {
            throw SQLiteResult(SQLITE_RANGE);
        }
        statement.execute(row);
    }
}

void perform(const SQLiteDelete& delete_, SQLiteConnection& connection) {
    SQLiteStatement statement = connection.prepare(delete_.sqlString());
    for (const SQLiteValue& id : delete_.ids) {
        statement.execute(std::span(&id, 1));
    }
}

bool fits(const SQLiteUpsert& upsert, const SQLiteConnection& connection) {
    return std::ranges::all_of(upsert.rows, [&](const auto& row) { return connection.fits(row); });
}

bool fits(const SQLiteDelete& delete_, const SQLiteConnection& connection) {
    return connection.fits(delete_.ids);
}

/// Before anything is bound: SQLite would write NULL for a text that is too long.
void requireToFit(const std::vector<SQLiteOperation>& operations,
                  const SQLiteConnection& connection) {
    for (const SQLiteOperation& operation : operations) {
        std::visit(
            [&](const auto& chosen) {
                if (!fits(chosen, connection)) {
                    connection.failTooBig(chosen.sqlString());
                }
            },
            operation.value);
    }
}

void _perform(const std::vector<SQLiteOperation>& operations, SQLiteConnection& connection) {
    requireToFit(operations, connection);
    for (const SQLiteOperation& operation : operations) {
        std::visit([&connection](const auto& chosen) { perform(chosen, connection); },
                   operation.value);
    }
}

// The changes take over what the operations hold: those are written and no longer needed.

SQLiteStoreChange change(SQLiteUpsert upsert) {
    SQLiteStoreChange result{.type = SQLiteOperationType::upsert,
                             .table = std::move(upsert.table),
                             .keys = {},
                             .context = std::move(upsert.context)};
    const auto column = std::find(upsert.columns.begin(), upsert.columns.end(), upsert.keyColumn);
    if (column != upsert.columns.end()) {
        const auto position = static_cast<std::size_t>(column - upsert.columns.begin());
        result.keys.reserve(upsert.rows.size());
        for (std::vector<SQLiteValue>& row : upsert.rows) {
            result.keys.push_back(std::move(row[position]));
        }
    }
    return result;
}

SQLiteStoreChange change(SQLiteDelete delete_) {
    return {.type = SQLiteOperationType::delete_,
            .table = std::move(delete_.table),
            .keys = std::move(delete_.ids),
            .context = std::move(delete_.context)};
}

std::vector<SQLiteStoreChange> changes(std::vector<SQLiteOperation> operations) {
    std::vector<SQLiteStoreChange> result;
    result.reserve(operations.size());
    for (SQLiteOperation& operation : operations) {
        result.push_back(
            std::visit([](auto& chosen) { return change(std::move(chosen)); }, operation.value));
    }
    return result;
}

std::string describe(const SQLiteValue& value) {
    if (const std::string* text = value.string()) {
        return '"' + *text + '"';
    }
    if (const double* number = value.number()) {
        return fmt::format("{}", *number);
    }
    if (const bool* boolean = value.boolean()) {
        return *boolean ? "true" : "false";
    }
    return "null";
}

std::string describe(const std::vector<SQLiteValue>& values) {
    std::string text = "[";
    const char* separator = "";
    for (const SQLiteValue& value : values) {
        text.append(separator).append(describe(value));
        separator = ", ";
    }
    return text + "]";
}

/// Builds the result set of a query and hands it to the caller.
class ResultSetSink final : public SQLiteRowSink {
  public:
    ResultSetSink(std::function<void(SQLiteResultSet)> whenRead,
                  std::function<void(std::string)> whenFailed)
        : onResult(std::move(whenRead))
        , onError(std::move(whenFailed)) {}

    void columns(std::vector<std::string> names) override { reader.columns(std::move(names)); }
    void row(std::span<const SQLiteCell> cells) override { reader.row(cells); }
    void finished() override {
        if (onResult) {
            onResult(std::move(reader.resultSet));
        }
    }
    void failed(const std::string& text) override {
        if (onError) {
            onError(text);
        }
    }

  private:
    SQLiteResultSetReader reader;
    std::function<void(SQLiteResultSet)> onResult;
    std::function<void(std::string)> onError;
};

} // namespace

/// One call of the store on its way: run on the connection queue, heard of on the callback queue.
class SQLiteStore::Work {
  public:
    explicit Work(const char* interval)
        : name(interval)
        , signpost(sqliteStoreLog().makeSignpostID()) {}
    virtual ~Work() = default;
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    virtual void run(SQLiteConnection& connection) = 0;
    /// `failure` is what the caller is told of what `run` threw.
    virtual void deliver(const std::optional<std::string>& failure) = 0;

    const char* const name;
    const platform::SignpostID signpost;
};

class SQLiteStore::Query final : public Work {
  public:
    Query(std::string statement, std::vector<SQLiteValue> parameters,
          std::unique_ptr<SQLiteRowSink> rows)
        : Work("query")
        , sql(std::move(statement))
        , params(std::move(parameters))
        , sink(std::move(rows)) {
        sqliteStoreLog().beginInterval(
            signpost, name, "::query:%{private}s::params:%{private}@",
            {sql, platform::LogArgument::Description([this] { return describe(params); })});
    }

    void run(SQLiteConnection& database) override { database.query(sql, params, *sink); }

    void deliver(const std::optional<std::string>& failure) override {
        if (failure) {
            sink->failed(*failure);
        } else {
            sink->finished();
        }
    }

  private:
    std::string sql;
    std::vector<SQLiteValue> params;
    std::unique_ptr<SQLiteRowSink> sink;
};

class SQLiteStore::Batch final : public Work {
  public:
    Batch(std::vector<SQLiteOperation> list,
          std::function<void(std::optional<std::string>)> completion)
        : Work("batch")
        , operations(std::move(list))
        , onCompletion(std::move(completion)) {
        sqliteStoreLog().beginInterval(signpost, name, "::operationCount:%{public}d",
                                       {operations.size()});
    }

    void run(SQLiteConnection& database) override {
        const platform::CurrentSignpost current(signpost);
        database.withTransaction([this](SQLiteConnection& begun) { _perform(operations, begun); });
        SQLiteStoreNotifier::shared().notifyOfChanges(changes(std::move(operations)));
    }

    void deliver(const std::optional<std::string>& failure) override {
        if (onCompletion) {
            onCompletion(failure);
        }
    }

  private:
    std::vector<SQLiteOperation> operations;
    std::function<void(std::optional<std::string>)> onCompletion;
};

std::shared_ptr<SQLiteStore> SQLiteStore::create(Options options) {
    SQLiteFailureHandler onFailure = std::move(options.onFailure);
    std::shared_ptr<SQLiteStore> store(new SQLiteStore(std::move(options)));
    store->connection->setFailureHandler(std::move(onFailure));
    return store;
}

bool SQLiteStore::removeHalfMade(Options options) {
    return SQLiteConnection::removeHalfMade(encryptedOnly(std::move(options)));
}

SQLiteStore::EncryptionOption
SQLiteStore::EncryptionOption::kept(const std::shared_ptr<KeyStoring>& keyStore) {
    const auto handler = std::make_shared<KeyHandler>(KeyHandler::storeKeyLabel,
                                                      KeyHandler::storeSaltLabel, keyStore);
    return keyAndSalt([handler] { return handler->keptKey(); },
                      [handler] { return handler->keptSalt(); });
}

SQLiteStore::SQLiteStore(Options options)
    : connectionQueue(platform::SerialQueue::create("com.quorvane.zem.SQLiteConnection"))
    , callbackQueue(platform::SerialQueue::create("com.quorvane.zem.SQLiteConnectionCallbacks"))
    , connection(std::make_unique<SQLiteConnection>(connectionOptions(std::move(options)))) {}

SQLiteStore::~SQLiteStore() {
    SQLiteStoreNotifier::shared().unsubscribeListeners(*this);
    connection.reset();
    if (closedCallbacks.empty()) {
        return;
    }
    // Behind the work at hand, which may have let go of the store just now and is answered next,
    // and behind what is dropped of the queue.
    connectionQueue->async(
        [queue = callbackQueue, callbacks = std::move(closedCallbacks)]() mutable {
            queue->async([callbacks = std::move(callbacks)] {
                for (const std::function<void()>& callback : callbacks) {
                    callOut("a callback", callback);
                }
            });
        });
}

void SQLiteStore::whenClosed(std::function<void()> callback) {
    const platform::Lock lock(mutex);
    closedCallbacks.push_back(std::move(callback));
}

void SQLiteStore::query(std::string sql, std::vector<SQLiteValue> params,
                        std::function<void(SQLiteResultSet)> onResult,
                        std::function<void(std::string)> onError) {
    queryRows(std::move(sql), std::move(params),
              std::make_unique<ResultSetSink>(std::move(onResult), std::move(onError)));
}

void SQLiteStore::queryRows(std::string sql, std::vector<SQLiteValue> params,
                            std::unique_ptr<SQLiteRowSink> sink) {
    enqueue(std::make_unique<Query>(std::move(sql), std::move(params), std::move(sink)));
}

void SQLiteStore::batchOperations(std::vector<SQLiteOperation> operations,
                                  std::function<void(std::optional<std::string>)> onCompletion) {
    enqueue(std::make_unique<Batch>(std::move(operations), std::move(onCompletion)));
}

void SQLiteStore::enqueue(std::unique_ptr<Work> work) {
    connectionQueue->async([weak = weak_from_this(), work = std::move(work)]() mutable {
        std::shared_ptr<SQLiteStore> store = weak.lock();
        if (!store) {
            return;
        }
        std::optional<std::string> failure;
        try {
            work->run(*store->connection);
        } catch (...) {
            failure = localizedDescription(std::current_exception());
        }
        if (failure) {
            sqliteStoreLog().endInterval(work->signpost, work->name, "error: %{private}s",
                                         {*failure});
        } else {
            sqliteStoreLog().endInterval(work->signpost, work->name);
        }
        // Let go before the caller hears: one that drops the last reference then may open the file
        // again at once.
        const auto callbackQueue = store->callbackQueue;
        store.reset();
        callbackQueue->async([work = std::move(work), failure = std::move(failure)] {
            callOut("a callback", [&] { work->deliver(failure); });
        });
    });
}

} // namespace zem
