#pragma once

// Lines for people and programs that read what a run prints.

#include <string_view>

namespace zem::host {

/// Write the text and a line feed in one piece, before returning: a reader of a pipe has what was
/// printed even if the process is killed right after. Any thread.
void printLine(std::string_view text);
void printErrorLine(std::string_view text);

} // namespace zem::host
