#pragma once

// The queue on which the results of a data service reach the callers.

#include <zem/Platform/Queue.h>

#include <memory>

namespace zem {

inline std::shared_ptr<platform::SerialQueue> makeCallbackQueue() {
    return platform::SerialQueue::create("com.quorvane.data.service.callback-queue");
}

} // namespace zem
