#pragma once

// Why a value could not be decoded: where, what was expected and what kind was found. Values
// themselves are never named; they may be private.

#include <zem/JavaScript/Value.h>

#include <cstddef>
#include <expected>
#include <string>
#include <string_view>

namespace tessel {

/// How deep arrays and objects may lie in one another, so that a value from outside cannot exhaust
/// the stack.
inline constexpr std::size_t deepestNesting = 512;

struct DecodingError {
    /// From the decoded value inward, "[3].keyColumn"; empty for the value itself.
    std::string path;
    std::string message;

    /// "nested deeper than 512 levels".
    static DecodingError tooDeep();
    static DecodingError mismatch(std::string_view expected, zem::js::Kind found);

    /// The same error seen from the array or the record that holds the value.
    DecodingError inElement(std::size_t index) &&;
    DecodingError inField(std::string_view name) &&;

    /// "[3].keyColumn: expected a string, found a number".
    std::string description() const;

    bool operator==(const DecodingError&) const = default;
};

template <class T>
using Decoded = std::expected<T, DecodingError>;

} // namespace tessel
