#pragma once

// What a script came to.

#include <string>

namespace zem::host {

/// Its value, as people read it and as JSON, or what it threw.
struct Evaluated {
    bool failed = false;
    std::string text;
    /// Empty where it failed.
    std::string json;
};

} // namespace zem::host
