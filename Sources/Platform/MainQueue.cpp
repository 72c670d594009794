#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>

#include <utility>

namespace zem::platform {

namespace {

class MainQueue final : public Queue {
  public:
    void async(Task task) override { RunLoop::main()->perform(std::move(task)); }
};

} // namespace

Queue& mainQueue() {
    static MainQueue& queue = *new MainQueue();
    return queue;
}

} // namespace zem::platform
