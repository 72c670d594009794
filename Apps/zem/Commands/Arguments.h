#pragma once

// The words that follow a command's name.

#include <zem/Core/DataServiceResult.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zem::host {

using Arguments = std::vector<std::string>;

/// Throws a CommandFailure that shows the usage.
void expectCount(const Arguments& arguments, std::size_t count, std::string_view usage);

/// Of KEY=VALUE each; of equal keys the last one counts. Throws a CommandFailure that names `place`
/// where a word is anything else.
Metadata parsePairs(std::span<const std::string> words, std::string_view place);

} // namespace zem::host
