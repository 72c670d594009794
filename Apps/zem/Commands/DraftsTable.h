#pragma once

// The draft queue as people read it.

#include <zem/Core/DraftManagerState.h>

#include <cstdint>
#include <string>

namespace zem::host {

/// How long ago `timestamp` was, both in milliseconds since 1970: "5 s", "3 min", "2 h", "4 d". The
/// plain number if `timestamp` is negative or later than `now`.
std::string ageOf(std::int64_t timestamp, std::int64_t now);

/// The queue's state, and below it a row for each item, its age counted from `now`.
std::string describe(const DraftManagerState& state, std::int64_t now);

} // namespace zem::host
