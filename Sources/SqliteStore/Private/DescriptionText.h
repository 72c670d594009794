#pragma once

namespace zem {

/// `text` as it is when it is valid UTF-8, else "Unknown error".
const char* descriptionText(const char* text) noexcept;

} // namespace zem
