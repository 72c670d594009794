#pragma once

// Reads the files that the command line names.

#include <cstddef>
#include <string>
#include <string_view>

namespace zem::host {

/// The whole file. Throws a Failure with its name and the reason if it cannot be read.
std::string readFile(const std::string& name);

/// "line:column" of a byte's place, both from 1, columns in characters.
std::string placeIn(std::string_view text, std::size_t offset);

} // namespace zem::host
