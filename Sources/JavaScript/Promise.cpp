#include <zem/JavaScript/Promise.h>

#include <array>
#include <cstddef>
#include <string>
#include <utility>

namespace zem::js {

namespace {

const Name& thenName() {
    static const Name name("then");
    return name;
}

Local makeFunction(Scope& scope, const char* name, SettledFunction settled) {
    return scope.function(
        name, 1, [settled = std::move(settled)](Scope& inner, Local, Arguments arguments) mutable {
            settled(inner, arguments.empty() ? inner.undefined() : arguments[0]);
            return inner.undefined();
        });
}

} // namespace

Result<bool> isPromise(Scope& scope, Local answer) {
    return scope.isObject(answer) ? scope.has(answer, thenName()) : false;
}

Result<bool> whenSettled(Scope& scope, Local answer, SettledFunction fulfilled,
                         SettledFunction rejected) {
    if (!scope.isObject(answer)) {
        return false;
    }
    const Result<Local> then = scope.get(answer, thenName());
    if (!then) {
        return std::unexpected(then.error());
    }
    const Kind kind = scope.kind(*then);
    if (kind == Kind::undefined) {
        return false;
    }
    if (kind != Kind::function) {
        return scope.fail(ErrorType::typeError,
                          std::string("then: expected a function, found ") + nameOf(kind));
    }
    // Made only for a "then" that takes them: the engine would keep unused ones alive.
    std::array<Local, 2> functions{makeFunction(scope, "fulfilled", std::move(fulfilled))};
    std::size_t count = 1;
    if (rejected) {
        functions[count++] = makeFunction(scope, "rejected", std::move(rejected));
    }
    const Result<Local> called = scope.call(*then, Arguments(functions.data(), count), answer);
    if (!called) {
        return std::unexpected(called.error());
    }
    return true;
}

} // namespace zem::js
