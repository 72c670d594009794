#pragma once

// The state behind a Context: the engine's reference, the way in, and the list of handles that are
// freed at the next entry.

#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Private/Door.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/Queue.h>

#include <JavaScriptCore/JavaScript.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zem::js {

/// A native function's closure, owned by the engine's function object until that is collected.
struct FunctionBody {
    std::weak_ptr<ContextState> state;
    NativeFunction body;
    std::string name;
    unsigned length;
};

/// Built-in objects, taken when the context was: JavaScript may replace the globals later. All of
/// them are protected; all but the first are null where the context did not have them.
struct Intrinsics {
    JSObjectRef functionPrototype = nullptr;
    JSObjectRef typeError = nullptr;
    JSObjectRef rangeError = nullptr;
    JSObjectRef string = nullptr;
    JSObjectRef objectKeys = nullptr;
    JSObjectRef isArray = nullptr;
    JSObjectRef pack = nullptr;
};

class ContextState : public std::enable_shared_from_this<ContextState> {
  public:
    /// Takes over one retain of `global`.
    ContextState(JSGlobalContextRef global, std::shared_ptr<platform::RunLoop> home);

    /// Lets go of the engine's context, behind its door. A bound one only on its own thread, or
    /// when that has ended.
    ~ContextState();

    ContextState(const ContextState&) = delete;
    ContextState& operator=(const ContextState&) = delete;

    /// Any thread. Never waits for running JavaScript.
    void release(JSValueRef value);

    /// Takes the closure of a function that is being collected. Any thread; the engine is not
    /// entered.
    static void releaseCollected(std::unique_ptr<FunctionBody> body);

    /// Inside the engine only.
    void drainReleased();
    bool hasReleased() const { return anyReleased.load(std::memory_order_relaxed); }

    /// True when the calling thread is inside this context.
    bool isEntered() const;

    /// True when the calling thread is inside another engine and not inside this one: it keeps the
    /// other's door closed while it waits at this one's.
    bool isEnteredFromAnotherEngine() const;

    /// Asked by the engine while JavaScript runs.
    bool shouldStop();

    /// Takes an exception that the engine has left pending because no code could catch it: the next
    /// step would seem to throw it. Null if there is none. Inside the engine only.
    JSValueRef takePending();

    /// Picks up the end of a promise job that was stopped after its script.
    void settle() {
        if (stopped.exchange(false, std::memory_order_relaxed)) {
            takePending();
        }
    }

    Scope scope() { return Scope(*this, global); }

    const JSGlobalContextRef global;
    const std::shared_ptr<Door> door;
    /// Null for a context that is entered inline.
    std::shared_ptr<platform::RunLoop> home;
    const std::shared_ptr<platform::Queue> lane;
    Intrinsics intrinsics;
    std::atomic<std::size_t> handles = 0;

    platform::Mutex mutex;
    std::shared_ptr<const std::function<void(Scope&, const Exception&)>> uncaughtHandler;
    std::shared_ptr<const std::function<bool()>> interruptHandler;

  private:
    static void putOnReleaseList(std::unique_ptr<FunctionBody> body);
    void drainOnHomeThread();

    platform::Mutex releaseMutex;
    std::vector<JSValueRef> releasedValues;
    std::vector<std::unique_ptr<FunctionBody>> releasedBodies;
    std::atomic<bool> anyReleased = false;
    std::atomic<bool> stopped = false;
};

/// Shares a new state in a way that destroys it on its home thread.
std::shared_ptr<ContextState> shareState(JSGlobalContextRef global,
                                         std::shared_ptr<platform::RunLoop> home);

/// Sets or, with null, takes away the state that the engine asks whether to stop running scripts.
/// False where this engine cannot do it.
bool setInterruptible(JSGlobalContextRef global, ContextState* state);

inline JSContextRef engineContext(const void* engine) {
    return static_cast<JSContextRef>(engine);
}
inline JSValueRef engineValue(Local local) {
    return static_cast<JSValueRef>(local.get());
}
/// Only for what is known to be an object.
inline JSObjectRef engineObject(Local local) {
    return const_cast<JSObjectRef>(static_cast<JSValueRef>(local.get()));
}
inline const JSValueRef* engineValues(Arguments arguments) {
    return reinterpret_cast<const JSValueRef*>(arguments.data());
}
inline JSStringRef engineName(const Name& name) {
    return static_cast<JSStringRef>(name.get());
}

} // namespace zem::js
