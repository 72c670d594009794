#include <zem/Core/SharedPriorityQueue.h>

namespace zem {

const std::shared_ptr<platform::OperationQueue>& SharedPriorityQueue::priority() {
    static const auto& queue = *new std::shared_ptr<platform::OperationQueue>(
        platform::OperationQueue::create(maxConcurrentOperationCount));
    return queue;
}

} // namespace zem
