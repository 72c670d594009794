#include <zem/Core/Private/Promise.h>

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
    switch (scope.kind(answer)) {
    case js::Kind::object:
    case js::Kind::array:
    case js::Kind::function:
        return scope.has(answer, thenName()).value_or(false);
    default:
        return false;
    }
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

} // namespace zem
