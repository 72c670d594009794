#pragma once

// A key or salt that cannot be used. The text says what was expected and how much was found, never
// what the bytes were.

#include <stdexcept>

namespace zem {

class SQLiteSecretError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace zem
