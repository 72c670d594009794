#include <zem/Platform/Operation.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <utility>

namespace zem::platform {

/// Kept alive by the turns that were asked for and by the observers of the operations added.
struct OperationQueue::State : std::enable_shared_from_this<OperationQueue::State> {
    State(std::size_t width, Queue& threads)
        : width(width)
        , threads(threads) {}

    enum class Phase { waiting, starting, executing };

    /// An operation and what the queue knows of it.
    struct Entry {
        std::shared_ptr<Operation> operation;
        Phase phase = Phase::waiting;
        bool finished = false;
    };

    void add(const std::shared_ptr<Operation>& operation);

    /// Asks for a turn when there is something to start, a place for it and no turn on its way.
    void schedule();
    bool wantsTurn() const {
        return waitingCount != 0 && !turnAsked && (width == unbounded || places < width);
    }
    void askForTurn();

    /// On a thread of the queue: starts the best of what waits, again and again while there are
    /// places. Before each start, which may take its time, another thread is asked for if there is
    /// more to do.
    void takeTurn();
    std::shared_ptr<Entry> takeBest();

    /// `start` has returned: an operation that finished meanwhile gives its place back.
    void started(Entry& entry);
    void finish(Entry& entry);

    const std::size_t width;
    Queue& threads;

    mutable Mutex mutex;
    // The highest priority first. No list in it is empty; what finished while it waited is passed
    // over.
    std::map<int, std::deque<std::shared_ptr<Entry>>, std::greater<>> waiting;
    std::size_t waitingCount = 0;
    std::size_t unfinished = 0;
    std::size_t places = 0; // in use
    bool turnAsked = false; // and not begun
};

void OperationQueue::State::add(const std::shared_ptr<Operation>& operation) {
    Operation& added = *operation;
    if (!added.enqueue()) {
        std::fprintf(stderr, "zem: an operation is added to a queue for the second time\n");
        std::abort();
    }
    auto entry = std::make_shared<Entry>(operation);
    added.addObserver([self = shared_from_this(), entry](Operation& changed, std::string_view key,
                                                         Operation::Change change) {
        if (key == "isFinished" && change == Operation::Change::did && changed.isFinished()) {
            self->finish(*entry);
        }
    });
    {
        Lock lock(mutex);
        ++unfinished;
        ++waitingCount;
        waiting[static_cast<int>(added.queuePriority())].push_back(entry);
    }
    if (added.isFinished()) { // its report came before it was here
        finish(*entry);
    } else {
        schedule();
    }
}

void OperationQueue::State::schedule() {
    {
        Lock lock(mutex);
        if (!wantsTurn()) {
            return;
        }
        turnAsked = true;
    }
    askForTurn();
}

void OperationQueue::State::askForTurn() {
    threads.async([self = shared_from_this()] { self->takeTurn(); });
}

void OperationQueue::State::takeTurn() {
    {
        Lock lock(mutex);
        turnAsked = false;
    }
    while (const std::shared_ptr<Entry> entry = takeBest()) {
        schedule();
        // One that has reported its end meanwhile is not started.
        if (!entry->operation->isFinished()) {
            Mutex::assertNoneHeld("an operation is started");
            entry->operation->start();
        }
        started(*entry);
    }
}

std::shared_ptr<OperationQueue::State::Entry> OperationQueue::State::takeBest() {
    Lock lock(mutex);
    if (width != unbounded && places >= width) {
        return nullptr;
    }
    while (!waiting.empty()) {
        const auto best = waiting.begin();
        std::shared_ptr<Entry> entry = std::move(best->second.front());
        best->second.pop_front();
        if (best->second.empty()) {
            waiting.erase(best);
        }
        if (!entry->finished) {
            --waitingCount;
            ++places;
            entry->phase = Phase::starting;
            return entry;
        }
    }
    return nullptr;
}

void OperationQueue::State::started(Entry& entry) {
    std::shared_ptr<Operation> released;
    Lock lock(mutex);
    if (entry.finished) {
        --places;
        released = std::move(entry.operation);
    } else {
        entry.phase = Phase::executing;
    }
}

void OperationQueue::State::finish(Entry& entry) {
    std::shared_ptr<Operation> released;
    {
        Lock lock(mutex);
        if (entry.finished) {
            return; // it reports its end for the second time
        }
        entry.finished = true;
        --unfinished;
        if (entry.phase == Phase::starting) {
            return; // its place is given back when its start has returned
        }
        if (entry.phase == Phase::waiting) {
            --waitingCount;
        } else {
            --places;
        }
        released = std::move(entry.operation);
    }
    schedule();
}

std::shared_ptr<OperationQueue> OperationQueue::create(std::size_t maxConcurrentOperationCount,
                                                       Queue* threads) {
    return std::shared_ptr<OperationQueue>(new OperationQueue(std::make_shared<State>(
        maxConcurrentOperationCount, threads != nullptr ? *threads : globalQueue())));
}

OperationQueue::OperationQueue(std::shared_ptr<State> state)
    : state(std::move(state)) {}

OperationQueue::~OperationQueue() = default;

void OperationQueue::addOperation(const std::shared_ptr<Operation>& operation) {
    state->add(operation);
}

void OperationQueue::addOperation(Task block, QueuePriority priority) {
    addOperation(BlockOperation::create(std::move(block), priority));
}

std::size_t OperationQueue::maxConcurrentOperationCount() const {
    return state->width;
}

std::size_t OperationQueue::operationCount() const {
    Lock lock(state->mutex);
    return state->unfinished;
}

} // namespace zem::platform
