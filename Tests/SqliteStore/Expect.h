#pragma once

// Expecting a certain error.

#include <zem/SqliteStore/SQLiteResult.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>

namespace test {

/// The code of the SQLiteResult that `body` throws; nothing when it throws none. Other exceptions
/// pass through and fail the test.
template <class Body>
std::optional<std::int32_t> thrownCode(Body&& body) {
    try {
        body();
    } catch (const zem::SQLiteResult& result) {
        return result.rawValue;
    }
    return std::nullopt;
}

} // namespace test
