#pragma once

// Calling the callbacks that the application gave.

#include <zem/Platform/Log.h>
#include <zem/Platform/Mutex.h>

#include <exception>
#include <string>
#include <utility>

namespace zem {

/// The log of what calls back to the application.
const platform::Log& coreLog();

/// Calls `function`, if there is one, also where a lock has to be held meanwhile. What it throws is
/// logged and goes no further: other callers do not suffer for it. `what` names who is called.
template <class Function, class... Arguments>
void callLogged(const char* what, const Function& function, Arguments&&... arguments) {
    if (!function) {
        return;
    }
    try {
        function(std::forward<Arguments>(arguments)...);
    } catch (const std::exception& error) {
        coreLog().error("%{public}s threw: %{private}s", {what, error.what()});
    } catch (...) {
        coreLog().error("%{public}s threw something that is no std::exception", {what});
    }
}

/// The same with no lock held.
template <class Function, class... Arguments>
void callOut(const char* what, const Function& function, Arguments&&... arguments) {
    platform::Mutex::assertNoneHeld(what);
    callLogged(what, function, std::forward<Arguments>(arguments)...);
}

} // namespace zem
