#include <zem/JavaScript/Private/ContextState.h>
#include <zem/JavaScript/Private/Text.h>
#include <zem/JavaScript/Private/ThreadSanitizer.h>

#include <cassert>
#include <utility>

namespace zem::js {

namespace {

// The entries of this thread, innermost first.
thread_local Entry* innermost = nullptr;

} // namespace

ContextState::ContextState(JSGlobalContextRef global, std::shared_ptr<platform::RunLoop> home)
    : global(global)
    , home(std::move(home)) {
    const EngineString function(makeString("Function"));
    const EngineString prototype(makeString("prototype"));
    JSValueRef constructor =
        JSObjectGetProperty(global, JSContextGetGlobalObject(global), function.get(), nullptr);
    functionPrototype = const_cast<JSObjectRef>(JSObjectGetProperty(
        global, const_cast<JSObjectRef>(constructor), prototype.get(), nullptr));
    JSValueProtect(global, functionPrototype);
}

ContextState::~ContextState() {
    assert(handles == 0);
    JSValueUnprotect(global, functionPrototype);
    drainReleased();
    // The engine may finalise its functions here; their bodies find this state gone already and are
    // destroyed at once.
    JSGlobalContextRelease(global);
}

void ContextState::release(JSValueRef value) {
    if (isEntered()) {
        JSValueUnprotect(global, value);
        return;
    }
    bool wasEmpty = false;
    {
        platform::Lock lock(releaseMutex);
        wasEmpty = !hasReleased.exchange(true);
        releasedValues.push_back(value);
    }
    // A bound context has a thread that can see to it now; an inline one waits for its next entry.
    if (wasEmpty && home != nullptr) {
        if (auto self = weak_from_this().lock()) {
            home->perform([self = std::move(self)]() mutable { Entry entry(std::move(self)); });
        }
    }
}

void ContextState::release(std::unique_ptr<FunctionBody> body) {
    platform::Lock lock(releaseMutex);
    hasReleased = true;
    releasedBodies.push_back(std::move(body));
}

void ContextState::drainReleased() {
    while (hasReleased.load(std::memory_order_relaxed)) {
        std::vector<JSValueRef> values;
        std::vector<std::unique_ptr<FunctionBody>> bodies;
        {
            platform::Lock lock(releaseMutex);
            values.swap(releasedValues);
            bodies.swap(releasedBodies);
            hasReleased = false;
        }
        for (JSValueRef value : values) {
            JSValueUnprotect(global, value);
        }
    }
}

bool ContextState::isEntered() const {
    for (const Entry* entry = innermost; entry != nullptr; entry = entry->outer) {
        if (entry->state.get() == this) {
            return true;
        }
    }
    return false;
}

std::shared_ptr<ContextState> shareState(JSGlobalContextRef global,
                                         std::shared_ptr<platform::RunLoop> home) {
    const auto destroy = [](ContextState* state) {
        std::unique_ptr<ContextState> owned(state);
        if (state->home == nullptr || state->home->isCurrent()) {
            return;
        }
        // The task must not keep the run loop alive that it waits in: a run loop that is destroyed
        // without running it destroys the task, and the state with it.
        auto thread = std::move(state->home);
        thread->perform([owned = std::move(owned)] {});
    };
    return {new ContextState(global, std::move(home)), destroy};
}

Entry::Entry(std::shared_ptr<ContextState> state)
    : state(std::move(state))
    , outer(innermost)
    , entered(this->state->scope()) {
    platform::Mutex::assertNoneHeld("entering the engine");
    acquireForThreadSanitizer(this->state.get());
    innermost = this;
    if (this->state->hasReleased.load(std::memory_order_relaxed)) {
        this->state->drainReleased();
    }
}

Entry::~Entry() {
    innermost = outer;
    releaseForThreadSanitizer(state.get());
}

} // namespace zem::js
