#pragma once

// The result code of an SQLite call, which is also the error that is thrown for one that failed.

#include <concepts>
#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace zem {

class SQLiteResult : public std::exception {
  public:
    explicit SQLiteResult(std::int32_t code)
        : rawValue(code) {}

    /// Runs `body`, which returns a raw code, and wraps the code.
    template <std::invocable Body>
        requires std::convertible_to<std::invoke_result_t<Body>, std::int32_t>
    explicit SQLiteResult(Body&& body)
        : rawValue(std::forward<Body>(body)()) {}

    /// SQLite's own text for the code; "Unknown error" when that text is not valid UTF-8.
    std::string description() const;

    /// The description, for programs that print what was thrown.
    const char* what() const noexcept override;

    /// Throws this result unless it is SQLITE_OK (0).
    void expectOk() const {
        if (rawValue != 0) {
            throw *this;
        }
    }

    bool operator==(const SQLiteResult& other) const { return rawValue == other.rawValue; }

    std::int32_t rawValue;
};

} // namespace zem
