#pragma once

// Lines for people and programs that read what a run prints.

#include <functional>
#include <string_view>

namespace zem::host {

/// Write the text and a line feed in one piece, before returning: a reader of a pipe has what was
/// printed even if the process is killed right after. Any thread.
void printLine(std::string_view text);
void printErrorLine(std::string_view text);

/// Writes a line to a descriptor, whole.
void writeLine(int descriptor, std::string_view text);

/// Writes lines instead of the functions above: for a terminal on which somebody is typing. An
/// empty one takes it away. A call that has begun may still be running then.
using LinePrinter = std::function<void(int descriptor, std::string_view text)>;
void setLinePrinter(LinePrinter printer);

} // namespace zem::host
