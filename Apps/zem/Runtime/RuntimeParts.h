#pragma once

// What a bundle's runtime is made of.

#include <zem/JavaScript/Value.h>

#include <expected>
#include <map>
#include <string>

namespace zem::host {

enum class RuntimePart { dataService, draftManager, draftQueue };

/// The parts as the bundle has set them, or why they cannot be used.
struct RuntimeParts {
    using Part = std::expected<js::Value, std::string>;
    Part dataService;
    Part draftManager;
    Part draftQueue;
};

/// The parts that are not there, and why.
using MissingParts = std::map<RuntimePart, std::string>;

} // namespace zem::host
