#pragma once

// Work for another thread's run loop that the caller waits for.

#include <zem/JavaScript/Private/Door.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Platform/Task.h>

namespace zem::js {

/// Runs `work` on the run loop's thread and returns when it has run; at once when that is the
/// calling thread. No lock may be held. Throws what `work` throws, and ThreadEnded when the thread
/// ends without running it. Watches the native functions behind `door`, where one is given.
void runAndWait(platform::RunLoop& home, platform::Task work, Door* door = nullptr);

} // namespace zem::js
