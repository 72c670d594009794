#pragma once

#include <atomic>

namespace zem {

/// How much ZEM traces, for the whole process.
struct Logging {
    /// Ordered: what a level traces, every higher one traces too.
    enum class TraceLevel { off, standard, detailed };

    /// The host may lower or raise it at any time, from any thread. The store's log is opened, or
    /// left disabled for good, at the level that holds on the first store call; the transaction
    /// events look at it each time.
    static std::atomic<TraceLevel> traceLevel;
};

} // namespace zem
