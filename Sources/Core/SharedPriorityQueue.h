#pragma once

// The queue that all adapter calls of the process share.

#include <zem/Platform/Operation.h>

#include <cstddef>
#include <memory>

namespace zem {

struct SharedPriorityQueue {
    static constexpr std::size_t maxConcurrentOperationCount = 5;

    /// Made on first use, never destroyed.
    static const std::shared_ptr<platform::OperationQueue>& priority();
};

} // namespace zem
