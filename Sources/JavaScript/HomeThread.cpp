#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Private/HomeThread.h>
#include <zem/Platform/Mutex.h>

#include <condition_variable>
#include <exception>
#include <utility>

namespace zem::js {

namespace {

/// A task that another thread waits for; it lives on the waiting thread's stack.
class AwaitedTask {
  public:
    explicit AwaitedTask(platform::Task work)
        : work(std::move(work)) {}

    void run() {
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
        ran = true;
    }

    void end() {
        platform::Lock lock(mutex);
        ended = true;
        condition.notify_one();
    }

    void wait(Door* door) {
        waitForEnd(door);
        if (!ran) {
            throw ThreadEnded();
        }
        if (failure != nullptr) {
            std::rethrow_exception(failure);
        }
    }

  private:
    void waitForEnd(Door* door) {
        const auto hasEnded = [this] {
            return ended;
        };
        platform::UniqueLock lock(mutex);
        if (door == nullptr) {
            condition.wait(lock, hasEnded);
            return;
        }
        Door::Watch watch(*door);
        while (!condition.wait_for(lock, Door::Watch::slice, hasEnded)) {
            watch.waitedOneSlice();
        }
    }

    platform::Task work;
    std::exception_ptr failure;
    bool ran = false;
    bool ended = false;
    platform::Mutex mutex;
    std::condition_variable_any condition;
};

/// Ends the wait when the run loop has run the task that holds this, or has dropped it unrun.
class WaitEnd {
  public:
    explicit WaitEnd(AwaitedTask& awaited)
        : awaited(&awaited) {}
    WaitEnd(WaitEnd&& other) noexcept
        : awaited(std::exchange(other.awaited, nullptr)) {}
    ~WaitEnd() {
        if (awaited != nullptr) {
            awaited->end();
        }
    }
    WaitEnd(const WaitEnd&) = delete;
    WaitEnd& operator=(const WaitEnd&) = delete;
    WaitEnd& operator=(WaitEnd&&) = delete;

    void run() { awaited->run(); }

  private:
    AwaitedTask* awaited;
};

} // namespace

void runAndWait(platform::RunLoop& home, platform::Task work, Door* door) {
    if (home.isCurrent()) {
        work();
        return;
    }
    platform::Mutex::assertNoneHeld("waiting for the engine's thread");
    AwaitedTask awaited(std::move(work));
    home.perform([end = WaitEnd(awaited)]() mutable { end.run(); });
    awaited.wait(door);
}

} // namespace zem::js
