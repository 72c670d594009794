#pragma once

// Calling code that is not the store's own.

#include <zem/Platform/Mutex.h>
#include <zem/SqliteStore/Private/LocalizedDescription.h>
#include <zem/SqliteStore/Private/SQLiteStoreLog.h>

#include <exception>
#include <utility>

namespace zem {

/// Calls `function`, with no lock held. What it throws is logged, as its type and code, and goes no
/// further: neither other listeners nor the store suffer for it. `what` names who is called.
template <class Function, class... Arguments>
void callOut(const char* what, Function&& function, Arguments&&... arguments) {
    platform::Mutex::assertNoneHeld(what);
    try {
        std::forward<Function>(function)(std::forward<Arguments>(arguments)...);
    } catch (...) {
        sqliteStoreLog().error("%{public}s threw: %{public}s",
                               {what, localizedDescription(std::current_exception())});
    }
}

} // namespace zem
