#pragma once

#include <zem/SqliteStore/Private/SQLiteConnection.h>

namespace zem {

/// Whether the database is one that an interrupted first opening left: at version 0, with at least
/// one object, none but those that the first version makes, and no row in any table. Each statement
/// of a version commits by itself and fails when it is run again, so that such a file never opens.
bool isHalfMade(SQLiteConnection& database, const SQLiteConnection::Migrations& migrations);

} // namespace zem
