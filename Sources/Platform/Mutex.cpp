#include <zem/Platform/Mutex.h>

#ifndef NDEBUG
#include <cstdio>
#include <cstdlib>
#endif

namespace zem::platform {

namespace {

void pause() {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

/// The work under a lock is short: its holder mostly gives it back in less time than it takes to
/// sleep and be woken.
void lockSoon(std::mutex& mutex) {
    constexpr int tries = 40;
    for (int attempt = 0; attempt < tries; ++attempt) {
        if (mutex.try_lock()) {
            return;
        }
        pause();
    }
    mutex.lock();
}

} // namespace

#ifdef NDEBUG

void Mutex::lock() {
    lockSoon(mutex);
}

void Mutex::unlock() {
    mutex.unlock();
}

void Mutex::assertNoneHeld(const char*) {}

#else

namespace {

thread_local constinit int held = 0;

} // namespace

void Mutex::lock() {
    lockSoon(mutex);
    ++held;
}

void Mutex::unlock() {
    --held;
    mutex.unlock();
}

void Mutex::assertNoneHeld(const char* doing) {
    if (held != 0) {
        std::fprintf(stderr, "zem: a lock is held while %s\n", doing);
        std::abort();
    }
}

#endif

} // namespace zem::platform
