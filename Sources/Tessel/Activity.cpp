#include <zem/Tessel/Activity.h>

namespace tessel {

std::size_t Activity::outstanding() const {
    const zem::platform::Lock lock(mutex);
    return count;
}

void Activity::setIdleHandler(std::function<void()> handler) {
    auto shared = std::make_shared<const std::function<void()>>(std::move(handler));
    const zem::platform::Lock lock(mutex);
    idleHandler.swap(shared);
}

void Activity::begin() {
    const zem::platform::Lock lock(mutex);
    ++count;
}

void Activity::end() {
    std::shared_ptr<const std::function<void()>> handler;
    {
        const zem::platform::Lock lock(mutex);
        if (--count == 0) {
            handler = idleHandler;
        }
    }
    if (handler != nullptr && *handler) {
        zem::platform::Mutex::assertNoneHeld("telling that nothing is outstanding");
        (*handler)();
    }
}

} // namespace tessel
