#include "CommandParser.h"

#include "CommandFailure.h"
#include "CommandHelp.h"
#include "Words.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <list>
#include <map>
#include <span>
#include <utility>
#include <vector>

namespace zem::host {

namespace {

using Texts = std::span<const std::string>;

CommandFailure wrongForm(const Command& command) {
    return CommandFailure(fmt::format("expected: {}", usageOf(command)));
}

/// Reads the words of a command that has options.
class OptionParser {
  public:
    explicit OptionParser(const Command& command) {
        // "--help" is no option of a command.
        app.set_help_flag();
        for (const CommandArgument& argument : command.arguments) {
            add(argument.name, false)->required(argument.count == CommandArgument::Count::one);
        }
        for (const CommandOption& option : command.options) {
            add(option.name, option.isRepeatable)
                ->type_name(std::string(option.type))
                ->required(option.isRequired);
        }
        for (const CommandOption& option : command.options) {
            for (const std::string_view other : option.excludes) {
                found.at(option.name)->excludes(found.at(other));
            }
        }
    }

    CommandWords read(Texts words) {
        std::vector<std::string> backwards(words.rbegin(), words.rend());
        try {
            app.parse(backwards);
        } catch (const CLI::ParseError& error) {
            throw CommandFailure(error.what());
        }
        CommandWords read;
        for (const auto& [name, option] : found) {
            for (const std::string& word :
                 option->count() == 0 ? CLI::results_t() : option->results()) {
                read.add(name, word);
            }
        }
        return read;
    }

  private:
    CLI::Option* add(std::string_view name, bool isRepeatable) {
        CLI::Option* const option =
            isRepeatable
                ? app.add_option(std::string(name), lists.emplace_back())->allow_extra_args(false)
                : app.add_option(std::string(name), single.emplace_back());
        found.emplace(name, option);
        return option;
    }

    CLI::App app;
    std::list<std::string> single;
    std::list<std::vector<std::string>> lists;
    std::map<std::string_view, CLI::Option*> found;
};

/// Reads the words of a command that has no options.
CommandWords readArguments(const Command& command, Texts words) {
    using Count = CommandArgument::Count;
    CommandWords read;
    auto next = words.begin();
    for (const CommandArgument& argument : command.arguments) {
        const bool isList = argument.count == Count::any || argument.count == Count::atLeastOne;
        const std::size_t most = isList ? words.size() : 1;
        std::size_t count = 0;
        const auto isAllowed = [&](const std::string& word) {
            return argument.words.empty() ||
                   std::ranges::find(argument.words, word) != argument.words.end();
        };
        for (; count < most && next != words.end() && isAllowed(*next); ++count) {
            read.add(argument.name, *next++);
        }
        const bool isRequired = argument.count == Count::one || argument.count == Count::atLeastOne;
        if (isRequired && count == 0) {
            throw wrongForm(command);
        }
    }
    if (next != words.end()) {
        throw wrongForm(command);
    }
    return read;
}

/// The rest of the line as it stands, unless all of it is one word in quotes.
CommandWords readScript(const Command& command, std::string_view text,
                        const std::vector<Word>& words) {
    if (words.size() == 1) {
        throw wrongForm(command);
    }
    const bool isQuoted = words.size() == 2 && words[1].isQuoted && words[1].isComplete;
    CommandWords read;
    read.add(command.arguments.front().name,
             isQuoted ? words[1].text : std::string(text.substr(words[1].begin)));
    return read;
}

/// The command, and how many words its name takes.
std::pair<const Command*, std::size_t> findCommandOf(Texts words) {
    const std::string& first = words.front();
    const auto names = commandsOfGroup(first);
    if (names.empty()) {
        return {findCommand("", first), 1};
    }
    const Command* const command = words.size() > 1 ? findCommand(first, words[1]) : nullptr;
    if (command == nullptr) {
        throw CommandFailure(fmt::format("expected: {} {}", first, fmt::join(names, "|")));
    }
    return {command, 2};
}

} // namespace

std::string CommandText::name() const {
    const std::vector<Word> words = splitWords(text);
    return words.empty() ? "" : words.front().text;
}

std::optional<CommandText> readCommandText(std::string_view line) {
    constexpr std::string_view space = " \t\r\n";
    const auto skipSpace = [&] {
        line.remove_prefix(std::min(line.find_first_not_of(space), line.size()));
    };
    skipSpace();
    if (line.empty() || line.front() == '#') {
        return std::nullopt;
    }
    CommandText read;
    if (line.front() == '-') {
        read.mayFail = true;
        line.remove_prefix(1);
        skipSpace();
    }
    read.text = line.substr(0, line.find_last_not_of(space) + 1);
    return read;
}

ParsedCommand parseCommand(std::string_view text) {
    const std::vector<Word> words = splitWords(text);
    std::vector<std::string> texts;
    std::ranges::transform(words, std::back_inserter(texts), &Word::text);
    if (texts.empty()) {
        texts.emplace_back();
    }
    const Command* const script = findCommand("", texts.front());
    if (script != nullptr && script->parse == Command::Syntax::script) {
        return {*script, readScript(*script, text, words)};
    }
    if (!std::ranges::all_of(words, &Word::isComplete)) {
        throw CommandFailure("a quote is not closed");
    }
    const auto [command, nameLength] = findCommandOf(texts);
    if (command == nullptr) {
        throw CommandFailure(fmt::format("there is no command \"{}\"", texts.front()));
    }
    const Texts rest = Texts(texts).subspan(nameLength);
    return {*command, command->options.empty() ? readArguments(*command, rest)
                                               : OptionParser(*command).read(rest)};
}

} // namespace zem::host
