// The store as a bridge plugin: what JavaScript may call, and how rows reach it.

#include <zem/SqliteStore/Private/CallOut.h>
#include <zem/SqliteStore/Private/RuntimeRowSink.h>
#include <zem/SqliteStore/Private/SQLiteCoding.h>
#include <zem/SqliteStore/SQLiteStore.h>
#include <zem/SqliteStore/SQLiteStoreNotifier.h>
#include <zem/Tessel/Connection.h>

namespace zem {

void SQLiteStore::bind(tessel::Connection& to) {
    to.bind<"query", &SQLiteStore::runtimeQuery>(*this);
    to.bind<"batchOperations", &SQLiteStore::runtimeBatchOperations>(*this);
    to.bind<"registerOnChangedListener", &SQLiteStore::registerOnChangedListener>(*this);
    to.bind<"unsubscribeOnChangedListener", &SQLiteStore::unsubscribeOnChangedListener>(*this);
}

void SQLiteStore::runtimeQuery(std::string sql, std::vector<SQLiteValue> params,
                               tessel::Callback<SQLiteResultSet> onResult,
                               tessel::Callback<std::string> onError) {
    queryRows(
        std::move(sql), std::move(params),
        std::make_unique<RuntimeRowSink>(callbackQueue, std::move(onResult), std::move(onError)));
}

void SQLiteStore::runtimeBatchOperations(
    std::vector<SQLiteOperation> operations,
    tessel::Callback<std::optional<std::string>> onCompletion) {
    batchOperations(std::move(operations), [onCompletion = std::move(onCompletion)](
                                               std::optional<std::string> failure) mutable {
        std::move(onCompletion)(std::move(failure));
    });
}

std::string SQLiteStore::registerOnChangedListener(
    const tessel::Callback<std::vector<SQLiteStoreChange>>& callback) {
    // Not called from the connection queue: that would wait for an engine that is entered inline.
    return SQLiteStoreNotifier::shared().registerListener(
        weak_from_this(), [queue = callbackQueue, listener = callback.asListener()](
                              const std::vector<SQLiteStoreChange>& changes) {
            queue->async([listener, changes = changes]() mutable {
                callOut("a change listener", std::move(listener), std::move(changes));
            });
        });
}

void SQLiteStore::unsubscribeOnChangedListener(const std::string& uuid) {
    SQLiteStoreNotifier::shared().unregisterListener(uuid);
}

} // namespace zem
