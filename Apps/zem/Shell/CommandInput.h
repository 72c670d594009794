#pragma once

// The source of a run's commands.

#include "Commands/LineSource.h"
#include "Process/Options.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zem::host {

/// The text of the file that the options name; empty if they name none. Throws a Failure if the
/// file cannot be read.
std::string readCommandFile(const Options& options);

/// The name of the source in errors; empty for a shell, whose user sees the line.
std::string commandSource(const Options& options);

/// Whether a user types the commands at a terminal.
bool isTyped(const Options& options);

/// `fileText` is the text of the command file. `subscriptionNames` returns the names for
/// completion.
std::unique_ptr<LineSource>
openCommandLines(const Options& options, std::string fileText,
                 std::function<std::vector<std::string>()> subscriptionNames);

} // namespace zem::host
