#pragma once

// SQLite's own message for a call that fails. Callers of the store get an opaque text.

#include <cstdint>
#include <functional>
#include <string>

namespace zem {

/// `message` and `sql` may quote values.
struct SQLiteFailure {
    std::int32_t code = 0; ///< SQLite's result code
    std::string message;   ///< its text for this very call
    std::string sql;       ///< the statement
};

using SQLiteFailureHandler = std::function<void(const SQLiteFailure&)>;

} // namespace zem
