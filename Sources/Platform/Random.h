#pragma once

// Randomness from the operating system's cryptographic generator.

#include <zem/Platform/Bytes.h>

#include <cstddef>
#include <span>

namespace zem::platform {

/// A fresh symmetric key of `length` bytes. Ends the process when the system has no randomness to
/// give, which it does only when it is broken.
SecretBytes randomKey(std::size_t length);

/// Fills `bytes` with random bytes; the same guarantee.
void fillRandom(std::span<std::uint8_t> bytes);

} // namespace zem::platform
