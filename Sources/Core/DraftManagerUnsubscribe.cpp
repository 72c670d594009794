#include <zem/Core/DraftManagerUnsubscribe.h>
#include <zem/Core/Private/CallOut.h>

#include <utility>

namespace zem {

namespace {

constexpr const char* calledName = "a listener's unsubscribe callback";

} // namespace

DraftManagerUnsubscribe::DraftManagerUnsubscribe(std::function<void()> unsubscribe)
    : callback(std::move(unsubscribe)) {}

void DraftManagerUnsubscribe::unsubscribe() {
    std::function<void()> called;
    {
        const platform::Lock held(lock);
        wasUnsubscribed = true;
        called = callback;
    }
    callOut(calledName, called);
}

void DraftManagerUnsubscribe::setUnsubscribe(std::function<void()> value) {
    const platform::Lock held(lock);
    callback.swap(value);
}

bool DraftManagerUnsubscribe::move(std::function<void()> value) {
    std::function<void()> called;
    {
        const platform::Lock held(lock);
        called = callback;
    }
    callLogged(calledName, called);
    // Who unsubscribes from now on does so at the new place; who did before has called what has
    // just been called.
    const platform::Lock held(lock);
    callback.swap(value);
    return !wasUnsubscribed;
}

} // namespace zem
