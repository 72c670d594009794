#pragma once

// Entering the engine where there may be nobody left to enter it for.

#include <zem/Core/Private/CallOut.h>
#include <zem/JavaScript/Context.h>

#include <stdexcept>
#include <utility>

namespace zem {

/// Performs `work`, or logs that it was not when the context's thread has ended.
template <class Work>
void enterRuntime(const js::Context& context, Work&& work) {
    try {
        context.perform(std::forward<Work>(work));
    } catch (const std::runtime_error& error) {
        coreLog().error("the runtime was not called: %{public}s", {error.what()});
    }
}

} // namespace zem
