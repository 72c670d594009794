#include <zem/Core/Private/RejectionText.h>

#include <optional>

namespace zem {

namespace {

std::optional<std::string> errorText(js::Scope& scope, js::Local reason) {
    if (!scope.isObject(reason)) {
        return std::nullopt;
    }
    static const js::Name name("error");
    const auto error = scope.get(reason, name);
    if (!error || scope.kind(*error) == js::Kind::undefined) {
        return std::nullopt;
    }
    return scope.stringForm(*error);
}

} // namespace

std::string rejectionText(js::Scope& scope, js::Local reason) {
    return errorText(scope, reason).value_or("Promise Rejected but no error found.");
}

} // namespace zem
