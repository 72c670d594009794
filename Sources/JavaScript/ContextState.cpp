#include <zem/JavaScript/Private/ContextState.h>
#include <zem/JavaScript/Private/PackingScript.h>
#include <zem/JavaScript/Private/Symbol.h>
#include <zem/JavaScript/Private/Text.h>
#include <zem/Platform/Queue.h>

#include <cassert>
#include <utility>

namespace zem::js {

namespace {

using Bodies = std::vector<std::unique_ptr<FunctionBody>>;

// The entries of this thread, innermost first.
thread_local Entry* innermost = nullptr;

// Where the closures go whose context this thread is just letting go of.
thread_local Bodies* lastBodies = nullptr;

// True while the engine, in the middle of a collection, has this thread finalise a function.
thread_local bool isFinalising = false;

JSObjectRef functionOf(JSGlobalContextRef global, JSObjectRef holder, const char* name) {
    const EngineString text(makeString(name));
    JSValueRef thrown = nullptr;
    JSValueRef value = JSObjectGetProperty(global, holder, text.get(), &thrown);
    if (thrown != nullptr || !JSValueIsObject(global, value)) {
        return nullptr;
    }
    const JSObjectRef object = const_cast<JSObjectRef>(value);
    return JSObjectIsFunction(global, object) ? object : nullptr;
}

JSObjectRef evaluateFunction(JSGlobalContextRef global, const char* source) {
    const EngineString text(makeString(source));
    JSValueRef function = JSEvaluateScript(global, text.get(), nullptr, nullptr, 1, nullptr);
    return const_cast<JSObjectRef>(function);
}

Intrinsics takeIntrinsics(JSGlobalContextRef global) {
    Intrinsics taken;
    taken.functionPrototype = const_cast<JSObjectRef>(
        JSObjectGetPrototype(global, evaluateFunction(global, "(function () {})")));
    taken.pack = evaluateFunction(global, packingScript);
    JSObjectRef globals = JSContextGetGlobalObject(global);
    taken.typeError = functionOf(global, globals, "TypeError");
    taken.rangeError = functionOf(global, globals, "RangeError");
    taken.string = functionOf(global, globals, "String");
    if (JSObjectRef object = functionOf(global, globals, "Object")) {
        taken.objectKeys = functionOf(global, object, "keys");
    }
    if (JSObjectRef array = functionOf(global, globals, "Array")) {
        taken.isArray = functionOf(global, array, "isArray");
    }
    for (JSObjectRef object : {taken.functionPrototype, taken.typeError, taken.rangeError,
                               taken.string, taken.objectKeys, taken.isArray, taken.pack}) {
        if (object != nullptr) {
            JSValueProtect(global, object);
        }
    }
    return taken;
}

void dropIntrinsics(JSGlobalContextRef global, const Intrinsics& taken) {
    for (JSObjectRef object : {taken.functionPrototype, taken.typeError, taken.rangeError,
                               taken.string, taken.objectKeys, taken.isArray, taken.pack}) {
        if (object != nullptr) {
            JSValueUnprotect(global, object);
        }
    }
}

/// The tasks of a run loop's thread as a queue.
class RunLoopLane final : public platform::Queue {
  public:
    explicit RunLoopLane(std::shared_ptr<platform::RunLoop> runLoop)
        : runLoop(std::move(runLoop)) {}
    void async(platform::Task task) override { runLoop->perform(std::move(task)); }

