#pragma once

// The bridge's tests share a context, a connection, and short ways to send values across in both
// directions.

#include <zem/JavaScript/Context.h>
#include <zem/Tessel/Connection.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <optional>
#include <string>
#include <string_view>

namespace test {

class Bridge : public testing::Test {
  protected:
    /// The script's value as text, or "threw " and the exception's text.
    std::string eval(std::string_view script) const {
        return context.perform([&](zem::js::Scope& scope) -> std::string {
            const auto value = scope.evaluate(script, "test.js");
            return value ? scope.describe(*value) : "threw " + value.error().text();
        });
    }

    /// The script's value as a T.
    template <class T>
    tessel::Decoded<T> decoded(std::string_view script) const {
        return context.perform([&](zem::js::Scope& scope) -> tessel::Decoded<T> {
            const auto value = scope.evaluate(script, "test.js");
            if (!value) {
                throw std::runtime_error(value.error().text());
            }
            return tessel::decodeValue<T>(scope, *value);
        });
    }

    /// Why the script's value is no T.
    template <class T>
    std::string failure(std::string_view script) const {
        const tessel::Decoded<T> outcome = decoded<T>(script);
        return outcome ? "it was decoded" : outcome.error().description();
    }

    /// The script's value as text; the script finds the encoded T in its global `value`.
    template <class T>
    std::string written(const T& value, std::string_view script = "JSON.stringify(value)") const {
        context.perform([&](zem::js::Scope& scope) {
            (void)scope.set(scope.global(), "value", tessel::encodeValue(scope, value));
        });
        return eval(script);
    }

    zem::js::Context context = makeContext();
    std::optional<tessel::Connection> connection{context};
};

} // namespace test
