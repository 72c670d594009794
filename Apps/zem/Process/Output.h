#pragma once

// Lines on standard output and standard error.

#include <functional>
#include <string>
#include <string_view>

namespace zem::host {

/// Write the text and a line feed in one piece before they return: the line is not lost if the
/// process is killed right after. Any thread.
void printLine(std::string_view text);
void printErrorLine(std::string_view text);

/// Writes a line to a descriptor, whole.
void writeLine(int descriptor, std::string_view text);

/// Lets standard error's terminal show a status line. Call it before other threads write lines.
/// False, and without effect, if standard error is no terminal that can.
bool enableStatusLine();

/// Shows a text below all lines, as far as it fits in one; an empty text removes it. Lines that are
/// written meanwhile push it down. Any thread.
void setStatusLine(const std::string& text);

/// Takes the status line off the terminal while a user edits a line there, and puts it back. Any
/// thread.
void suspendStatusLine();
void resumeStatusLine();

/// Replaces the functions above, for a terminal at which a user types; an empty printer restores
/// them. A call of the old printer that began before may end after that.
using LinePrinter = std::function<void(int descriptor, std::string_view text)>;
void setLinePrinter(LinePrinter printer);

} // namespace zem::host
