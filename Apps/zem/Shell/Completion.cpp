#include "Completion.h"

#include "Commands/CommandTable.h"

#include <algorithm>
#include <span>

namespace zem::host {

namespace {

using Words = std::vector<std::string>;

Words copyOf(std::span<const std::string_view> views) {
    return {views.begin(), views.end()};
}

Words optionNames(const Command& command) {
    Words names;
    for (const CommandOption& option : command.options) {
        names.emplace_back(option.name);
    }
    return names;
}

Words wordsOf(const CommandArgument& argument, const std::function<Words()>& subscriptionNames) {
    if (!argument.words.empty()) {
        return copyOf(argument.words);
    }
    switch (argument.completion) {
    case CommandArgument::Completion::subscriptions:
        return subscriptionNames();
    case CommandArgument::Completion::commands:
        return copyOf(firstWordsOfCommands());
    default:
        return {};
    }
}

/// The words that may follow a command and the words `before`.
Words candidates(const Command& command, std::span<const std::string> before, bool isOption,
                 const std::function<Words()>& subscriptionNames) {
    if (isOption) {
        return optionNames(command);
    }
    if (!before.empty()) {
        const auto option = std::ranges::find(command.options, before.back(), &CommandOption::name);
        if (option != command.options.end()) {
            return copyOf(option->words);
        }
    }
    const bool isArgument =
        before.size() < command.arguments.size() &&
        std::ranges::none_of(before, [](const auto& word) { return word.starts_with("--"); });
    return isArgument ? wordsOf(command.arguments[before.size()], subscriptionNames) : Words();
}

/// The words that may follow `before`, the complete words of the line.
Words candidates(std::span<const std::string> before, bool isOption,
                 const std::function<Words()>& subscriptionNames) {
    if (before.empty()) {
        return copyOf(firstWordsOfCommands());
    }
    const auto names = commandsOfGroup(before.front());
    if (!names.empty() && before.size() == 1) {
        return copyOf(names);
    }
    const std::size_t nameLength = names.empty() ? 1 : 2;
    const Command* const command =
        names.empty() ? findCommand("", before.front()) : findCommand(before.front(), before[1]);
    return command == nullptr
               ? Words()
               : candidates(*command, before.subspan(nameLength), isOption, subscriptionNames);
}

} // namespace

Completion complete(std::string_view line,
                    const std::function<std::vector<std::string>()>& subscriptionNames) {
    std::vector<std::string> before;
    std::size_t at = 0;
    for (;;) {
        const std::size_t end = line.find_first_of(" \t", at);
        if (end == std::string_view::npos) {
            break;
        }
        // A line that may fail begins with a dash, with or without a space after it.
        std::string_view word = line.substr(at, end - at);
        if (before.empty() && word.starts_with('-')) {
            word.remove_prefix(1);
        }
        if (!word.empty()) {
            before.emplace_back(word);
        }
        at = end + 1;
    }
    std::string_view typed = line.substr(at);
    if (before.empty() && typed.starts_with('-')) {
        typed.remove_prefix(1);
    }
    Completion completion{typed.size(),
                          candidates(before, typed.starts_with('-'), subscriptionNames)};
    std::erase_if(completion.words,
                  [&](const std::string& word) { return !word.starts_with(typed); });
    std::ranges::sort(completion.words);
    return completion;
}

std::string commonBeginning(const std::vector<std::string>& words) {
    std::string common = words.empty() ? "" : words.front();
    for (const std::string& word : words) {
        const auto differing = std::ranges::mismatch(common, word).in1;
        common.erase(differing, common.end());
    }
    return common;
}

} // namespace zem::host
