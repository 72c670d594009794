#include <zem/Platform/Mutex.h>
#include <zem/Platform/Private/InstalledRunLoop.h>
#include <zem/Platform/Private/TimerList.h>
#include <zem/Platform/RunLoop.h>

#include <glib.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace zem::platform {

namespace {

bool isInitialThread() {
    static thread_local const bool is = syscall(SYS_gettid) == getpid();
    return is;
}

/// A run loop on a GLib main context. GLib only wakes and dispatches one source of ours; what it
/// stands for, tasks and timers, is kept under our own lock.
///
/// The source's ready time says when it is dispatched next. Any thread may set it to "now"; any
/// other time is set by `arm` alone, on the run loop's thread, so that no wake-up is lost.
class GLibRunLoop final : public RunLoop, public std::enable_shared_from_this<GLibRunLoop> {
  public:
    enum class Owner { initialThread, callingThread };

    GLibRunLoop(GMainContext* context, Owner owner)
        : context(g_main_context_ref(context))
        , owner(owner)
        , thread(std::this_thread::get_id())
        , timers(std::make_shared<TimerList>()) {
        static GSourceFuncs functions{nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};
        source = g_source_new(&functions, sizeof(GSource));
        // The data travels as an argument of `dispatch`.
        g_source_set_callback(
            source, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, this, nullptr);
        // A task may run the loop.
        g_source_set_can_recurse(source, TRUE);
        g_source_set_static_name(source, "zem");
        g_source_attach(source, context);
    }

    ~GLibRunLoop() override {
        close();
        g_source_unref(source);
        g_main_context_unref(context);
    }

    /// Its thread is about to end: nothing runs any more.
    void close() {
        std::deque<Task> dropped;
        {
            Lock lock(mutex);
            closed = true;
            dropped.swap(pending);
        }
        g_source_destroy(source);
        timers->close();
        current.clear();
    }

    void perform(Task task) override {
        bool wake = false;
        {
            Lock lock(mutex);
            if (!closed) {
                wake = pending.empty();
                pending.push_back(std::move(task));
            }
        }
        if (wake) {
            g_source_set_ready_time(source, 0);
        }
    }

    std::unique_ptr<Timer> scheduleTimer(Seconds interval, bool repeats,
                                         std::function<void()> block) override {
        std::unique_ptr<Timer> timer = timers->add(now(), interval, repeats, std::move(block));
        // Under the lock, so that an `arm` which has not seen the timer cannot have the last word.
        Lock lock(mutex);
        g_source_set_ready_time(source, 0);
        return timer;
    }

    TimePoint now() const override { return std::chrono::steady_clock::now(); }

    bool isCurrent() const override {
        // The system may give an ended thread's identity to a new one.
        return owner == Owner::initialThread ? isInitialThread()
                                             : std::this_thread::get_id() == thread && !closed;
    }

    void run() override {
        iterateUntil([this] { return stopping.exchange(false); });
    }

    void stop() override {
        stopping = true;
        g_main_context_wakeup(context);
    }

    bool runUntil(const std::function<bool()>& done, Seconds limit) override {
        bool wasDone = false;
        bool late = false;
        const std::unique_ptr<Timer> deadline = scheduleTimer(limit, false, [&] { late = true; });
        iterateUntil([&] {
            wasDone = done();
            return wasDone || late;
        });
        return wasDone;
    }

  private:
    /// One `run` or `runUntil`; they nest when a task runs the loop.
    struct Frame {
        const std::function<bool()>& done;
        Frame* outer;
        bool finished;
    };

    void iterateUntil(const std::function<bool()>& done) {
        if (!isCurrent()) {
            std::fprintf(stderr, "zem: a run loop is run on a thread that is not its own\n");
            std::abort();
        }
        Frame frame{done, innermost, false};
        innermost = &frame;
        // A foreign source on the context may end the frame too: ask again after each iteration.
        while (!frameIsFinished()) {
            g_main_context_iteration(context, TRUE);
        }
        innermost = frame.outer;
    }

