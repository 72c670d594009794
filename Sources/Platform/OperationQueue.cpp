#include <zem/Platform/Operation.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <unordered_map>
#include <utility>

namespace zem::platform {

/// Kept alive by the turns that were asked for and by the observers of the operations added.
struct OperationQueue::State : std::enable_shared_from_this<OperationQueue::State> {
    State(std::size_t width, Queue& threads)
        : width(width)
        , threads(threads) {}

    struct Entry {
        std::shared_ptr<Operation> operation;
        int priority;
        bool executing;
    };

    void add(const std::shared_ptr<Operation>& operation);

    /// Asks for as many turns as there are places for what waits.
    void schedule();

    /// On a thread of the queue: starts the best of what waits.
    void takeTurn();
    std::shared_ptr<Operation> takeBest();

    void finish(const Operation& operation);

    const std::size_t width;
    Queue& threads;

    mutable Mutex mutex;
    std::unordered_map<const Operation*, Entry> unfinished;
    // The highest priority first. No list in it is empty.
    std::map<int, std::deque<const Operation*>, std::greater<>> waiting;
    std::size_t turns = 0; // asked for and not yet taken: each is a place in use
    std::size_t executing = 0;
};

void OperationQueue::State::add(const std::shared_ptr<Operation>& operation) {
    Operation& added = *operation;
    const int priority = static_cast<int>(added.queuePriority());
    added.addObserver([self = shared_from_this()](Operation& changed, std::string_view key,
                                                  Operation::Change change) {
        if (key == "isFinished" && change == Operation::Change::did && changed.isFinished()) {
            self->finish(changed);
        }
    });
    {
        Lock lock(mutex);
        if (!unfinished.emplace(&added, Entry{operation, priority, false}).second) {
            std::fprintf(stderr, "zem: an operation is added to a queue that it is already in\n");
            std::abort();
        }
        waiting[priority].push_back(&added);
    }
    if (added.isFinished()) { // its report came before it was here
        finish(added);
    } else {
        schedule();
    }
}

void OperationQueue::State::schedule() {
    std::size_t more = 0;
    {
        Lock lock(mutex);
        const std::size_t waitingCount = unfinished.size() - executing;
        more = waitingCount - std::min(waitingCount, turns);
        if (width != unbounded) {
            more = std::min(more, width - std::min(width, turns + executing));
        }
        turns += more;
    }
    for (; more != 0; --more) {
        threads.async([self = shared_from_this()] { self->takeTurn(); });
    }
}

void OperationQueue::State::takeTurn() {
    const std::shared_ptr<Operation> operation = takeBest();
    if (operation == nullptr || operation->isFinished()) {
        return; // what waited has reported its end meanwhile, or is about to
    }
    Mutex::assertNoneHeld("an operation is started");
    operation->start();
}

std::shared_ptr<Operation> OperationQueue::State::takeBest() {
    Lock lock(mutex);
    --turns;
    if (waiting.empty()) {
        return nullptr;
    }
    const auto best = waiting.begin();
    Entry& entry = unfinished.at(best->second.front());
    best->second.pop_front();
    if (best->second.empty()) {
        waiting.erase(best);
    }
    entry.executing = true;
    ++executing;
    return entry.operation;
}

void OperationQueue::State::finish(const Operation& operation) {
    std::shared_ptr<Operation> released;
    {
        Lock lock(mutex);
        const auto found = unfinished.find(&operation);
        if (found == unfinished.end()) {
            return; // it reports its end for the second time
        }
        if (found->second.executing) {
            --executing;
        } else {
            const auto list = waiting.find(found->second.priority);
            std::erase(list->second, &operation);
            if (list->second.empty()) {
                waiting.erase(list);
            }
        }
        released = std::move(found->second.operation);
        unfinished.erase(found);
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
    return state->unfinished.size();
}

} // namespace zem::platform
