#pragma once

// What stands behind a Context: the engine's reference, the way in, and the list of what has to be
// let go of at the next entry.

#include <zem/JavaScript/Context.h>
#include <zem/Platform/Mutex.h>

#include <JavaScriptCore/JavaScript.h>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace zem::js {

/// A native function's closure, owned by the engine's function object until that is collected.
struct FunctionBody {
    std::weak_ptr<ContextState> state;
    NativeFunction body;
};

class ContextState : public std::enable_shared_from_this<ContextState> {
  public:
    /// Takes over one retain of `global`.
    ContextState(JSGlobalContextRef global, std::shared_ptr<platform::RunLoop> home);

    /// Lets go of the engine's context. A bound one only on its own thread, or when that has ended.
    ~ContextState();

    ContextState(const ContextState&) = delete;
    ContextState& operator=(const ContextState&) = delete;

    /// Any thread, a collector's too.
    void release(JSValueRef value);
    void release(std::unique_ptr<FunctionBody> body);

    /// Inside the engine only.
    void drainReleased();

    bool isEntered() const;

    Scope scope() { return Scope(*this, global); }

    const JSGlobalContextRef global;
    /// Null for a context that is entered inline.
    std::shared_ptr<platform::RunLoop> home;
    /// The prototype of native functions; protected.
    JSObjectRef functionPrototype = nullptr;
    std::atomic<std::size_t> handles = 0;

    platform::Mutex mutex;
    std::shared_ptr<const std::function<void(Scope&, const Exception&)>> uncaughtHandler;
    /// Written once, before anything can be interrupted.
    std::function<bool()> shouldStop;

  private:
    friend class Entry;
    platform::Mutex releaseMutex;
    std::vector<JSValueRef> releasedValues;
    std::vector<std::unique_ptr<FunctionBody>> releasedBodies;
    std::atomic<bool> hasReleased = false;
};

/// Shares a new state in a way that destroys it on its home thread.
std::shared_ptr<ContextState> shareState(JSGlobalContextRef global,
                                         std::shared_ptr<platform::RunLoop> home);

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

} // namespace zem::js
