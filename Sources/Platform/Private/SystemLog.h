#pragma once

// Where log lines go while the application has not said otherwise.

#include <zem/Platform/Log.h>

#include <string>
#include <vector>

namespace zem::platform {

/// Writes to the system journal where there is one, else to standard error.
void writeToSystemLog(const LogLine& line);

/// The line's fields for the journal, each "NAME=value".
std::vector<std::string> journalFields(const LogLine& line);

/// The line for standard error, with its newline; control characters in the text are escaped so
/// that it stays one line.
std::string consoleLine(const LogLine& line);

} // namespace zem::platform
