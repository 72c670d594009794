#pragma once

// The run's store: where it is, and where its key comes from.

#include "Process/Options.h"
#include <zem/SqliteStore/SQLiteStore.h>

#include <future>
#include <memory>

namespace zem::host {

/// Opens the store that the options name; `onFailure` hears of the statements that fail then.
/// Throws a Failure that says which file cannot be opened, and why.
std::shared_ptr<SQLiteStore> openStore(const Options& options, SQLiteFailureHandler onFailure);

/// Drops a reference, which is the last but for scripts that are in a call. The future is ready
/// when the database is closed: after the work that it is at; what waits in its queue is dropped.
std::future<void> closeStore(std::shared_ptr<SQLiteStore> store);

} // namespace zem::host
