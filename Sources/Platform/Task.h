#pragma once

// The unit of work that every queue, run loop and operation takes.

#include <functional>

namespace zem::platform {

/// Run at most once. A task that lets an exception escape ends the process.
using Task = std::move_only_function<void()>;

} // namespace zem::platform
