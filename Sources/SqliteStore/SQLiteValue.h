#pragma once

// The value that crosses between SQL and the JavaScript runtime.

#include <concepts>
#include <cstddef>
#include <exception>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace zem {

/// A tagged union: string (TEXT), number (INTEGER or REAL, always carried as a double), boolean
/// (bound as the integer 1 or 0, and read back as a number) or null. Equal when of the same case
/// with an equal payload. It is written as a literal: `SQLiteValue("key")`, `SQLiteValue(3)`,
/// `SQLiteValue(true)`, `SQLiteValue(nullptr)`.
class SQLiteValue {
  public:
    /// A JSON value that is no string, number, boolean or null: an array or an object.
    class DecodingError : public std::exception {
      public:
        const char* what() const noexcept override {
            return "not a string, a number, a boolean or null";
        }
        bool operator==(const DecodingError&) const { return true; }
    };

    using Union = std::variant<std::string, double, bool, std::nullptr_t>;

    SQLiteValue()
        : value(nullptr) {}
    SQLiteValue(std::nullptr_t)
        : value(nullptr) {}
    SQLiteValue(std::string text)
        : value(std::move(text)) {}
    SQLiteValue(std::string_view text)
        : value(std::string(text)) {}
    SQLiteValue(const char* text)
        : value(std::string(text)) {}
    // Templates, so that neither a pointer turns into a boolean nor a character into a number.
    template <std::same_as<bool> Boolean>
    SQLiteValue(Boolean boolean)
        : value(boolean) {}
    template <class Number>
        requires std::floating_point<Number> ||
                 (std::integral<Number> && !std::same_as<Number, bool> &&
                  !std::same_as<Number, char> && !std::same_as<Number, wchar_t> &&
                  !std::same_as<Number, char8_t> && !std::same_as<Number, char16_t> &&
                  !std::same_as<Number, char32_t>)
    SQLiteValue(Number number)
        : value(static_cast<double>(number)) {}

    /// The payload where the value is of that case, else null.
    const std::string* string() const { return std::get_if<std::string>(&value); }
    const double* number() const { return std::get_if<double>(&value); }
    const bool* boolean() const { return std::get_if<bool>(&value); }
    bool isNull() const { return std::holds_alternative<std::nullptr_t>(value); }

    bool operator==(const SQLiteValue&) const = default;

    Union value;
};

} // namespace zem
