#pragma once

// The mutex that guards state in every room. It is a std::mutex, which ThreadSanitizer sees; debug
// builds of the library also count what each thread holds, because no lock may be held while the
// engine is entered, a completion is called or a listener is notified.

#include <mutex>

namespace zem::platform {

/// Whether locks are counted is the library's matter: an application may be built otherwise.
class Mutex {
  public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock();
    void unlock();

    /// Ends the process in debug builds when the calling thread holds any Mutex: call it before
    /// code that is not ours to bound runs. `doing` says what was about to happen.
    static void assertNoneHeld(const char* doing);

  private:
    std::mutex mutex;
};

using Lock = std::scoped_lock<Mutex>;
using UniqueLock = std::unique_lock<Mutex>;

} // namespace zem::platform
