#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>

#include <memory>
#include <utility>

namespace zem::platform {

namespace {

class MainQueue final : public Queue {
  public:
    void async(Task task) override { RunLoop::main()->perform(std::move(task)); }
};

} // namespace

const std::shared_ptr<Queue>& mainQueue() {
    static const auto& queue = *new std::shared_ptr<Queue>(std::make_shared<MainQueue>());
    return queue;
}

} // namespace zem::platform
