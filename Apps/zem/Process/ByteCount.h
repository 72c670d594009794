#pragma once

// Numbers of bytes, as people read them.

#include <cstdint>
#include <string>

namespace zem::host {

/// "999 B", "1.0 kB", "12.3 MB", "4.5 GB": units of a thousand, cut to one decimal.
std::string describeByteCount(std::uint64_t bytes);

} // namespace zem::host
