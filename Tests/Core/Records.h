#pragma once

// Checks for every record that crosses the bridge.

#include <zem/JavaScript/Context.h>
#include <zem/Tessel/JSON.h>
#include <zem/Tessel/JSValueCoder.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <string>
#include <string_view>
#include <vector>

namespace test {

/// The JSON text of what the engine gets.
template <class T>
std::string writtenToEngine(const zem::js::Context& context, const T& value) {
    return context.perform([&](zem::js::Scope& scope) {
        return scope.stringify(tessel::encodeValue(scope, value)).value().value();
    });
}

/// Checks that `value` is written as `json`, with these keys in this order, as engine value and as
/// JSON, and that it is read back from both as it was.
template <class T>
void expectCrossesAs(const zem::js::Context& context, const T& value, std::string_view json) {
    EXPECT_EQ(writtenToEngine(context, value), json);
    EXPECT_EQ(tessel::toText(tessel::toAny(value)), json);
    EXPECT_EQ(context.perform([&](zem::js::Scope& scope) {
        return tessel::decodeValue<T>(scope, tessel::encodeValue(scope, value));
    }),
              tessel::Decoded<T>(value));
    EXPECT_EQ(tessel::fromAny<T>(tessel::parse(json).value()), tessel::Decoded<T>(value));
}

/// The value of a script as a T.
template <class T>
tessel::Decoded<T> decoded(const zem::js::Context& context, std::string_view script) {
    return context.perform([&](zem::js::Scope& scope) {
        return tessel::decodeValue<T>(scope, scope.evaluate(script, "test.js").value());
    });
}

/// Checks that no two of these are equal, and each is to its copy.
template <class T>
void expectAllDiffer(const std::vector<T>& values) {
    for (std::size_t left = 0; left < values.size(); ++left) {
        for (std::size_t right = 0; right < values.size(); ++right) {
            EXPECT_EQ(values[left] == T(values[right]), left == right) << left << " and " << right;
        }
    }
}

} // namespace test
