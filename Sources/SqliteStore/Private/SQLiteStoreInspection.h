#pragma once

#include <zem/SqliteStore/SQLiteStore.h>

namespace zem {

/// What tests reach of a store's inside, while it is idle.
struct SQLiteStoreInspection {
    static SQLiteConnection& connection(SQLiteStore& store) { return *store.connection; }
};

} // namespace zem
