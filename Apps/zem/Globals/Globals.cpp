#include "Globals.h"

#include "Process/Output.h"
#include <zem/Platform/Bytes.h>
#include <zem/Platform/Random.h>
#include <zem/Platform/UUID.h>

#include <fmt/format.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace zem::host {

extern const std::string_view globalsScript;

namespace {

template <class T>
T expectDone(js::Result<T> result) {
    if (!result) {
        throw std::runtime_error(fmt::format("the globals' script fails: {}: {}",
                                             result.error().place(), result.error().text()));
    }
    if constexpr (!std::is_void_v<T>) {
        return *std::move(result);
    }
}

/// Builds the object with the native functions of the script. They do not check their arguments:
/// the script alone has the object.
class Natives {
  public:
    explicit Natives(js::Scope& scope)
        : scope(scope)
        , object(scope.object()) {}

    void value(std::string_view name, js::Local local) {
        expectDone(scope.set(object, name, local));
    }

    /// `body(Scope&, Arguments)` returns a Local, or nothing.
    template <class Body>
    void function(std::string_view name, unsigned length, Body body) {
        value(name,
              scope.function(name, length,
                             [body = std::move(body)](
                                 js::Scope& inner, js::Local,
                                 js::Arguments arguments) mutable -> js::Result<js::Local> {
                                 if constexpr (std::is_void_v<decltype(body(inner, arguments))>) {
                                     body(inner, arguments);
                                     return inner.undefined();
                                 } else {
                                     return body(inner, arguments);
                                 }
                             }));
    }

    js::Local made() const { return object; }

