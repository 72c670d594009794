#pragma once

// Reads and writes the files that the command line and the commands name.

#include <zem/Platform/Bytes.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace zem::host {

/// The whole file. Throws a Failure with its name and the reason if it cannot be read.
std::string readFile(const std::string& name);
platform::Bytes readBytes(const std::string& name);

/// Writes the whole file, or leaves what was there: the bytes go into a new file beside it, which
/// then takes its place. A device or a pipe is written to as it stands. Throws a Failure with its
/// name and the reason if it cannot be written.
void writeFile(const std::string& name, platform::BytesView bytes);

/// "line:column" of a byte's place, both from 1, columns in characters.
std::string placeIn(std::string_view text, std::size_t offset);

} // namespace zem::host
