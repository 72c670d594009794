#pragma once

// The schema of the store's database, as the steps that lead to it.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace zem {

/// The SQL texts that lead to each schema version, in order. Built on first use, never changed.
const std::map<std::int32_t, std::vector<std::string>>& MIGRATIONS();

} // namespace zem
