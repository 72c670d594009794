#include <zem/Core/Private/Promise.h>
#include <zem/JavaScript/Context.h>

#include <utility>

namespace zem {

bool followPromise(js::Scope& scope, const js::Result<js::Local>& answer,
                   js::SettledFunction fulfilled, js::SettledFunction rejected) {
    const js::Result<bool> isPromise =
        answer ? js::isPromise(scope, *answer) : std::unexpected(answer.error());
    if (!isPromise) {
        scope.context().reportUncaught(scope, isPromise.error());
        return false;
    }
    if (!*isPromise) {
        return false;
    }
    const js::Result<bool> hasThen =
        js::whenSettled(scope, *answer, std::move(fulfilled), std::move(rejected));
    if (!hasThen) {
        scope.context().reportUncaught(scope, hasThen.error());
    }
    return hasThen.value_or(true);
}

void callForPromise(js::Scope& scope, js::Local object, const js::Name& function,
                    js::Arguments arguments, js::SettledFunction fulfilled,
                    js::SettledFunction rejected) {
    const auto ask = [&]() -> js::Result<void> {
        // A promise that was rejected before gets its handler before it counts as unhandled.
        const js::Sequence sequence(scope);
        const js::Result<js::Local> answer = scope.callMethod(object, function, arguments);
        if (!answer) {
            return std::unexpected(answer.error());
        }
        // Not asked whether it has a "then": a proxy may answer to a name that it hides.
        const js::Result<bool> hasThen =
            js::whenSettled(scope, *answer, std::move(fulfilled), std::move(rejected));
        if (!hasThen) {
            return std::unexpected(hasThen.error());
        }
        if (!*hasThen) {
            return scope.fail(js::ErrorType::typeError, function.text() +
                                                            ": expected a promise, found " +
                                                            js::nameOf(scope.kind(*answer)));
        }
        return {};
    };
    if (const auto asked = ask(); !asked) {
        scope.context().reportUncaught(scope, asked.error());
    }
}

} // namespace zem
