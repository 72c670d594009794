#include <zem/Platform/Mutex.h>

#ifndef NDEBUG
#include <cstdio>
#include <cstdlib>
#endif

namespace zem::platform {

#ifdef NDEBUG

void Mutex::lock() {
    mutex.lock();
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
    mutex.lock();
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
