#pragma once

// The help of the program.

#include <string>

namespace zem::host {

/// The help of a command of the program, or of the program if the name is empty. `commands` is the
/// help of the commands that a run carries out.
std::string helpOf(const std::string& command, const std::string& commands);

} // namespace zem::host
