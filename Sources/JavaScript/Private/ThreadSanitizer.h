#pragma once

// The engine is not built with ThreadSanitizer, so the tool cannot see that its lock orders what
// our threads do inside it. These tell it.

#if defined(__SANITIZE_THREAD__)
#define ZEM_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZEM_THREAD_SANITIZER 1
#endif
#endif

#ifdef ZEM_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace zem::js {

inline void acquireForThreadSanitizer([[maybe_unused]] void* guarded) {
#ifdef ZEM_THREAD_SANITIZER
    __tsan_acquire(guarded);
#endif
}

inline void releaseForThreadSanitizer([[maybe_unused]] void* guarded) {
#ifdef ZEM_THREAD_SANITIZER
    __tsan_release(guarded);
#endif
}

} // namespace zem::js
