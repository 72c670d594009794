#include "ClosableRunLoop.h"

#include <utility>

namespace zem::host {

ClosableRunLoop::ClosableRunLoop(std::shared_ptr<platform::RunLoop> loop)
    : loop(std::move(loop)) {}

void ClosableRunLoop::perform(platform::Task task) {
    loop->perform([task = std::move(task), closed = closed]() mutable {
        if (!*closed) {
            task();
        }
    });
}

std::unique_ptr<platform::Timer> ClosableRunLoop::scheduleTimer(platform::Seconds interval,
                                                                bool repeats,
                                                                std::function<void()> block) {
    return loop->scheduleTimer(interval, repeats, [block = std::move(block), closed = closed] {
        if (!*closed) {
            block();
        }
    });
}

} // namespace zem::host