    bool frameIsFinished() {
        if (innermost == nullptr) {
            return false; // the application runs the context
        }
        innermost->finished = innermost->finished || innermost->done();
        return innermost->finished;
    }

    static gboolean dispatch(GSource*, GSourceFunc, gpointer self) noexcept {
        static_cast<GLibRunLoop*>(self)->runWhatIsDue();
        return G_SOURCE_CONTINUE;
    }

    void runWhatIsDue() {
        if (runTasks()) {
            fireTimers();
        }
        arm();
    }

    /// Runs what was pending when it began, so that timers and other sources get their turn.
    /// Returns false when a frame has finished; the rest then waits for the next iteration.
    bool runTasks() {
        if (current.empty()) {
            Lock lock(mutex);
            current.swap(pending);
        }
        while (!current.empty()) {
            runFirstTask();
            if (frameIsFinished()) {
                return false;
            }
        }
        return true;
    }

    void runFirstTask() {
        Task task = std::move(current.front());
        current.pop_front();
        Mutex::assertNoneHeld("a task of a run loop is run");
        task();
    }

    void fireTimers() {
        const TimePoint limit = now();
        while (std::shared_ptr<TimerList::Entry> entry = timers->take(limit)) {
            Mutex::assertNoneHeld("a timer fires");
            entry->block();
            timers->putBack(std::move(entry), now());
            if (frameIsFinished()) {
                return;
            }
        }
    }

    void arm() {
        Lock lock(mutex);
        if (!current.empty() || !pending.empty()) {
            g_source_set_ready_time(source, 0);
            return;
        }
        const std::optional<TimePoint> due = timers->nextDue();
        using Microseconds = std::chrono::duration<gint64, std::micro>;
        g_source_set_ready_time(
            source, due ? std::chrono::ceil<Microseconds>(due->time_since_epoch()).count() : -1);
    }

    GMainContext* const context;
    const Owner owner;
    const std::thread::id thread;
    const std::shared_ptr<TimerList> timers;
    GSource* source;

    // Touched on the run loop's thread only.
    std::deque<Task> current;
    Frame* innermost = nullptr;

    std::atomic<bool> stopping = false;

    Mutex mutex;
    std::deque<Task> pending;
    // Written under the lock.
    std::atomic<bool> closed = false;
};

/// The run loop of a thread other than the initial one, as that thread keeps it.
class ThreadRunLoop {
  public:
    ~ThreadRunLoop() {
        if (loop != nullptr) {
            loop->close();
        }
        if (pushed != nullptr) {
            g_main_context_pop_thread_default(pushed);
            g_main_context_unref(pushed);
        }
    }

    const std::shared_ptr<GLibRunLoop>& get() {
        if (loop == nullptr) {
            // A thread that already runs a context of its own keeps it.
            GMainContext* context = g_main_context_get_thread_default();
            if (context == nullptr) {
                context = pushed = g_main_context_new();
                // The engine's timers on this thread then run in it too.
                g_main_context_push_thread_default(context);
            }
            loop = std::make_shared<GLibRunLoop>(context, GLibRunLoop::Owner::callingThread);
        }
        return loop;
    }

  private:
    std::shared_ptr<GLibRunLoop> loop;
    GMainContext* pushed = nullptr;
};

} // namespace

std::shared_ptr<RunLoop> RunLoop::current() {
    if (std::shared_ptr<RunLoop> installed = installedRunLoop()) {
        return installed;
    }
    if (isInitialThread()) {
        return main();
    }
    static thread_local ThreadRunLoop own;
    return own.get();
}

std::shared_ptr<RunLoop> RunLoop::main() {
    static const auto& loop = *new std::shared_ptr<RunLoop>(
        std::make_shared<GLibRunLoop>(g_main_context_default(), GLibRunLoop::Owner::initialThread));
    return loop;
}

} // namespace zem::platform
