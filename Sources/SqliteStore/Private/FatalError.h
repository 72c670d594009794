#pragma once

namespace zem {

/// Ends the process after writing "Fatal error: " and `why` to standard error: for what only a
/// programming error can bring about.
[[noreturn]] void fatalError(const char* why);

} // namespace zem
