#include "CommandHelp.h"

#include "CommandFailure.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstddef>
#include <vector>

namespace zem::host {

namespace {

constexpr std::size_t lineWidth = 80;
constexpr std::size_t usageColumn = 2;
constexpr std::size_t helpColumn = 32;

constexpr const char* rules = R"(
  They are carried out by the runtime that the bundle sets, at once, later, or
  as a promise of it: globalThis.runtime = { dataService, draftManager,
  draftQueue }, where drafts process needs the draftQueue, the other commands on
  drafts the draftManager, and those above them the dataService. What is asked
  for before is handed over then. Words are quoted as in a shell, P is high,
  normal or background, lines that begin with # are comments. Results are
  labelled with the name of their subscription (s1, s2 ... or --as NAME),
  invocation or upload (i1, i2 ...) or command on drafts (d1, d2 ...). With
  --json each is one object with these keys:
  {"command":"invoke","name":"i1","line":1,"data":{},"error":null}
)";

std::string nameOf(const Command& command) {
    return fmt::format("{}{}{}", command.group, command.group.empty() ? "" : " ", command.name);
}

std::string usageOf(const CommandArgument& argument) {
    if (!argument.words.empty()) {
        return fmt::format("{}", fmt::join(argument.words, "|"));
    }
    switch (argument.count) {
    case CommandArgument::Count::atMostOne:
        return fmt::format("[{}]", argument.name);
    case CommandArgument::Count::any:
        return fmt::format("[{}...]", argument.name);
    case CommandArgument::Count::atLeastOne:
        return fmt::format("{}...", argument.name);
    default:
        return std::string(argument.name);
    }
}

std::string usageOf(const CommandOption& option) {
    const std::string text = fmt::format("{} {}", option.name, option.value);
    return fmt::format("{}{}", option.isRequired ? text : "[" + text + "]",
                       option.isRepeatable ? "..." : "");
}

/// The command's name, and then each argument and option.
std::vector<std::string> partsOf(const Command& command) {
    std::vector<std::string> parts{nameOf(command)};
    for (const CommandArgument& argument : command.arguments) {
        parts.push_back(usageOf(argument));
    }
    for (const CommandOption& option : command.options) {
        parts.push_back(usageOf(option));
    }
    return parts;
}

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words;
    for (std::size_t end = 0; end != std::string_view::npos;) {
        end = text.find(' ');
        words.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return words;
}

/// Writes text into lines of at most `lineWidth` characters.
class Lines {
  public:
    /// Moves to a column of this line, or of the next one if this line has passed it.
    void moveTo(std::size_t column) {
        if (width + 2 > column && width > 0) {
            text += '\n';
            width = 0;
        }
        text.append(column - width, ' ');
        width = column;
    }

    /// Adds parts with a space between them; further lines begin at `indent`.
    void add(const std::vector<std::string>& parts, std::size_t indent) {
        bool isFirst = true;
        for (const std::string& part : parts) {
            if (!isFirst && width + 1 + part.size() > lineWidth) {
                text += '\n' + std::string(indent, ' ');
                width = indent;
            } else if (!isFirst) {
                text += ' ';
                ++width;
            }
            text += part;
            width += part.size();
            isFirst = false;
        }
    }

    std::string finish() { return std::move(text) + '\n'; }

  private:
    std::string text;
    std::size_t width = 0;
};

/// The usage, and beside or below it the help.
std::string describe(const Command& command) {
    Lines lines;
    lines.moveTo(usageColumn);
    lines.add(partsOf(command), usageColumn + nameOf(command).size() + 1);
    lines.moveTo(helpColumn);
    lines.add(wordsOf(command.help), helpColumn);
    return lines.finish();
}

} // namespace

std::string usageOf(const Command& command) {
    return fmt::format("{}", fmt::join(partsOf(command), " "));
}

std::string helpOfCommands() {
    std::string text;
    for (const Command& command : commandTable()) {
        text += describe(command);
    }
    return text + rules;
}

std::string helpOfCommand(std::string_view name) {
    std::string text;
    for (const Command& command : commandTable()) {
        if (name == (command.group.empty() ? command.name : command.group)) {
            text += describe(command);
        }
    }
    if (text.empty()) {
        throw CommandFailure(fmt::format("there is no command \"{}\"", name));
    }
    return text;
}

} // namespace zem::host
