#include "ByteCount.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>

namespace zem::host {

std::string describeByteCount(std::uint64_t bytes) {
    constexpr std::array<const char*, 3> units{"kB", "MB", "GB"};
    if (bytes < 1000) {
        return fmt::format("{} B", bytes);
    }
    std::uint64_t tenths = bytes / 100;
    std::size_t unit = 0;
    for (; tenths >= 10'000 && unit + 1 < units.size(); ++unit) {
        tenths /= 1000;
    }
    return fmt::format("{}.{} {}", tenths / 10, tenths % 10, units.at(unit));
}

} // namespace zem::host
