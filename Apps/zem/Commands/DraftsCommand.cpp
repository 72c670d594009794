#include "DraftsCommand.h"

#include "CommandFailure.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

namespace zem::host {

namespace {

using Value = decltype(DraftsCommand::value);

constexpr std::array<std::string_view, 3> executorWords{"SUCCESS", "NETWORK_ERROR", "CLIENT_ERROR"};
constexpr std::array<std::string_view, 2> watchWords{"on", "off"};

template <std::size_t count>
bool isOneOf(const std::array<std::string_view, count>& words, std::string_view word) {
    return std::ranges::find(words, word) != words.end();
}

CustomActionResult resultOf(const std::string& word) {
    if (word == executorWords[0]) {
        return {CustomActionResultType::success, std::nullopt};
    }
    const auto type = word == executorWords[1] ? CustomActionErrorType::networkError
                                               : CustomActionErrorType::clientError;
    return {CustomActionResultType::failure,
            CustomActionError{type, fmt::format("zem's executor answers {}", word)}};
}

Metadata pairsAfterFirst(const Arguments& words, std::string_view place) {
    return parsePairs(std::span(words).subspan(1), place);
}

constexpr std::size_t anyNumber = std::numeric_limits<std::size_t>::max();

/// A command, and what it is made of. `parse` finds words that are neither too few nor too many,
/// and is absent where they are no command.
struct Form {
    std::string_view name;
    std::string_view usage;
    std::size_t least;
    std::size_t most;
    std::optional<Value> (*parse)(const Arguments& words);
    std::span<const std::string_view> arguments;
};

using Parsed = std::optional<Value>;

constexpr std::array<Form, 12> forms{{
    {"list", "list", 0, 0, [](const Arguments&) -> Parsed { return ListDrafts{}; }, {}},
    {"show",
     "show ID",
     1,
     1,
     [](const Arguments& words) -> Parsed { return ShowDraft{words[0]}; },
     {}},
    {"remove",
     "remove ID",
     1,
     1,
     [](const Arguments& words) -> Parsed { return RemoveDraft{words[0]}; },
     {}},
    {"replace",
     "replace ID WITH",
     2,
     2,
     [](const Arguments& words) -> Parsed { return ReplaceDraft{words[0], words[1]}; },
     {}},
    {"merge",
     "merge SOURCE into TARGET",
     3,
     3,
     [](const Arguments& words) -> Parsed {
         return words[1] == "into" ? Parsed(MergeDrafts{words[0], words[2]}) : std::nullopt;
     },
     {}},
    {"metadata",
     "metadata ID K=V...",
     2,
     anyNumber,
     [](const Arguments& words) -> Parsed {
         return SetDraftMetadata{words[0], pairsAfterFirst(words, "drafts metadata")};
     },
     {}},
    {"start", "start", 0, 0, [](const Arguments&) -> Parsed { return RunDrafts{true}; }, {}},
    {"stop", "stop", 0, 0, [](const Arguments&) -> Parsed { return RunDrafts{false}; }, {}},
    {"process", "process", 0, 0, [](const Arguments&) -> Parsed { return ProcessDraft{}; }, {}},
    {"add",
     "add TARGET K=V...",
     2,
     anyNumber,
     [](const Arguments& words) -> Parsed {
         return AddDraft{words[0], pairsAfterFirst(words, "drafts add")};
     },
     {}},
    {"executor", "executor SUCCESS|NETWORK_ERROR|CLIENT_ERROR", 1, 1,
     [](const Arguments& words) -> Parsed {
         return isOneOf(executorWords, words[0])
                    ? Parsed(SetDraftsExecutor{words[0], resultOf(words[0])})
                    : std::nullopt;
     },
     executorWords},
    {"watch", "watch on|off", 1, 1,
     [](const Arguments& words) -> Parsed {
         return isOneOf(watchWords, words[0]) ? Parsed(WatchDrafts{words[0] == watchWords[0]})
                                              : std::nullopt;
     },
     watchWords},
}};

std::string names() {
    std::string text;
    for (const Form& form : forms) {
        text += text.empty() ? "" : "|";
        text += form.name;
    }
    return text;
}

} // namespace

DraftsCommand parseDrafts(const Arguments& words) {
    const auto* const form =
        words.empty() ? forms.end() : std::ranges::find(forms, words[0], &Form::name);
    if (form == forms.end()) {
        throw CommandFailure(fmt::format("expected: drafts {}", names()));
    }
    const Arguments rest(words.begin() + 1, words.end());
    std::optional<Value> value;
    if (rest.size() >= form->least && rest.size() <= form->most) {
        value = form->parse(rest);
    }
    if (!value) {
        throw CommandFailure(fmt::format("expected: drafts {}", form->usage));
    }
    return {words[0], *std::move(value)};
}

std::span<const CommandShape> draftsShapes() {
    static const std::vector<CommandShape> shapes = [] {
        std::vector<CommandShape> made;
        made.reserve(forms.size());
        for (const Form& form : forms) {
            made.push_back({form.name, {}, form.arguments, false, {}});
        }
        return made;
    }();
    return shapes;
}

} // namespace zem::host
