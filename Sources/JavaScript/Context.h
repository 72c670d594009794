#pragma once

// An engine context and its one door, `perform`.

#include <zem/JavaScript/Scope.h>
#include <zem/JavaScript/Value.h>
#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace zem::js {

/// A context is bound to a thread that has ended: nothing can be done in it any more.
class ThreadEnded final : public std::runtime_error {
  public:
    ThreadEnded()
        : std::runtime_error("the thread that the context is bound to has ended") {}
};

/// Being inside the engine, for as long as it lives. Made by `perform`, which takes the door of the
/// context's group, and by native functions, whose callers have it.
class Entry {
  public:
    enum class By { perform, nativeFunction };
    explicit Entry(std::shared_ptr<ContextState> state, By by = By::perform);
    ~Entry();
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    Scope& scope() { return entered; }

  private:
    friend class ContextState;
    std::shared_ptr<ContextState> state;
    const By by;
    Entry* outer;
    Scope entered;
};

/// A reference to an engine context; copies refer to the same one. The context lives as long as any
/// reference or handle on it; the last may be dropped on any thread.
///
/// There are two ways in, chosen when the context is made or adopted:
/// - inline: work runs on the calling thread. Other threads wait at the door until it has returned,
///   in no particular order.
/// - bound to a thread: work runs on the thread of the given run loop. From another thread it is
///   posted there and waited for, first come, first served.
///
/// Either way a thread inside is alone in the context's group, also while JavaScript calls native
/// functions. So a native function never waits for another thread: that thread may want in. In
/// debug builds, one that does nothing for 10 s while a thread waits at the door ends the process
/// and is named.
///
/// A thread that enters has at least 1 MiB of stack. SIGUSR1 belongs to the engine's collector.
class Context {
  public:
    /// Refers to nothing.
    Context() = default;

    /// A new context, entered inline.
    static Context create();

    /// A new context, bound to the thread of `home`. It is made there: returns when it has been, so
    /// that run loop must be running or be the calling thread's. Throws ThreadEnded when that
    /// thread has ended.
    static Context create(std::shared_ptr<platform::RunLoop> home);

    /// A context of the application's own: `globalContext` is its global context reference, which
    /// is retained. Entered inline unless a run loop is given.
    ///
    /// From then on the application's own uses of the engine's C API lie inside `perform` too, for
    /// every context of the group: past this door the engine admits several threads at once, which
    /// can abort or hang it. An application whose only thread with the engine is the one that the
    /// context is bound to may do without.
    static Context adopt(void* globalContext, std::shared_ptr<platform::RunLoop> home = nullptr);

    explicit operator bool() const { return state != nullptr; }
    bool operator==(const Context&) const = default;

    /// Calls `work(Scope&)` inside the engine and returns what it returns, an exception that it
    /// throws included. No lock may be held. Throws ThreadEnded when the context is bound to a
    /// thread that has ended without running the work.
    template <class Work>
    std::invoke_result_t<Work&, Scope&> perform(Work&& work) const {
        using Answer = std::invoke_result_t<Work&, Scope&>;
        if (entersHere()) {
            Entry entry(state);
            return work(entry.scope());
        }
        if constexpr (std::is_void_v<Answer>) {
            performOnHome([&](Scope& scope) { work(scope); });
        } else {
            std::optional<Answer> answer;
            performOnHome([&](Scope& scope) { answer.emplace(work(scope)); });
            return *std::move(answer);
        }
    }

    /// Calls `work` inside the engine: later in the context's lane, in the order of the calls
    /// whichever thread makes them, and without waiting for running JavaScript. A context that is
    /// entered inline is entered before this returns instead, except from inside another engine,
    /// whose JavaScript must not wait for this one's. Work posted to a thread that ends first is
    /// dropped. `work` throws nothing.
    template <class Work>
    void async(Work&& work) const {
        if (entersAtOnce()) {
            Entry entry(state);
            work(entry.scope());
        } else {
            post(std::forward<Work>(work));
        }
    }

    /// A queue whose tasks enter the engine one after the other and so never wait for each other
    /// at its door: that of the context's thread, or where it is entered inline a serial queue.
    const std::shared_ptr<platform::Queue>& lane() const;

    /// True when the calling thread is inside this context.
    bool isEntered() const;

    /// Sets the handler of exceptions that no code can catch: those thrown by a callback that
    /// native code called. Without a handler its text is written to the log, marked private. Called
    /// inside the engine, on the thread that ran the callback.
    void setUncaughtHandler(std::function<void(Scope&, const Exception&)> handler) const;
    void reportUncaught(Scope& scope, const Exception& exception) const;

    /// Calls `handler` inside the engine with the reason of every promise that was rejected and
    /// still has no handler when the promise jobs have run; an empty one hears nothing. False where
    /// the engine cannot tell.
    bool setRejectionHandler(std::function<void(Scope&, const Exception&)> handler) const;

    /// Asks `shouldStop` about every 50 ms of running JavaScript, on the thread that runs it, and
    /// ends the script with an exception that it cannot catch when the answer is true; where native
    /// code called that script, what goes on then is up to the caller. Each promise job is a script
    /// of its own: an endless row of short ones is not asked about. `shouldStop` throws nothing and
    /// does not enter the engine. To be set before what may have to be stopped is started; an empty
    /// one takes it away. False where the engine cannot do it.
    bool setInterruptHandler(std::function<bool()> shouldStop) const;

    /// Collects what is garbage now, and lets go of what handles held.
    void collectGarbage() const;

    /// How many handles are alive on the context: 0 at the end of everything.
    std::size_t handleCount() const;

    /// The engine's version, as its package states it.
    static std::string engineVersion();

  private:
    friend class Value;
    friend class Scope;
    friend class Function;
    explicit Context(std::shared_ptr<ContextState> state)
        : state(std::move(state)) {}
    bool entersHere() const;
    bool entersAtOnce() const;
    void performOnHome(std::move_only_function<void(Scope&)> work) const;
    void post(std::move_only_function<void(Scope&)> work) const;
    std::shared_ptr<ContextState> state;
};

} // namespace zem::js