  private:
    const std::shared_ptr<platform::RunLoop> runLoop;
};

std::shared_ptr<platform::Queue> makeLane(const std::shared_ptr<platform::RunLoop>& home) {
    if (home != nullptr) {
        return std::make_shared<RunLoopLane>(home);
    }
    return platform::SerialQueue::create("com.quorvane.zem.JavaScript");
}

using ShouldTerminate = bool (*)(JSContextRef, void*);
using SetExecutionTimeLimit = void (*)(JSContextGroupRef, double, ShouldTerminate, void*);
using ClearExecutionTimeLimit = void (*)(JSContextGroupRef);

constexpr double interruptCheckSeconds = 0.05;

bool askShouldStop(JSContextRef, void* data) noexcept {
    auto* state = static_cast<ContextState*>(data);
    if (state->shouldStop()) {
        return true;
    }
    // The engine asks once; it has to be told to ask again.
    setInterruptible(state->global, state);
    return false;
}

} // namespace

bool setInterruptible(JSGlobalContextRef global, ContextState* state) {
    static const auto setLimit =
        engineSymbol<SetExecutionTimeLimit>("JSContextGroupSetExecutionTimeLimit");
    static const auto clearLimit =
        engineSymbol<ClearExecutionTimeLimit>("JSContextGroupClearExecutionTimeLimit");
    if (setLimit == nullptr || clearLimit == nullptr) {
        return false;
    }
    if (state != nullptr) {
        setLimit(JSContextGetGroup(global), interruptCheckSeconds, askShouldStop, state);
    } else {
        clearLimit(JSContextGetGroup(global));
    }
    return true;
}

ContextState::ContextState(JSGlobalContextRef global, std::shared_ptr<platform::RunLoop> home)
    : global(global)
    , door(Door::of(JSContextGetGroup(global)))
    , home(std::move(home))
    , lane(makeLane(this->home)) {
    const std::scoped_lock behindDoor(*door);
    intrinsics = takeIntrinsics(global);
}

ContextState::~ContextState() {
    assert(handles == 0);
    // The engine may finalise its functions here. Their closures are destroyed when it has done.
    Bodies last;
    const std::scoped_lock behindDoor(*door);
    if (interruptHandler != nullptr) {
        setInterruptible(global, nullptr);
    }
    dropIntrinsics(global, intrinsics);
    drainReleased();
    lastBodies = &last;
    JSGlobalContextRelease(global);
    lastBodies = nullptr;
}

void ContextState::release(JSValueRef value) {
    if (isEntered()) {
        JSValueUnprotect(global, value);
        return;
    }
    bool isFirst = false;
    {
        platform::Lock lock(releaseMutex);
        releasedValues.push_back(value);
        isFirst = !anyReleased.exchange(true);
    }
    if (isFirst) {
        drainOnHomeThread();
    }
}

void ContextState::releaseCollected(std::unique_ptr<FunctionBody> body) {
    isFinalising = true;
    putOnReleaseList(std::move(body));
    isFinalising = false;
}

void ContextState::putOnReleaseList(std::unique_ptr<FunctionBody> body) {
    const std::shared_ptr<ContextState> state = body->state.lock();
    if (state == nullptr) {
        if (lastBodies != nullptr) {
            lastBodies->push_back(std::move(body));
        } else {
            // An adopted context that has outlived us. What the closure drops must not run in the
            // middle of a collection.
            platform::globalQueue(platform::QualityOfService::utility)
                .async([body = std::move(body)] {});
        }
        return;
    }
    bool isFirst = false;
    {
        platform::Lock lock(state->releaseMutex);
        state->releasedBodies.push_back(std::move(body));
        isFirst = !state->anyReleased.exchange(true);
    }
    if (isFirst && !state->isEntered()) {
        state->drainOnHomeThread();
    }
}

void ContextState::drainOnHomeThread() {
    // A bound context has a thread that can see to it now; an inline one waits for its next entry.
    if (home == nullptr) {
        return;
    }
    if (auto self = weak_from_this().lock()) {
        home->perform([self = std::move(self)]() mutable { Entry entry(std::move(self)); });
    }
}

void ContextState::drainReleased() {
    while (hasReleased()) {
        std::vector<JSValueRef> values;
        Bodies bodies;
        {
            platform::Lock lock(releaseMutex);
            values.swap(releasedValues);
            bodies.swap(releasedBodies);
            anyReleased = false;
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

bool ContextState::isEnteredFromAnotherEngine() const {
    for (const Entry* entry = innermost; entry != nullptr; entry = entry->outer) {
        if (entry->state->door == door) {
            return false;
        }
    }
    return innermost != nullptr;
}

bool ContextState::shouldStop() {
    std::shared_ptr<const std::function<bool()>> handler;
    {
        platform::Lock lock(mutex);
        handler = interruptHandler;
    }
    if (handler == nullptr || !(*handler)()) {
        return false;
    }
    stopped = true;
    return true;
}

JSValueRef ContextState::takePending() {
    // A step that cannot throw by itself.
    JSValueRef thrown = nullptr;
    JSObjectGetPropertyAtIndex(global, intrinsics.functionPrototype, 0, &thrown);
    return thrown;
}

std::shared_ptr<ContextState> shareState(JSGlobalContextRef global,
                                         std::shared_ptr<platform::RunLoop> home) {
    const auto destroy = [](ContextState* state) {
        std::unique_ptr<ContextState> owned(state);
        if (state->home == nullptr) {
            if (isFinalising) {
                platform::globalQueue(platform::QualityOfService::utility)
                    .async([owned = std::move(owned)] {});
            }
            return;
        }
        if (state->home->isCurrent() && !isFinalising) {
            return;
        }
        // The task must not keep the run loop alive that it waits in: a run loop that is destroyed
        // without running it destroys the task, and the state with it.
        auto thread = std::move(state->home);
        thread->perform([owned = std::move(owned)] {});
    };
    return {new ContextState(global, std::move(home)), destroy};
}

Entry::Entry(std::shared_ptr<ContextState> state, By by)
    : state(std::move(state))
    , by(by)
    , outer(innermost)
    , entered(this->state->scope()) {
    platform::Mutex::assertNoneHeld("entering the engine");
    if (by == By::perform) {
        this->state->door->lock();
    }
    innermost = this;
    if (this->state->hasReleased()) {
        this->state->drainReleased();
    }
}

Entry::~Entry() {
    state->settle();
    // The next entry may be far away: handles dropped by a collection meanwhile are freed now.
    if (state->hasReleased()) {
        state->drainReleased();
    }
    innermost = outer;
    if (by == By::perform) {
        state->door->unlock();
    }
}

} // namespace zem::js
