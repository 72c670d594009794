#pragma once

// A JavaScript function that native code calls with native values.

#include <zem/JavaScript/Context.h>
#include <zem/Tessel/Activity.h>
#include <zem/Tessel/JSValueCoder.h>

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>

namespace tessel {

/// Copies share the function. May be called, copied and dropped on any thread, any number of times;
/// it may be called after the plugin is gone.
///
/// A call encodes its arguments and calls the function: before returning where the context is
/// entered inline, else later on the context's thread, in the order of the calls; it never waits
/// for running JavaScript there. An exception that the function throws goes to the context's
/// uncaught handler. One that holds no function throws std::bad_function_call.
///
/// While a copy lives, the connection counts one piece of outstanding work; `asListener` gives a
/// copy that does not count, for functions that are registered for good.
template <class... Arguments>
class Callback {
  public:
    Callback() = default;
    Callback(zem::js::Function function, std::shared_ptr<ActivityToken> token)
        : function(std::move(function))
        , token(std::move(token)) {}

    explicit operator bool() const { return static_cast<bool>(function); }

    void operator()(Arguments... arguments) const& { Callback(*this).callLast(arguments...); }

    /// The same as this copy's last call: the function goes with it, and what is let go of is let
    /// go of inside the engine. A copy that is called and dropped elsewhere makes the engine's
    /// thread wake twice. The copy holds nothing afterwards.
    void operator()(Arguments... arguments) && { std::move(*this).callLast(arguments...); }

    /// Calls the function before returning. Only on a thread that is inside the engine, as that of
    /// a bound method is: any other would wait for running JavaScript.
    void callNow(const Arguments&... arguments) const {
        if (!function) {
            throw std::bad_function_call();
        }
        function.context().perform([&](zem::js::Scope& scope) {
            call(
                scope, function,
                std::array<zem::js::Local, sizeof...(Arguments)>{encodeValue(scope, arguments)...});
        });
    }

    /// The last call, before returning. Only from a task of the context's lane: any other thread
    /// would wait for running JavaScript. The copy holds nothing after the call. Does nothing if
    /// the context's thread has ended, as a posted call then does.
    void callInLane(Arguments... arguments) && {
        if (!function) {
            throw std::bad_function_call();
        }
        const zem::js::Context context = function.context();
        // Outlives the promise jobs, which run when the engine is left and may begin other work.
        const std::shared_ptr<ActivityToken> working = token;
        try {
            context.perform([&](zem::js::Scope& scope) {
                const zem::js::Sequence sequence(scope);
                const Callback last = std::move(*this);
                call(scope, last.function,
                     std::array<zem::js::Local, sizeof...(Arguments)>{
                         encodeValue(scope, arguments)...});
            });
        } catch (const zem::js::ThreadEnded&) {
        }
    }

    /// A last call with arguments that are made inside the engine: `make(Scope&)` gives an array of
    /// engine values. What `make` holds is let go of there, too.
    template <class Make>
    void callWith(Make make) && {
        if (!function) {
            throw std::bad_function_call();
        }
        const zem::js::Context context = function.context();
        context.async(
            [called = std::move(*this), make = std::move(make)](zem::js::Scope& scope) mutable {
                // Both end before the engine is left.
                const Callback last = std::move(called);
                Make making = std::move(make);
                call(scope, last.function, making(scope));
            });
    }

    /// Calls the function with arguments that are engine values already, inside the engine.
    static void call(zem::js::Scope& scope, const zem::js::Function& function,
                     zem::js::Arguments arguments) {
        if (const auto answer = function.call(scope, arguments); !answer) {
            scope.context().reportUncaught(scope, answer.error());
        }
    }

    Callback asListener() const { return Callback(function, nullptr); }

    const zem::js::Function& target() const { return function; }

  private:
    void callLast(Arguments&... arguments) && {
        std::move(*this).callWith(
            [held = std::tuple<Arguments...>(std::move(arguments)...)](zem::js::Scope& scope) {
                return std::apply(
                    [&](const Arguments&... values) {
                        return std::array<zem::js::Local, sizeof...(Arguments)>{
                            encodeValue(scope, values)...};
                    },
                    held);
            });
    }

    zem::js::Function function;
    std::shared_ptr<ActivityToken> token;
};

template <class... Arguments>
struct Coding<Callback<Arguments...>> {
    static constexpr std::string_view expected = "a function";

    static Decoded<Callback<Arguments...>> decode(const JSValueDecoder& value) {
        std::optional<zem::js::Function> function =
            zem::js::Function::from(value.scope(), value.local());
        if (!function) {
            return std::unexpected(DecodingError::mismatch(expected, value.kind()));
        }
        std::shared_ptr<ActivityToken> token;
        if (value.activity() != nullptr) {
            token = std::make_shared<ActivityToken>(*value.activity());
        }
        return Callback<Arguments...>(std::move(*function), std::move(token));
    }
};

} // namespace tessel
