#pragma once

// The parts of a bundle's runtime.

#include <zem/JavaScript/Value.h>

#include <expected>
#include <map>
#include <string>

namespace zem::host {

enum class RuntimePart { dataService, draftManager, draftQueue };

/// The parts as the bundle has set them, or the reasons why they cannot be used.
struct RuntimeParts {
    using Part = std::expected<js::Value, std::string>;
    Part dataService;
    Part draftManager;
    Part draftQueue;
};

/// The missing parts, each with the reason.
using MissingParts = std::map<RuntimePart, std::string>;

} // namespace zem::host
