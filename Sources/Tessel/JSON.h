#pragma once

// The JSON lane: the any-value, its text, and the decoder and encoder of records from and to it.

#include <zem/Tessel/Coding.h>

#include <boost/json.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel {

/// Any JSON-compatible value; objects keep the order of their keys, integers stay integers.
using Any = boost::json::value;

class JSONDecoder {
  public:
    /// Null stands for an absent value.
    explicit JSONDecoder(const Any* value)
        : value(value) {}

    Kind kind() const;
    bool boolean() const { return value->get_bool(); }
    double number() const;
    std::optional<std::int64_t> integer() const;
    std::string text() const { return std::string(value->get_string()); }
    Decoded<std::size_t> count() const { return value->get_array().size(); }
    Decoded<JSONDecoder> element(std::size_t index) const {
        return JSONDecoder(&value->get_array()[index]);
    }
    Decoded<JSONDecoder> field(const FieldName& name) const { return field(name.text); }
    Decoded<JSONDecoder> field(std::string_view name) const {
        return JSONDecoder(value->get_object().if_contains(name));
    }
    bool isArray() const { return kind() == Kind::array; }
    /// Calls `visit(name, field)` for each entry of an object, up to the first failure.
    template <class Visit>
    Decoded<void> entries(const Visit& visit) const {
        for (const auto& entry : value->get_object()) {
            if (Decoded<void> visited =
                    visit(std::string(entry.key()), JSONDecoder(&entry.value()));
                !visited) {
                return visited;
            }
        }
        return {};
    }
    const Any& any() const { return *value; }

  private:
    const Any* value;
};

class JSONEncoder {
  public:
    using Output = Any;

    Any null() { return nullptr; }
    Any boolean(bool value) { return value; }
    Any number(double value) { return value; }
    Any integer(std::int64_t value) { return value; }
    Any text(std::string_view value) { return boost::json::string(value); }
    Any any(const Any& value) { return value; }

    class Object {
      public:
        void set(const FieldName& name, Any value) { set(name.text, std::move(value)); }
        void set(std::string_view name, Any value) { fields[name] = std::move(value); }
        Any finish() { return std::move(fields); }

      private:
        boost::json::object fields;
    };
    Object object() { return {}; }

    class Array {
      public:
        explicit Array(std::size_t count) { elements.reserve(count); }
        void add(Any value) { elements.push_back(std::move(value)); }
        Any finish() { return std::move(elements); }

      private:
        boost::json::array elements;
    };
    Array array(std::size_t count) { return Array(count); }
};

template <>
struct Coding<Any> {
    static constexpr std::string_view expected = "a JSON value";

    template <class D>
    static Decoded<Any> decode(const D& value) {
        if (value.kind() == Kind::undefined) {
            return std::unexpected(DecodingError::mismatch(expected, Kind::undefined));
        }
        return value.any();
    }

    template <class E>
    static typename E::Output encode(E& encoder, const Any& value) {
        return encoder.any(value);
    }
};

template <class T>
Any toAny(const T& value) {
    JSONEncoder encoder;
    return encode(encoder, value);
}

template <class T>
Decoded<T> fromAny(const Any& value) {
    return decode<T>(JSONDecoder(&value));
}

/// The text as people expect it: no spaces, keys in their order, and doubles as JavaScript prints
/// them, in the shortest form that reads back as the same number (2.5, 3, 1e-7), but -0 with its
/// sign. Numbers that JSON has no form for are null.
std::string toText(const Any& value);

/// The value of a JSON text, or what is wrong with it and at which byte. A number without fraction
/// and exponent that 64 bits hold is an integer, but -0 is a double; one too large for a double is
/// a mistake. Of equal keys the last value counts, at the first one's place. Escaped surrogates
/// without a partner become U+FFFD.
Decoded<Any> parse(std::string_view text);

} // namespace tessel
