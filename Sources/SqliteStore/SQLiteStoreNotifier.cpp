#include <zem/Platform/UUID.h>
#include <zem/SqliteStore/Private/CallOut.h>
#include <zem/SqliteStore/SQLiteStore.h>
#include <zem/SqliteStore/SQLiteStoreNotifier.h>

#include <utility>

namespace zem {

SQLiteStoreNotifier& SQLiteStoreNotifier::shared() {
    static auto& notifier = *new SQLiteStoreNotifier;
    return notifier;
}

std::string SQLiteStoreNotifier::registerListener(std::weak_ptr<SQLiteStore> store,
                                                  SQLiteStoreListener::Callback callback) {
    std::string uuid = platform::makeUUID();
    auto listener = std::make_shared<const SQLiteStoreListener>(
        SQLiteStoreListener{std::move(store), uuid, std::move(callback)});
    const platform::Lock lock(mutex);
    listeners.emplace(uuid, std::move(listener));
    return uuid;
}

void SQLiteStoreNotifier::unregisterListener(const std::string& uuid) {
    Listeners::node_type removed; // destroyed after the lock is released
    const platform::Lock lock(mutex);
    removed = listeners.extract(uuid);
}

void SQLiteStoreNotifier::unsubscribeListeners(const SQLiteStore& store) {
    const std::weak_ptr<const SQLiteStore> self = store.weak_from_this();
    // Compared by owner: locking the references could make this the last to hold a store, and its
    // destructor comes back here.
    const auto isOfStore = [&self](const SQLiteStoreListener& listener) {
        return !listener.store.expired() && !listener.store.owner_before(self) &&
               !self.owner_before(listener.store);
    };
    Listeners removed; // destroyed after the lock is released
    const platform::Lock lock(mutex);
    for (auto entry = listeners.begin(); entry != listeners.end();) {
        const auto next = std::next(entry);
        if (isOfStore(*entry->second)) {
            removed.insert(listeners.extract(entry));
        }
        entry = next;
    }
}

void SQLiteStoreNotifier::notifyOfChanges(const std::vector<SQLiteStoreChange>& changes) {
    std::vector<std::shared_ptr<const SQLiteStoreListener>> called;
    {
        const platform::Lock lock(mutex);
        called.reserve(listeners.size());
        for (const auto& [uuid, listener] : listeners) {
            called.push_back(listener);
        }
    }
    for (const auto& listener : called) {
        callOut("a change listener", listener->callback, changes);
    }
}

} // namespace zem
