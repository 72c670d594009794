#include <zem/Platform/Mutex.h>
#include <zem/Platform/Private/GlobalThreads.h>
#include <zem/Platform/Queue.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace zem::platform {

struct SerialQueue::State : std::enable_shared_from_this<State> {
    State(std::string label, QualityOfService qualityOfService)
        : label(std::move(label))
        , qualityOfService(qualityOfService) {}

    void async(Task task);
    void sync(Task task);
    bool isCurrent() const;

    /// Asks for a turn on a global thread. `scheduled` has been set.
    void schedule();

    /// A turn on a global thread: batch after batch while nobody else wants the thread.
    void takeTurn() noexcept;

    // Under the lock.
    void addWaiting(Task task);
    void takeWaiting(std::vector<Task>& batch);

    void run(std::vector<Task>& batch) noexcept;

    /// Lets others have the processor for a moment, in which they may add more. A thread that gives
    /// up has to be woken again, and waking it costs the thread that adds more than a small task
    /// costs to run. So the moment is about as long as waking takes.
    void waitForMore() const noexcept;

    /// Sleeps a moment while tasks gather; returns how many wait then. A thread that takes each
    /// task as it comes slows down the one that adds them: both work on the same memory.
    std::size_t letTasksGather() noexcept;

    /// After a batch: true when the queue has been given up and has to be scheduled again.
    bool endRunning();

    const std::string label;
    const QualityOfService qualityOfService;

    // Changed under the lock; may be asked without it.
    std::atomic<bool> anyWaiting = false;

    Mutex mutex;
    std::vector<Task> waiting;
    bool running = false;   // some thread has a batch in hand
    bool scheduled = false; // a turn was asked for and has not begun
};

namespace {

/// The serial queues whose tasks this thread is running, innermost first: a task may `sync` to
/// another queue, which then runs on the same thread.
struct RunningQueue {
    const void* queue;
    const std::string* label;
    QualityOfService qualityOfService;
    const RunningQueue* outer;
};
thread_local constinit const RunningQueue* innermost = nullptr;

class Completion {
  public:
    void signal() {
        // Under the lock: the waiter may destroy this as soon as it has seen it.
        Lock lock(mutex);
        done = true;
        condition.notify_one();
    }
    void wait() {
        UniqueLock lock(mutex);
        condition.wait(lock, [this] { return done; });
    }

  private:
    Mutex mutex;
    std::condition_variable_any condition;
    bool done = false;
};

} // namespace

void SerialQueue::State::async(Task task) {
    {
        Lock lock(mutex);
        addWaiting(std::move(task));
        if (running || scheduled) {
            return;
        }
        scheduled = true;
    }
    schedule();
}

void SerialQueue::State::schedule() {
    globalQueue(qualityOfService).async([self = shared_from_this()] { self->takeTurn(); });
}

void SerialQueue::State::takeTurn() noexcept {
    std::vector<Task> batch;
    {
        Lock lock(mutex);
        scheduled = false;
        if (running || waiting.empty()) {
            return;
        }
        running = true;
        takeWaiting(batch);
    }
    // A long row of tasks is taken in batches, as long as batches come together.
    constexpr std::size_t longRow = 64;
    constexpr std::size_t smallestBatch = 4;
    std::size_t row = 0;
    for (;;) {
        row += batch.size();
        run(batch);
        if (row < longRow) {
            waitForMore();
        } else if (letTasksGather() < smallestBatch) {
            row = 0;
        }
        const bool wanted = globalThreadsAreWanted();
        Lock lock(mutex);
        if (waiting.empty()) {
            running = false;
            return;
        }
        if (wanted) {
            break;
        }
        takeWaiting(batch);
    }
    if (endRunning()) {
        schedule();
    }
}

void SerialQueue::State::addWaiting(Task task) {
    waiting.push_back(std::move(task));
    anyWaiting = true;
}

void SerialQueue::State::takeWaiting(std::vector<Task>& batch) {
    batch.swap(waiting);
    anyWaiting = false;
}

void SerialQueue::State::waitForMore() const noexcept {
    constexpr std::chrono::microseconds moment{20};
    constexpr int fewestLooks = 3; // on a busy machine one may take longer than the moment
    const auto end = std::chrono::steady_clock::now() + moment;
    int looks = 0;
    while (!anyWaiting && (looks < fewestLooks || std::chrono::steady_clock::now() < end)) {
        std::this_thread::yield();
        ++looks;
    }
}

std::size_t SerialQueue::State::letTasksGather() noexcept {
    std::this_thread::sleep_for(std::chrono::microseconds(50));
    Lock lock(mutex);
    return waiting.size();
}

void SerialQueue::State::run(std::vector<Task>& batch) noexcept {
    const RunningQueue current{this, &label, qualityOfService, innermost};
    innermost = &current;
    for (Task& task : batch) {
        Mutex::assertNoneHeld("a task of a serial queue is run");
        task();
        // The task's captures are destroyed before the next one runs, and still on this queue.
        task = nullptr;
    }
    innermost = current.outer;
    batch.clear();
}

bool SerialQueue::State::endRunning() {
    Lock lock(mutex);
    running = false;
    if (waiting.empty() || scheduled) {
        return false;
    }
    scheduled = true;
    return true;
}

void SerialQueue::State::sync(Task task) {
    if (isCurrent()) {
        std::fprintf(stderr, "zem: sync on the serial queue \"%s\" from one of its own tasks\n",
                     label.c_str());
        std::abort();
    }
    Mutex::assertNoneHeld("a serial queue is waited for");
    Completion completion;
    std::vector<Task> batch;
    {
        Lock lock(mutex);
        addWaiting([&task, &completion] {
            task();
            completion.signal();
        });
        if (!running) {
            running = true;
            takeWaiting(batch);
        }
    }
    if (batch.empty()) {
        completion.wait();
        return;
    }
    run(batch);
    if (endRunning()) {
        schedule();
    }
}

bool SerialQueue::State::isCurrent() const {
    const RunningQueue* queue = innermost;
    while (queue != nullptr && queue->queue != this) {
        queue = queue->outer;
    }
    return queue != nullptr;
}

std::shared_ptr<SerialQueue> SerialQueue::create(std::string label,
                                                 QualityOfService qualityOfService) {
    return std::shared_ptr<SerialQueue>(
        new SerialQueue(std::make_shared<State>(std::move(label), qualityOfService)));
}

SerialQueue::SerialQueue(std::shared_ptr<State> state)
    : state(std::move(state)) {}

SerialQueue::~SerialQueue() = default;

void SerialQueue::async(Task task) {
    state->async(std::move(task));
}

void SerialQueue::sync(Task task) {
    // The task may drop the last reference to this queue.
    const std::shared_ptr<State> kept = state;
    kept->sync(std::move(task));
}

const std::string& SerialQueue::label() const {
    return state->label;
}

QualityOfService SerialQueue::qualityOfService() const {
    return state->qualityOfService;
}

bool SerialQueue::isCurrent() const {
    return state->isCurrent();
}

std::string SerialQueue::currentLabel() {
    return innermost == nullptr ? std::string() : *innermost->label;
}

std::optional<QualityOfService> SerialQueue::currentQualityOfService() {
    return innermost == nullptr ? std::nullopt : std::optional(innermost->qualityOfService);
}

} // namespace zem::platform
