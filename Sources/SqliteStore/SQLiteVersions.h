#pragma once

// Which database engine this is.

#include <string>

namespace zem {

struct SQLiteVersions {
    /// As SQLCipher states it, with its edition: "4.14.0 community".
    std::string sqlcipher;
    /// That of the SQLite it is built on.
    std::string sqlite;
};

/// Asks the engine that the store is linked with. Throws SQLiteResult or SQLiteConnectionError when
/// it does not work.
SQLiteVersions sqliteVersions();

} // namespace zem
