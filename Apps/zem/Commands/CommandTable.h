#pragma once

// All commands, one row each. The parser, completion and help read the rows.

#include <span>
#include <string_view>
#include <vector>

namespace zem::host {

class CommandContext;
class CommandWords;
struct CommandOrigin;

/// A word, or a list of words, that follows a command's name.
struct CommandArgument {
    enum class Count { one, atMostOne, any, atLeastOne };
    enum class Completion { none, subscriptions, commands };

    std::string_view name;
    Count count = Count::one;
    /// The only words allowed; empty if every word is.
    std::vector<std::string_view> words = {};
    /// The names that a word is completed to, if `words` is empty.
    Completion completion = Completion::none;
};

/// An option with a value.
struct CommandOption {
    std::string_view name;
    /// The value's name in the usage.
    std::string_view value;
    /// The value's name in the error about a missing value.
    std::string_view type;
    bool isRepeatable = false;
    bool isRequired = false;
    /// The words that the value is completed to.
    std::vector<std::string_view> words = {};
    /// The options that must not stand beside this one. One side of a pair suffices.
    std::vector<std::string_view> excludes = {};
};

struct Command {
    /// Carries the command out. Throws a CommandFailure.
    using Perform = void (*)(CommandContext& context, const CommandWords& words,
                             const CommandOrigin& origin);
    /// `words`: words as in a shell, read by `arguments` and `options`. `script`: one argument, the
    /// rest of the line as it stands; JavaScript has its own quotes.
    enum class Syntax { words, script };

    /// The first of two words, for commands that share it: "drafts". Otherwise empty.
    std::string_view group = {};
    std::string_view name;
    /// A command with options has no list of words among its arguments.
    std::vector<CommandArgument> arguments = {};
    std::vector<CommandOption> options = {};
    std::string_view help = {};
    Syntax parse = Syntax::words;
    Perform perform = nullptr;
};

/// In the order of the help.
std::span<const Command> commandTable();

/// Null if there is none. `group` is empty for a command of one word.
const Command* findCommand(std::string_view group, std::string_view name);

/// The second words of a group's commands, in the order of the table; empty if it is no group.
std::vector<std::string_view> commandsOfGroup(std::string_view group);

/// The first words of all commands, each once, in the order of the table.
std::vector<std::string_view> firstWordsOfCommands();

} // namespace zem::host
