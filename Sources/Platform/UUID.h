#pragma once

// Random (version 4) identifiers.

#include <string>

namespace zem::platform {

/// A fresh random UUID in canonical upper-case form: 8-4-4-4-12 hexadecimal digits.
std::string makeUUID();

} // namespace zem::platform
