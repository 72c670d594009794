#include <zem/Core/DraftManagerUnsubscribe.h>
#include <zem/Core/Private/CallOut.h>

#include <utility>

namespace zem {

namespace {

constexpr const char* calledName = "a listener's unsubscribe callback";

} // namespace

DraftManagerUnsubscribe::DraftManagerUnsubscribe(std::function<void()> unsubscribe)
    : callback(share(std::move(unsubscribe))) {}

DraftManagerUnsubscribe::Callback DraftManagerUnsubscribe::share(std::function<void()> callback) {
    return std::make_shared<const std::function<void()>>(std::move(callback));
}

void DraftManagerUnsubscribe::unsubscribe() {
    Callback called;
    {
        const platform::Lock held(lock);
        wasUnsubscribed = true;
        called = callback;
    }
    callOut(calledName, *called);
}

void DraftManagerUnsubscribe::setUnsubscribe(std::function<void()> value) {
    Callback replaced = share(std::move(value));
    const platform::Lock held(lock);
    callback.swap(replaced);
}

DraftManagerUnsubscribe::Moved DraftManagerUnsubscribe::move(std::function<void()> value) {
    Moved moved;
    moved.replaced = share(std::move(value));
    {
        const platform::Lock held(lock);
        moved.called = callback;
    }
    callLogged(calledName, *moved.called);
    // An unsubscription from now on calls the new callback; an earlier one has called the old.
    const platform::Lock held(lock);
    callback.swap(moved.replaced);
    moved.wasUnsubscribed = wasUnsubscribed;
    return moved;
}

} // namespace zem
