#pragma once

// Reads a line of commands.

#include "CommandTable.h"
#include "CommandWords.h"

#include <optional>
#include <string>
#include <string_view>

namespace zem::host {

/// A line that is no comment.
struct CommandText {
    std::string text;
    /// The line began with `-`: a failure does not end the run.
    bool mayFail = false;

    /// The command's first word.
    std::string name() const;
};

/// Absent for a blank line and for a comment, whose first character is `#`.
std::optional<CommandText> readCommandText(std::string_view line);

struct ParsedCommand {
    const Command& command;
    CommandWords words;
};

/// Throws a CommandFailure if there is no such command or its row does not fit the words.
ParsedCommand parseCommand(std::string_view text);

} // namespace zem::host
