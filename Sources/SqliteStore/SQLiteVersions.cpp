#include <zem/SqliteStore/Private/SQLiteConnection.h>
#include <zem/SqliteStore/SQLiteVersions.h>

#include <sqlite3.h>

namespace zem {

SQLiteVersions sqliteVersions() {
    SQLiteConnection connection(
        {.storage = SQLiteStorage::memory(), .migrations = {}, .setUpActions = {}});
    const SQLiteResultSet answer = connection.query("PRAGMA cipher_version", {});
    return {.sqlcipher = *answer.rows.at(0).at(0).string(), .sqlite = sqlite3_libversion()};
}

} // namespace zem
