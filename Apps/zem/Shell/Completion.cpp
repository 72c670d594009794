#include "Completion.h"

#include "Commands/CommandParser.h"
#include <zem/Core/AdapterRequestContext.h>

#include <algorithm>
#include <span>

namespace zem::host {

namespace {

void addPriorities(std::vector<std::string>& words) {
    for (const auto& [priority, text] : adapterRequestPriorityTexts) {
        words.emplace_back(text);
    }
}

/// Everything that may follow `before`, the words up to the one that is being typed.
std::vector<std::string>
candidates(std::span<const CommandShape> shapes, std::span<const std::string> before, bool isOption,
           const std::function<std::vector<std::string>()>& subscriptionNames) {
    std::vector<std::string> words;
    if (before.empty()) {
        for (const CommandShape& shape : shapes) {
            words.emplace_back(shape.name);
        }
        return words;
    }
    const auto shape = std::ranges::find(shapes, before.front(), &CommandShape::name);
    if (shape == shapes.end()) {
        return words;
    }
    if (!shape->commands.empty()) {
        return candidates(shape->commands, before.subspan(1), isOption, subscriptionNames);
    }
    if (isOption) {
        words.assign(shape->options.begin(), shape->options.end());
    } else if (before.back() == "--priority") {
        addPriorities(words);
    } else if (before.size() == 1) {
        words.assign(shape->arguments.begin(), shape->arguments.end());
        if (shape->takesName) {
            words = subscriptionNames();
        }
    }
    return words;
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
    Completion completion{typed.size(), candidates(commandShapes(), before, typed.starts_with('-'),
                                                   subscriptionNames)};
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
