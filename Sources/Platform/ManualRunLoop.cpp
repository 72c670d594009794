#include <zem/Platform/Mutex.h>
#include <zem/Platform/Private/InstalledRunLoop.h>
#include <zem/Platform/Private/TimerList.h>
#include <zem/Platform/RunLoop.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <thread>
#include <utility>
#include <vector>

namespace zem::platform {

struct ManualRunLoop::State {
    const std::thread::id thread = std::this_thread::get_id();
    const std::shared_ptr<TimerList> timers = std::make_shared<TimerList>();

    Mutex mutex;
    std::condition_variable_any changed;
    std::deque<Task> tasks;
    TimePoint clock{};
    bool stopping = false;

    bool runNext();
    bool fireNext(TimePoint limit);
    TimePoint now();
    bool takeStop();
};

namespace {

thread_local std::vector<std::weak_ptr<ManualRunLoop>> installed;

} // namespace

std::shared_ptr<RunLoop> installedRunLoop() {
    while (!installed.empty()) {
        if (std::shared_ptr<RunLoop> youngest = installed.back().lock()) {
            return youngest;
        }
        installed.pop_back();
    }
    return nullptr;
}

bool ManualRunLoop::State::runNext() {
    Task task;
    {
        Lock lock(mutex);
        if (tasks.empty()) {
            return false;
        }
        task = std::move(tasks.front());
        tasks.pop_front();
    }
    Mutex::assertNoneHeld("a task of a run loop is run");
    task();
    return true;
}

bool ManualRunLoop::State::fireNext(TimePoint limit) {
    std::shared_ptr<TimerList::Entry> entry = timers->take(limit);
    if (entry == nullptr) {
        return false;
    }
    {
        Lock lock(mutex);
        clock = std::max(clock, entry->due);
    }
    Mutex::assertNoneHeld("a timer fires");
    entry->block();
    timers->putBack(std::move(entry), now());
    return true;
}

RunLoop::TimePoint ManualRunLoop::State::now() {
    Lock lock(mutex);
    return clock;
}

bool ManualRunLoop::State::takeStop() {
    Lock lock(mutex);
    return std::exchange(stopping, false);
}

std::shared_ptr<ManualRunLoop> ManualRunLoop::create() {
    std::shared_ptr<ManualRunLoop> loop(new ManualRunLoop());
    installed.push_back(loop);
    return loop;
}

ManualRunLoop::ManualRunLoop()
    : state(std::make_unique<State>()) {}

ManualRunLoop::~ManualRunLoop() = default;

void ManualRunLoop::perform(Task task) {
    Lock lock(state->mutex);
    state->tasks.push_back(std::move(task));
    state->changed.notify_one();
}

std::unique_ptr<Timer> ManualRunLoop::scheduleTimer(Seconds interval, bool repeats,
                                                    std::function<void()> block) {
    return state->timers->add(now(), interval, repeats, std::move(block));
}

RunLoop::TimePoint ManualRunLoop::now() const {
    return state->now();
}

bool ManualRunLoop::isCurrent() const {
    return std::this_thread::get_id() == state->thread;
}

void ManualRunLoop::run() {
    const auto kept = shared_from_this();
    while (!state->takeStop()) {
        if (state->runNext() || state->fireNext(now())) {
            continue;
        }
        UniqueLock lock(state->mutex);
        state->changed.wait(lock, [this] { return state->stopping || !state->tasks.empty(); });
    }
}

void ManualRunLoop::stop() {
    Lock lock(state->mutex);
    state->stopping = true;
    state->changed.notify_one();
}

bool ManualRunLoop::runUntil(const std::function<bool()>& done, Seconds limit) {
    const auto kept = shared_from_this();
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        if (state->runNext() || state->fireNext(now())) {
            continue;
        }
        UniqueLock lock(state->mutex);
        state->changed.wait_until(lock, deadline, [this] { return !state->tasks.empty(); });
    }
    return true;
}

int ManualRunLoop::runTasks() {
    const auto kept = shared_from_this();
    int count = 0;
    while (state->runNext()) {
        ++count;
    }
    return count;
}

void ManualRunLoop::advance(Seconds by) {
    const auto kept = shared_from_this();
    const TimePoint end = now() + std::chrono::duration_cast<TimePoint::duration>(by);
    while (state->fireNext(end)) {
    }
    Lock lock(state->mutex);
    state->clock = std::max(state->clock, end);
}

} // namespace zem::platform
