#pragma once

#include <string_view>

namespace zem::platform {

/// Whether `text` is valid UTF-8 from end to end. NUL is a character as any other.
bool isUTF8(std::string_view text);

} // namespace zem::platform
