#pragma once

// A value that comes later, once: who waits for it holds a future, who has to deliver it a promise.

#include <zem/Platform/Mutex.h>
#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <coroutine>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace zem::platform {

/// The state that a future and its promise share.
template <class T>
class FutureState {
  public:
    using Continuation = std::function<void(const T&)>;

    void complete(T given) noexcept {
        Mutex::assertNoneHeld("a future is completed");
        std::vector<Continuation> called;
        {
            Lock lock(mutex);
            if (value) {
                return;
            }
            value.emplace(std::move(given));
            called.swap(continuations);
            completed.notify_all();
        }
        for (Continuation& continuation : called) {
            continuation(*value);
            // Its captures are destroyed before the next one is called.
            continuation = nullptr;
        }
    }

    bool isComplete() const {
        Lock lock(mutex);
        return value.has_value();
    }

    /// False when it is complete already: then `continuation` is left as it was.
    bool add(Continuation& continuation) {
        Lock lock(mutex);
        if (value) {
            return false;
        }
        continuations.push_back(std::move(continuation));
        return true;
    }

    bool wait(Seconds limit) const {
        // A clock that a limit takes past its end gives up at once, or waits in a busy loop.
        constexpr Seconds longest = std::chrono::years(1);
        UniqueLock lock(mutex);
        return completed.wait_for(lock, std::clamp(limit, Seconds(0), longest),
                                  [this] { return value.has_value(); });
    }

    /// Only once complete; from then on it does not change, and needs no lock.
    const T& get() const { return *value; }

  private:
    mutable Mutex mutex;
    mutable std::condition_variable_any completed;
    std::optional<T> value;
    std::vector<Continuation> continuations;
};

/// Copies are the same future. Every call may come on any thread, and dropping a future takes
/// nothing back: what was to be continued with its value will be.
template <class T>
class Future {
  public:
    /// The value, when it comes within `limit`; absent when it does not. A limit of more than a
    /// year is a year. Blocks the thread, so do not wait on the one that is to complete it. May
    /// return before what continues with the value has been called.
    [[nodiscard]] std::optional<T> wait(Seconds limit) const {
        Mutex::assertNoneHeld("a future is waited for");
        return state->wait(limit) ? std::optional<T>(state->get()) : std::nullopt;
    }

    /// Calls `continuation` with the value, once: on the completing thread, in the order in which
    /// continuations were added; or, when the value is there already, at once on the calling
    /// thread. It is destroyed when it has returned. An exception that leaves it ends the process.
    /// One that holds the last promise of this same future keeps both for ever.
    void then(std::function<void(const T&)> continuation) const noexcept {
        Mutex::assertNoneHeld("a future is continued");
        // The continuation may drop this future.
        const std::shared_ptr<State> kept = state;
        if (!kept->add(continuation)) {
            continuation(kept->get());
        }
    }

    class Awaiter;

    /// Any number of coroutines. Each is resumed like a continuation: on the completing thread, in
    /// its turn; or goes on without being suspended when the value is there already. One that is
    /// suspended must not be destroyed: it will be resumed.
    Awaiter operator co_await() const { return Awaiter(state); }

  private:
    template <class>
    friend class Promise;
    using State = FutureState<T>;
    explicit Future(std::shared_ptr<State> state)
        : state(std::move(state)) {}

    std::shared_ptr<State> state;
};

template <class T>
class Future<T>::Awaiter {
  public:
    bool await_ready() const { return state->isComplete(); }

    bool await_suspend(std::coroutine_handle<> coroutine) const {
        // Once added it may be resumed at any moment on another thread, and this be gone.
        const std::shared_ptr<State> kept = state;
        std::function<void(const T&)> resume = [coroutine](const T&) {
            coroutine.resume();
        };
        return kept->add(resume);
    }

    T await_resume() const { return state->get(); }

  private:
    friend class Future;
    explicit Awaiter(std::shared_ptr<State> state)
        : state(std::move(state)) {}

    std::shared_ptr<State> state;
};

/// The writing end of a future. Copies are the same promise. When the last copy goes without having
/// been fulfilled, the future completes with the fall-back value, so that nobody waits for ever: on
/// a thread of the global queue, since promises are dropped in places from where nothing may be
/// called, destructors and the engine's finalisers among them.
template <class T>
class Promise {
  public:
    explicit Promise(T fallback)
        : writer(std::make_shared<Writer>(std::move(fallback))) {}

    Future<T> future() const { return Future<T>(writer->state); }

    /// The first value given completes the future; later ones are ignored. Any thread. Calls what
    /// continues with the value before it returns; what is called may drop this promise.
    void complete(T value) const noexcept {
        const std::shared_ptr<FutureState<T>> kept = writer->state;
        kept->complete(std::move(value));
    }

  private:
    struct Writer {
        explicit Writer(T fallback)
            : fallback(std::move(fallback)) {}
        Writer(const Writer&) = delete;
        Writer& operator=(const Writer&) = delete;
        ~Writer() {
            if (!state->isComplete()) {
                globalQueue().async(
                    [state = std::move(state), value = std::move(fallback)]() mutable {
                        state->complete(std::move(value));
                    });
            }
        }

        std::shared_ptr<FutureState<T>> state = std::make_shared<FutureState<T>>();
        T fallback;
    };
    std::shared_ptr<Writer> writer;
};

} // namespace zem::platform
