// The store as a bridge plugin: what JavaScript may call, and how rows reach it.

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
    queryRows(std::move(sql), std::move(params),
              std::make_unique<RuntimeRowSink>(std::move(onResult), std::move(onError)));
}

void SQLiteStore::runtimeBatchOperations(
    std::vector<SQLiteOperation> operations,
    tessel::Callback<std::optional<std::string>> onCompletion) {
    batchOperations(std::move(operations), std::move(onCompletion));
}

std::string SQLiteStore::registerOnChangedListener(
    const tessel::Callback<std::vector<SQLiteStoreChange>>& callback) {
    return SQLiteStoreNotifier::shared().registerListener(weak_from_this(), callback.asListener());
}

void SQLiteStore::unsubscribeOnChangedListener(const std::string& uuid) {
    SQLiteStoreNotifier::shared().unregisterListener(uuid);
}

} // namespace zem
