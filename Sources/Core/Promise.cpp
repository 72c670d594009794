#include <zem/Core/Private/Promise.h>
#include <zem/JavaScript/Context.h>

#include <utility>

namespace zem {

namespace {

const js::Name& thenName() {
    static const js::Name name("then");
    return name;
}

js::Local makeFunction(js::Scope& scope, const char* name, SettledFunction settled) {
    return scope.function(name, 1,
                          [settled = std::move(settled)](js::Scope& inner, js::Local,
                                                         js::Arguments arguments) mutable {
                              settled(inner, arguments.empty() ? inner.undefined() : arguments[0]);
                              return inner.undefined();
                          });
}

} // namespace

bool isPromise(js::Scope& scope, js::Local answer) {
    return scope.isObject(answer) && scope.has(answer, thenName()).value_or(false);
}

js::Result<void> whenSettled(js::Scope& scope, js::Local promise, SettledFunction fulfilled,
                             SettledFunction rejected) {
    const auto answer = scope.callMethod(promise, thenName(),
                                         {makeFunction(scope, "fulfilled", std::move(fulfilled)),
                                          makeFunction(scope, "rejected", std::move(rejected))});
    if (!answer) {
        return std::unexpected(answer.error());
    }
    return {};
}

void callForPromise(js::Scope& scope, js::Local object, const js::Name& function,
                    js::Arguments arguments, SettledFunction fulfilled, SettledFunction rejected) {
    const auto ask = [&]() -> js::Result<void> {
        // A promise that is rejected already is heard of before it counts as one that nobody hears.
        const js::Sequence sequence(scope);
        const js::Result<js::Local> promise = scope.callMethod(object, function, arguments);
        if (!promise) {
            return std::unexpected(promise.error());
        }
        // What has no "then" is given no functions: the engine would keep them, and what they hold,
        // for long. It is asked for what it answers, not for what it has: a proxy may answer any
        // name.
        const js::Result<js::Local> then =
            scope.isObject(*promise) ? scope.get(*promise, thenName()) : scope.undefined();
        if (!then) {
            return std::unexpected(then.error());
        }
        if (scope.kind(*then) == js::Kind::undefined) {
            return scope.fail(js::ErrorType::typeError, function.text() +
                                                            ": expected a promise, found " +
                                                            js::nameOf(scope.kind(*promise)));
        }
        return whenSettled(scope, *promise, std::move(fulfilled), std::move(rejected));
    };
    if (const auto asked = ask(); !asked) {
        scope.context().reportUncaught(scope, asked.error());
    }
}

} // namespace zem
