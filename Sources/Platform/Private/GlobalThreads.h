#pragma once

// The questions that other queues may ask of the threads behind the global queue.

namespace zem::platform {

/// True when tasks wait for a thread: a queue that has had its turn gives its thread up.
bool globalThreadsAreWanted();

} // namespace zem::platform
