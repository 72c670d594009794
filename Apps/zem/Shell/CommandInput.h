#pragma once

// Where a run's commands come from.

#include "Commands/LineSource.h"
#include "Process/Options.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zem::host {

/// The text of the file that the options name, empty where they name none. Throws a Failure when it
/// cannot be read.
std::string readCommandFile(const Options& options);

/// What failures call it; empty for a shell, whose user sees the line.
std::string commandSource(const Options& options);

/// Somebody sits at a terminal and types.
bool isTyped(const Options& options);

/// `fileText` is what was read; `subscriptionNames` are what a name may be completed to.
std::unique_ptr<LineSource>
openCommandLines(const Options& options, std::string fileText,
                 std::function<std::vector<std::string>()> subscriptionNames);

} // namespace zem::host
