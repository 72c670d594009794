#pragma once

// How an encrypted database file is set up once it is open.

#include <zem/SqliteStore/Private/SQLiteConnection.h>
#include <zem/SqliteStore/SQLiteStore.h>

namespace zem {

/// Gives the key, and the salt where the option has one. The secrets live, in memory that is wiped,
/// only while the action runs. It throws SQLiteSecretError for a secret of the wrong length, and
/// what a provider throws.
SQLiteConnection::SetUpAction encryptionSetUp(SQLiteStore::EncryptionOption option);

/// Sets a keyed file up: the write-ahead log, and pages that leave room for the cipher.
SQLiteConnection::SetUpAction fileSetUp(SQLiteStore::Synchronous synchronous);

} // namespace zem
