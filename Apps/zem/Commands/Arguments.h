#pragma once

// Words of the form KEY=VALUE.

#include <zem/Core/DataServiceResult.h>

#include <span>
#include <string>
#include <string_view>

namespace zem::host {

/// The last of equal keys counts. Throws a CommandFailure that begins with `place` if a word has no
/// equals sign.
Metadata parsePairs(std::span<const std::string> words, std::string_view place);

} // namespace zem::host
