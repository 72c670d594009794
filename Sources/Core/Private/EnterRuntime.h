#pragma once

// Entering the engine where there may be nobody left to enter it for.

#include <zem/Core/Private/CallOut.h>
#include <zem/JavaScript/Context.h>

#include <stdexcept>
#include <utility>

namespace zem {

/// Performs `work`; false, and a line in the log, when the context's thread has ended.
template <class Work>
bool enterRuntime(const js::Context& context, Work&& work) {
    try {
        context.perform(std::forward<Work>(work));
        return true;
    } catch (const std::runtime_error& error) {
        coreLog().error("the runtime was not called: %{public}s", {error.what()});
        return false;
    }
}

} // namespace zem
