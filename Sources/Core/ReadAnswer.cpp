#include <zem/Core/Private/ReadAnswer.h>
#include <zem/Tessel/JSON.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zem {

namespace {

using Members = std::vector<std::pair<std::string_view, std::string>>;

/// Stands for an error that is there and has no text.
constexpr const char* unreadable = "null";

std::string toText(const Members& members) {
    std::string text = "{";
    for (const auto& [name, value] : members) {
        text += text.size() == 1 ? "\"" : ",\"";
        text.append(name) += "\":" + value;
    }
    return text + "}";
}

/// Its text, absent when it is no dictionary.
std::expected<AnswerText, DataServiceError> readData(js::Scope& scope, js::Local answer) {
    const js::Result<js::Local> data = scope.get(answer, "data");
    if (!data) {
        return std::unexpected(dataNotCarriedOver(data.error().text()));
    }
    if (scope.kind(*data) != js::Kind::object) {
        return std::nullopt;
    }
    const js::Result<AnswerText> text = scope.stringify(*data);
    if (!text) {
        return std::unexpected(dataNotCarriedOver(text.error().text()));
    }
    return *text;
}

/// The text of a network error that has none as a whole.
std::string readNetworkError(js::Scope& scope, js::Local error) {
    const js::Result<js::Local> type = scope.get(error, "errorType");
    const js::Result<js::Local> message = scope.get(error, "message");
    if (!type || scope.kind(*type) != js::Kind::string || scope.toText(*type) != networkErrorType ||
        !message || scope.kind(*message) != js::Kind::string) {
        return unreadable;
    }
    return tessel::toText({{"errorType", networkErrorType}, {"message", scope.toText(*message)}});
}

/// Its text, absent where JSON would leave it out.
AnswerText readError(js::Scope& scope, js::Local answer, std::string_view name) {
    const js::Result<js::Local> error = scope.get(answer, name);
    if (!error) {
        return unreadable;
    }
    if (const js::Result<AnswerText> text = scope.stringify(*error)) {
        return *text;
    }
    return scope.kind(*error) == js::Kind::object ? readNetworkError(scope, *error) : unreadable;
}

/// Absent when a proxy does not tell them.
std::optional<std::vector<std::string>> namesOf(js::Scope& scope, js::Local answer) {
    const js::Result<js::Local> names = scope.propertyNames(answer);
    if (!names) {
        return std::nullopt;
    }
    const unsigned count = scope.length(*names).value_or(0);
    std::vector<std::string> texts;
    texts.reserve(count);
    for (unsigned index = 0; index < count; ++index) {
        texts.push_back(scope.toText(scope.getAt(*names, index).value()));
    }
    return texts;
}

/// Only what the answer's JSON text would show counts: its own enumerable properties.
Outcome readMembers(js::Scope& scope, js::Local answer) {
    const auto names = namesOf(scope, answer);
    if (!names) {
        return std::nullopt;
    }
    const auto has = [&](std::string_view name) {
        return std::ranges::find(*names, name) != names->end();
    };
    Members members;
    if (has("data")) {
        auto data = readData(scope, answer);
        if (!data) {
            return std::unexpected(std::move(data.error()));
        }
        if (*data) {
            members.emplace_back("data", **std::move(data));
        }
    }
    for (const char* name : {"error", "errors"}) {
        if (has(name)) {
            if (AnswerText error = readError(scope, answer, name)) {
                members.emplace_back(name, *std::move(error));
            }
        }
    }
    return toText(members);
}

} // namespace

Outcome readAnswer(js::Scope& scope, js::Arguments arguments) {
    if (arguments.empty() || scope.kind(arguments[0]) != js::Kind::object) {
        return std::nullopt;
    }
    if (AnswerText whole = scope.stringify(arguments[0]).value_or(std::nullopt)) {
        return whole;
    }
    const js::Sequence sequence(scope);
    return readMembers(scope, arguments[0]);
}

} // namespace zem
