#pragma once

// What the program says of itself.

#include <string>

namespace zem::host {

/// The help of a command, or of the program where the name is empty.
std::string helpOf(const std::string& command);

} // namespace zem::host
