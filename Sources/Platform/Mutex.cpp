#include <zem/Platform/Mutex.h>

#include <cstdio>
#include <cstdlib>

namespace zem::platform {

#ifndef NDEBUG
thread_local int Mutex::held = 0;
#endif

void Mutex::failHeld(const char* doing) {
    std::fprintf(stderr, "zem: a lock is held while %s\n", doing);
    std::abort();
}

} // namespace zem::platform
