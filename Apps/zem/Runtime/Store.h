#pragma once

// The run's store, its binaries, and their key.

#include "Process/Options.h"
#include <zem/Adapters/EncryptedBinaryStore.h>
#include <zem/Adapters/Fetcher.h>
#include <zem/SqliteStore/SQLiteStore.h>

#include <future>
#include <memory>

namespace zem::host {

/// Opens the store that the options name. `onFailure` is called for each failed statement. Throws a
/// Failure with the file and the reason if it cannot be opened.
std::shared_ptr<SQLiteStore> openStore(const Options& options, SQLiteFailureHandler onFailure);

/// Opens the binaries beside the store, under the same key. Throws like `openStore`.
std::shared_ptr<EncryptedBinaryStore> openBinaryStore(const Options& options,
                                                      std::shared_ptr<Fetcher> fetcher);

/// Drops the host's reference; only a script in a call may have another. The future is ready when
/// the database is closed: after the running task, the waiting ones are dropped.
std::future<void> closeStore(std::shared_ptr<SQLiteStore> store);

} // namespace zem::host
