#pragma once

// The mutex that guards state in every room. It is a std::mutex, which ThreadSanitizer sees; debug
// builds also count what each thread holds, because no lock may be held while the engine is
// entered, a completion is called or a listener is notified.

#include <mutex>

namespace zem::platform {

class Mutex {
  public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() {
        mutex.lock();
#ifndef NDEBUG
        ++held;
#endif
    }
    void unlock() {
#ifndef NDEBUG
        --held;
#endif
        mutex.unlock();
    }

    /// Ends the process in debug builds when the calling thread holds any Mutex: call it before
    /// code that is not ours to bound runs. `doing` says what was about to happen.
    static void assertNoneHeld([[maybe_unused]] const char* doing) {
#ifndef NDEBUG
        if (held != 0) {
            failHeld(doing);
        }
#endif
    }

  private:
    [[noreturn]] static void failHeld(const char* doing);

    std::mutex mutex;
#ifndef NDEBUG
    static thread_local int held;
#endif
};

using Lock = std::scoped_lock<Mutex>;
using UniqueLock = std::unique_lock<Mutex>;

} // namespace zem::platform
