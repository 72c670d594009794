#pragma once

// The result of an evaluated script.

#include <string>

namespace zem::host {

struct EvalResult {
    bool failed = false;
    /// The value, or the thrown value, as people read it.
    std::string text;
    /// The value as JSON; empty if the script failed.
    std::string json;
};

} // namespace zem::host