  private:
    js::Scope& scope;
    js::Local object;
};

std::uint64_t toId(js::Scope& scope, js::Local value) {
    return static_cast<std::uint64_t>(scope.toNumber(value));
}

js::Function functionOf(js::Scope& scope, js::Local object, std::string_view name) {
    const auto function = js::Function::from(scope, expectDone(scope.get(object, name)));
    if (!function) {
        throw std::runtime_error(fmt::format("the globals' script makes no {}", name));
    }
    return *function;
}

/// The part itself, or the reason why it cannot be used.
RuntimeParts::Part partOf(js::Scope& scope, js::Local value) {
    if (scope.kind(value) == js::Kind::string) {
        return std::unexpected(scope.toText(value));
    }
    return scope.keep(value);
}

double millisecondsSince1970() {
    return std::chrono::duration<double, std::milli>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

} // namespace

Globals::Globals(js::Scope& scope, Run given) {
    const auto run = std::make_shared<const Run>(std::move(given));
    Natives natives(scope);
    natives.value("json", scope.boolean(run->json));
    const js::Local arguments = scope.array();
    for (unsigned index = 0; const std::string& argument : run->arguments) {
        expectDone(scope.setAt(arguments, index++, scope.string(argument)));
    }
    natives.value("arguments", arguments);
    if (run->baseURL) {
        natives.value("baseURL", scope.string(*run->baseURL));
    }
    natives.value("timeOrigin", scope.number(millisecondsSince1970() - run->now()));
    natives.function("now", 0,
                     [run](js::Scope& inner, js::Arguments) { return inner.number(run->now()); });
    natives.function("write", 2, [](js::Scope& inner, js::Arguments values) {
        (inner.toBoolean(values[0]) ? printErrorLine : printLine)(inner.toText(values[1]));
    });
    natives.function("startTimer", 3, [run](js::Scope& inner, js::Arguments values) {
        run->startTimer(toId(inner, values[0]), inner.toNumber(values[1]),
                        inner.toBoolean(values[2]));
    });
    natives.function("stopTimer", 1, [run](js::Scope& inner, js::Arguments values) {
        run->stopTimer(toId(inner, values[0]));
    });
    natives.function("hold", 0, [run](js::Scope&, js::Arguments) { run->hold(); });
    natives.function("release", 0, [run](js::Scope&, js::Arguments) { run->release(); });
    natives.function("randomBytes", 1, [](js::Scope& inner, js::Arguments values) {
        platform::Bytes bytes(static_cast<std::size_t>(inner.toNumber(values[0])));
        platform::fillRandom(bytes);
        return inner.arrayBuffer(bytes);
    });
    natives.function("randomUUID", 0, [](js::Scope& inner, js::Arguments) {
        return inner.string(platform::makeUUID());
    });
    natives.function("exit", 1, [run](js::Scope& inner, js::Arguments values) {
        run->exit(static_cast<int>(inner.toNumber(values[0])));
    });
    natives.function("fail", 1, [run](js::Scope& inner, js::Arguments values) {
        run->fail(inner, inner.exception(values[0]));
    });

    natives.function("runtimePromised", 0,
                     [run](js::Scope&, js::Arguments) { run->runtimePromised(); });
    natives.function("runtimeArrived", 1, [run](js::Scope& inner, js::Arguments values) {
        run->runtimeArrived(
            {partOf(inner, values[0]), partOf(inner, values[1]), partOf(inner, values[2])});
    });
    natives.function("runtimeFailed", 1, [run](js::Scope& inner, js::Arguments values) {
        return inner.boolean(run->runtimeFailed(inner.toText(values[0])));
    });

    const js::Local install = expectDone(scope.evaluate(globalsScript, "zem:globals"));
    const js::Local made = expectDone(scope.call(install, {natives.made()}));
    addFunction = functionOf(scope, made, "addGlobal");
    watchRuntimeFunction = functionOf(scope, made, "watchRuntime");
    lookAtRuntimeFunction = functionOf(scope, made, "lookAtRuntime");
    showResultFunction = functionOf(scope, made, "showResult");
    fireTimerFunction = functionOf(scope, made, "fireTimer");
    describeUncaughtFunction = functionOf(scope, made, "describeUncaught");
}

bool Globals::add(js::Scope& scope, const std::string& name, js::Local value) const {
    const js::Local arguments[] = {scope.string(name), value};
    return scope.toBoolean(expectDone(addFunction.call(scope, arguments)));
}

void Globals::watchRuntime(js::Scope& scope) const {
    expectDone(watchRuntimeFunction.call(scope));
}

void Globals::lookAtRuntime(js::Scope& scope) const {
    // This fails only if the script is being stopped.
    static_cast<void>(lookAtRuntimeFunction.call(scope));
}

void Globals::evaluate(js::Scope& scope, std::string_view script, std::string_view source, int line,
                       std::function<void(EvalResult)> done) const {
    const js::Result<js::Local> outcome = scope.evaluate(script, source, line);
    const js::Local tell = scope.function(
        "done", 3,
        [done = std::move(done)](js::Scope& inner, js::Local,
                                 js::Arguments values) -> js::Result<js::Local> {
            done({inner.toBoolean(values[0]), inner.toText(values[1]), inner.toText(values[2])});
            return inner.undefined();
        });
    const js::Local arguments[] = {scope.boolean(!outcome),
                                   outcome ? *outcome : scope.local(outcome.error().value()), tell};
    // This fails only if the script is being stopped. Then no result is expected.
    static_cast<void>(showResultFunction.call(scope, arguments));
}

js::Result<js::Local> Globals::fireTimer(js::Scope& scope, std::uint64_t id) const {
    const js::Local argument = scope.number(static_cast<double>(id));
    return fireTimerFunction.call(scope, {&argument, 1});
}

std::string Globals::describeUncaught(js::Scope& scope, const js::Exception& exception,
                                      bool wasRejection) const {
    const js::Local arguments[] = {scope.local(exception.value()), scope.boolean(wasRejection)};
    const js::Result<js::Local> text = describeUncaughtFunction.call(scope, arguments);
    if (text && scope.kind(*text) == js::Kind::string) {
        return scope.toText(*text);
    }
    // A property of the value throws when it is read.
    const std::string place = exception.place();
    return fmt::format("{}{}Uncaught {}{}", place, place.empty() ? "" : ": ",
                       wasRejection ? "(in promise) " : "", exception.text());
}

} // namespace zem::host
