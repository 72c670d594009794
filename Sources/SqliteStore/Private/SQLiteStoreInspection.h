#pragma once

#include <zem/SqliteStore/SQLiteStore.h>

namespace zem {

/// Gives tests the connection of a store that is idle.
struct SQLiteStoreInspection {
    static SQLiteConnection& connection(SQLiteStore& store) { return *store.connection; }
};

} // namespace zem
