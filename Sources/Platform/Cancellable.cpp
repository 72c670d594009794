#include <zem/Platform/Cancellable.h>

#include <utility>

namespace zem::platform {

AnyCancellable::AnyCancellable(Task cancelling)
    : state(std::make_unique<State>()) {
    state->cancelling = std::move(cancelling);
}

AnyCancellable& AnyCancellable::operator=(AnyCancellable&& other) noexcept {
    const AnyCancellable replaced(std::move(*this));
    state = std::move(other.state);
    return *this;
}

AnyCancellable::~AnyCancellable() {
    cancel();
}

void AnyCancellable::cancel() noexcept {
    if (!state) {
        return;
    }
    Task taken;
    {
        Lock lock(state->mutex);
        taken.swap(state->cancelling);
    }
    if (taken) {
        Mutex::assertNoneHeld("something is cancelled");
        taken();
    }
}

} // namespace zem::platform
