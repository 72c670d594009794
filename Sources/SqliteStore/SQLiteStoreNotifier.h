#pragma once

// The process's registry of those who want to hear of committed writes.

#include <zem/Platform/Mutex.h>
#include <zem/SqliteStore/SQLiteOperations.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace zem {

class SQLiteStore;

struct SQLiteStoreListener {
    using Callback = std::function<void(const std::vector<SQLiteStoreChange>&)>;

    std::weak_ptr<SQLiteStore> store; ///< which registered it; may be absent
    std::string uuid;
    Callback callback;
};

/// Thread-safe. No lock is held while a callback runs or is destroyed, so a callback may do
/// anything here or to a store: register, unregister itself and others, start a batch, drop the
/// store.
class SQLiteStoreNotifier {
  public:
    /// The one that stores tell. Made on first use, never destroyed.
    static SQLiteStoreNotifier& shared();

    /// Registers a listener under a fresh id, and returns the id. `callback` is called with the
    /// changes of every batch that any store commits, from the next one on, on that store's
    /// connection queue, until it is unregistered. What it throws is logged and dropped.
    std::string registerListener(std::weak_ptr<SQLiteStore> store,
                                 SQLiteStoreListener::Callback callback);

    /// An unknown id is ignored. A notification that is under way on another thread, or that this
    /// is called from, may still reach the listener once.
    void unregisterListener(const std::string& uuid);

    /// Removes the listeners that this very store registered. It finds none once the store is being
    /// destroyed: those of a destroyed store stay, and are notified, until unregistered by their
    /// ids.
    void unsubscribeListeners(const SQLiteStore& store);

    /// Calls every listener with `changes` on the calling thread, in no promised order.
    void notifyOfChanges(const std::vector<SQLiteStoreChange>& changes);

  private:
    using Listeners = std::map<std::string, std::shared_ptr<const SQLiteStoreListener>>;

    platform::Mutex mutex;
    Listeners listeners;
};

} // namespace zem
