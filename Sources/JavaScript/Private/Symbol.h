#pragma once

// Functions that the engine's library exports though its installed headers do not declare them.

#include <dlfcn.h>

namespace zem::js {

/// Null where this engine does not have it.
template <class Pointer>
Pointer engineSymbol(const char* name) {
    return reinterpret_cast<Pointer>(dlsym(RTLD_DEFAULT, name));
}

} // namespace zem::js
