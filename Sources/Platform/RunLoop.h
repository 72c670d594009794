#pragma once

// Run loops: one a thread, with tasks and timers. Time is asked of the run loop that something was
// built on, so that a test can drive both by hand.

#include <zem/Platform/Task.h>

#include <chrono>
#include <functional>
#include <memory>
#include <pthread.h>
#include <string>

namespace zem::platform {

using Seconds = std::chrono::duration<double>;

/// A scheduled timer. Destroying or invalidating it means that its block is not started again; one
/// that is running on the run loop's thread meanwhile finishes.
class Timer {
  public:
    virtual ~Timer() = default;

    /// Never fires again. Any thread, any number of times, from its own block too.
    virtual void invalidate() = 0;
};

class RunLoop {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~RunLoop() = default;

    /// The calling thread's run loop, made on first use; a ManualRunLoop while one is installed
    /// there.
    static std::shared_ptr<RunLoop> current();

    /// The run loop of the process's main context (GLib's default one), which an application that
    /// runs GLib, GTK or Qt already runs.
    static std::shared_ptr<RunLoop> main();

    /// Runs `task` on this run loop's thread, in the order of the calls, once it is run. Never
    /// before returning. Any thread. Tasks that have not run when the run loop's thread ends, or
    /// the run loop is destroyed, are destroyed without running; so are later ones.
    virtual void perform(Task task) = 0;

    /// Calls `block` on this run loop's thread every `interval` (or once, after it, when `repeats`
    /// is false) until the timer is invalidated or destroyed. Any thread. A run loop that was late
    /// skips the missed ticks.
    [[nodiscard]] virtual std::unique_ptr<Timer> scheduleTimer(Seconds interval, bool repeats,
                                                               std::function<void()> block) = 0;

    /// This run loop's clock. It never steps back.
    virtual TimePoint now() const = 0;

    /// True on the thread that this run loop belongs to.
    virtual bool isCurrent() const = 0;

    /// Runs tasks and timers on the calling thread, which must be its own, until `stop` is called.
    virtual void run() = 0;

    /// Makes the innermost `run` return after the task at hand; when none is running, the next
    /// `run` returns at once. Any thread.
    virtual void stop() = 0;

    /// Runs tasks and timers on the calling thread, which must be its own, until `done` is true,
    /// asking it first and after each, or until `limit` has passed. Returns whether `done` was
    /// true. `stop` does not end it.
    virtual bool runUntil(const std::function<bool()>& done, Seconds limit) = 0;
};

/// A run loop whose clock moves only when it is told to. While it lives it is `RunLoop::current()`
/// of the thread that made it; of several the youngest.
///
/// `run` and `runUntil` run tasks as they arrive and the timers that are due without moving the
/// clock; the limit of `runUntil` is real time.
class ManualRunLoop final : public RunLoop, public std::enable_shared_from_this<ManualRunLoop> {
  public:
    static std::shared_ptr<ManualRunLoop> create();
    ~ManualRunLoop() override;

    void perform(Task task) override;
    std::unique_ptr<Timer> scheduleTimer(Seconds interval, bool repeats,
                                         std::function<void()> block) override;
    TimePoint now() const override;
    bool isCurrent() const override;
    void run() override;
    void stop() override;
    bool runUntil(const std::function<bool()>& done, Seconds limit) override;

    /// Runs what has been performed, without moving the clock. Returns how many tasks ran.
    int runTasks();

    /// Moves the clock, firing every timer that falls due on the way in the order of the due times,
    /// with `now()` standing at each due time while its block runs.
    void advance(Seconds by);

  private:
    struct State;
    ManualRunLoop();
    std::unique_ptr<State> state;
};

/// A thread with a run loop of its own that runs until the object is destroyed. Its stack is 8 MiB,
/// enough for the engine.
class RunLoopThread {
  public:
    explicit RunLoopThread(std::string name);

    /// Stops the run loop after the tasks already performed and joins the thread. On the thread
    /// itself (the last reference dropped by one of its own tasks) the thread ends by itself
    /// afterwards.
    ~RunLoopThread();

    RunLoopThread(const RunLoopThread&) = delete;
    RunLoopThread& operator=(const RunLoopThread&) = delete;

    const std::shared_ptr<RunLoop>& runLoop() const { return loop; }

  private:
    struct State;
    std::shared_ptr<State> state;
    std::shared_ptr<RunLoop> loop;
    pthread_t thread;
};

} // namespace zem::platform
