#pragma once

// The texts that explain the commands.

#include "CommandTable.h"

#include <string>
#include <string_view>

namespace zem::host {

/// The form of a command on one line: "drafts show ID".
std::string usageOf(const Command& command);

/// Every command, and below them the rules for all. Ends with a line feed.
std::string helpOfCommands();

/// The command of that name, or every command whose first word it is. Ends with a line feed. Throws
/// a CommandFailure if there is none.
std::string helpOfCommand(std::string_view name);

} // namespace zem::host
