#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Private/ContextState.h>
#include <zem/JavaScript/Private/Symbol.h>
#include <zem/JavaScript/Private/Text.h>
#include <zem/Platform/Log.h>

#include <fmt/format.h>

#include <condition_variable>
#include <exception>
#include <future>
#include <mutex>
#include <stdexcept>

namespace zem::js {

namespace {

using SetExecutionTimeLimit = void (*)(JSContextGroupRef, double,
                                       bool (*shouldTerminate)(JSContextRef, void*), void*);
using SetRejectionCallback = void (*)(JSGlobalContextRef, JSObjectRef, JSValueRef*);
using CollectNow = void (*)(JSContextRef);
using VersionPart = unsigned (*)();

constexpr double interruptCheckSeconds = 0.05;

bool askShouldStop(JSContextRef, void* state) noexcept {
    return static_cast<ContextState*>(state)->shouldStop();
}

/// A call that another thread makes for this one, which waits. Whoever drops it unrun ends the
/// wait.
class PostedCall {
  public:
    explicit PostedCall(std::move_only_function<void(Scope&)> work)
        : work(std::move(work)) {}

    void run(std::shared_ptr<ContextState> state) {
        try {
            Entry entry(std::move(state));
            work(entry.scope());
        } catch (...) {
            failure = std::current_exception();
        }
        ran = true;
    }

    void end() {
        std::scoped_lock lock(mutex);
        ended = true;
        condition.notify_one();
    }

    void wait() {
        std::unique_lock lock(mutex);
        condition.wait(lock, [this] { return ended; });
        if (failure != nullptr) {
            std::rethrow_exception(failure);
        }
        if (!ran) {
            throw std::runtime_error("the thread that the context is bound to has ended");
        }
    }

  private:
    std::move_only_function<void(Scope&)> work;
    std::exception_ptr failure;
    bool ran = false;
    bool ended = false;
    std::mutex mutex;
    std::condition_variable condition;
};

/// Ends the call's wait when the task that holds this has run or is destroyed.
class CallEnd {
  public:
    explicit CallEnd(PostedCall& call)
        : call(&call) {}
    CallEnd(CallEnd&& other) noexcept
        : call(std::exchange(other.call, nullptr)) {}
    ~CallEnd() {
        if (call != nullptr) {
            call->end();
        }
    }
    CallEnd(const CallEnd&) = delete;
    CallEnd& operator=(const CallEnd&) = delete;
    CallEnd& operator=(CallEnd&&) = delete;
    PostedCall* call;
};

void runOn(platform::RunLoop& home, std::move_only_function<void()> work) {
    if (home.isCurrent()) {
        work();
        return;
    }
    std::promise<void> made;
    auto done = made.get_future();
    home.perform([&work, made = std::move(made)]() mutable {
        work();
        made.set_value();
    });
    done.get();
}

} // namespace

Context Context::create() {
    return Context(shareState(JSGlobalContextCreate(nullptr), nullptr));
}

Context Context::create(std::shared_ptr<platform::RunLoop> home) {
    Context context;
    runOn(*home, [&] { context.state = shareState(JSGlobalContextCreate(nullptr), home); });
    return context;
}

Context Context::adopt(void* globalContext, std::shared_ptr<platform::RunLoop> home) {
    JSGlobalContextRef global = static_cast<JSGlobalContextRef>(globalContext);
    Context context;
    const auto take = [&] {
        context.state = shareState(JSGlobalContextRetain(global), home);
    };
    if (home == nullptr) {
        take();
    } else {
        runOn(*home, take);
    }
    return context;
}

bool Context::entersHere() const {
    return state->home == nullptr || state->home->isCurrent();
}

void Context::performOnHome(std::move_only_function<void(Scope&)> work) const {
    platform::Mutex::assertNoneHeld("waiting for the engine's thread");
    PostedCall call(std::move(work));
    state->home->perform(
        [state = state, end = CallEnd(call)]() mutable { end.call->run(std::move(state)); });
    call.wait();
}

void Context::async(std::move_only_function<void(Scope&)> work) const {
    if (state->home == nullptr) {
        Entry entry(state);
        work(entry.scope());
        return;
    }
    state->home->perform([state = state, work = std::move(work)]() mutable {
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
    static const platform::Log log("com.quorvane.ZEM", "JavaScript");
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
                handler(inner,
                        inner.exception(arguments.size() > 1 ? arguments[1] : inner.undefined()));
                return inner.undefined();
            });
        setCallback(state->global, engineObject(function), nullptr);
    });
    return true;
}

bool Context::setInterruptHandler(std::function<bool()> shouldStop) const {
    static const auto setLimit =
        engineSymbol<SetExecutionTimeLimit>("JSContextGroupSetExecutionTimeLimit");
    if (setLimit == nullptr) {
        return false;
    }
    perform([&](Scope&) {
        state->shouldStop = std::move(shouldStop);
        setLimit(JSContextGetGroup(state->global), interruptCheckSeconds, askShouldStop,
                 state.get());
    });
    return true;
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
