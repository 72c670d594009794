#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Private/ContextState.h>
#include <zem/JavaScript/Private/HomeThread.h>
#include <zem/JavaScript/Private/Symbol.h>
#include <zem/Platform/Log.h>

#include <fmt/format.h>

#include <utility>

namespace zem::js {

namespace {

using SetRejectionCallback = void (*)(JSGlobalContextRef, JSObjectRef, JSValueRef*);
using CollectNow = void (*)(JSContextRef);
using VersionPart = unsigned (*)();
using InitializeMainThread = void (*)();
using DisableCollectionTimer = void (*)();

/// The engine collects by itself when it has been idle, from a timer on the run loop of the thread
/// that made the context. What that collection asks about the machine's memory needs the engine's
/// notion of a main thread, which the C API alone never sets up: without it the timer's first full
/// collection crashes. Where the set-up cannot be reached the timer is turned off, and the engine
/// collects only as it allocates. An application that runs more of the engine has set it up before,
/// and this does nothing.
void prepareEngine() {
    static const bool once = [] {
        if (const auto initialize =
                engineSymbol<InitializeMainThread>("_ZN3WTF20initializeMainThreadEv")) {
            initialize();
        } else if (const auto disable = engineSymbol<DisableCollectionTimer>("JSDisableGCTimer")) {
            disable();
        }
        return true;
    }();
    (void)once;
}

JSGlobalContextRef makeGlobalContext() {
    prepareEngine();
    return JSGlobalContextCreate(nullptr);
}

} // namespace

Context Context::create() {
    return Context(shareState(makeGlobalContext(), nullptr));
}

Context Context::create(std::shared_ptr<platform::RunLoop> home) {
    Context context;
    runAndWait(*home, [&] { context.state = shareState(makeGlobalContext(), home); });
    return context;
}

Context Context::adopt(void* globalContext, std::shared_ptr<platform::RunLoop> home) {
    JSGlobalContextRef global = static_cast<JSGlobalContextRef>(globalContext);
    Context context;
    const auto take = [&] {
        prepareEngine();
        const auto door = Door::of(JSContextGetGroup(global));
        const std::scoped_lock behindDoor(*door);
        context.state = shareState(JSGlobalContextRetain(global), home);
    };
    if (home == nullptr) {
        take();
    } else {
        runAndWait(*home, take);
    }
    return context;
}

bool Context::entersHere() const {
    return state->home == nullptr || state->home->isCurrent();
}

void Context::performOnHome(std::move_only_function<void(Scope&)> work) const {
    const auto enter = [this, &work] {
        Entry entry(state);
        work(entry.scope());
    };
    runAndWait(*state->home, enter, state->door.get());
}

bool Context::entersAtOnce() const {
    return state->home == nullptr && !state->isEnteredFromAnotherEngine();
}

const std::shared_ptr<platform::Queue>& Context::lane() const {
    return state->lane;
}

void Context::post(std::move_only_function<void(Scope&)> work) const {
    state->lane->async([state = state, work = std::move(work)]() mutable {
        Entry entry(std::move(state));
        work(entry.scope());
    });
}

bool Context::isEntered() const {
    return state->isEntered();
}

void Context::setUncaughtHandler(std::function<void(Scope&, const Exception&)> handler) const {
    auto shared =
        std::make_shared<const std::function<void(Scope&, const Exception&)>>(std::move(handler));
    platform::Lock lock(state->mutex);
    state->uncaughtHandler.swap(shared);
}

void Context::reportUncaught(Scope& scope, const Exception& exception) const {
    std::shared_ptr<const std::function<void(Scope&, const Exception&)>> handler;
    {
        platform::Lock lock(state->mutex);
        handler = state->uncaughtHandler;
    }
    if (handler != nullptr && *handler) {
        (*handler)(scope, exception);
        return;
    }
    static const auto& log = *new platform::Log("com.quorvane.ZEM", "JavaScript");
    log.error("uncaught exception in a callback: %{private}s", {exception.text()});
}

bool Context::setRejectionHandler(std::function<void(Scope&, const Exception&)> handler) const {
    static const auto setCallback =
        engineSymbol<SetRejectionCallback>("JSGlobalContextSetUnhandledRejectionCallback");
    if (setCallback == nullptr) {
        return false;
    }
    perform([&](Scope& scope) {
        const Local function = scope.function(
            "unhandledRejection", 2,
            [handler = std::move(handler)](Scope& inner, Local,
                                           Arguments arguments) -> Result<Local> {
                if (handler) {
                    handler(inner, inner.exception(arguments.size() > 1 ? arguments[1]
                                                                        : inner.undefined()));
                }
                return inner.undefined();
            });
        setCallback(state->global, engineObject(function), nullptr);
    });
    return true;
}

bool Context::setInterruptHandler(std::function<bool()> shouldStop) const {
    const bool wanted = static_cast<bool>(shouldStop);
    auto shared = std::make_shared<const std::function<bool()>>(std::move(shouldStop));
    if (!wanted) {
        shared.reset();
    }
    {
        platform::Lock lock(state->mutex);
        state->interruptHandler.swap(shared);
    }
    return perform(
        [&](Scope&) { return setInterruptible(state->global, wanted ? state.get() : nullptr); });
}

void Context::collectGarbage() const {
    static const auto collectNow =
        engineSymbol<CollectNow>("JSSynchronousGarbageCollectForDebugging");
    perform([&](Scope&) {
        if (collectNow != nullptr) {
            collectNow(state->global);
        } else {
            JSGarbageCollect(state->global);
        }
        state->drainReleased();
    });
}

std::size_t Context::handleCount() const {
    return state->handles;
}

std::string Context::engineVersion() {
    const auto part = [](const char* name) {
        const auto ask = engineSymbol<VersionPart>(name);
        return ask == nullptr ? 0U : ask();
    };
    return fmt::format("{}.{}.{}", part("jsc_get_major_version"), part("jsc_get_minor_version"),
                       part("jsc_get_micro_version"));
}

} // namespace zem::js
