#pragma once

#include <zem/Platform/Log.h>

namespace zem {

/// The store's log: opened on the first call, once per process, and disabled for good when the
/// trace level is off at that time.
const platform::Log& sqliteStoreLog();

/// An event on that log, carrying the identifier of the interval that the thread is in. Emitted
/// only while the trace level is above off.
void emitSQLiteStoreEvent(std::string_view name);

} // namespace zem
