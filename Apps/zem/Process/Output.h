#pragma once

// Lines on standard output and standard error.

#include <functional>
#include <string_view>

namespace zem::host {

/// Write the text and a line feed in one piece before they return: the line is not lost if the
/// process is killed right after. Any thread.
void printLine(std::string_view text);
void printErrorLine(std::string_view text);

/// Writes a line to a descriptor, whole.
void writeLine(int descriptor, std::string_view text);

/// Replaces the functions above, for a terminal at which a user types; an empty printer restores
/// them. A call of the old printer that began before may end after that.
using LinePrinter = std::function<void(int descriptor, std::string_view text)>;
void setLinePrinter(LinePrinter printer);

} // namespace zem::host
