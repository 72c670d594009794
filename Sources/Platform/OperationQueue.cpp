#include <zem/Platform/Operation.h>
#include <zem/Platform/Private/OperationQueueState.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace zem::platform {

namespace {

/// Other work for the lane's thread waits for one turn at most.
constexpr int mostStartsOfATurn = 16;

} // namespace

/// One turn of a lane. Where the lane's thread has ended, and drops what is asked of it, the turn
/// is taken on a thread of the queue: what waits there must not wait for ever.
class OperationQueueState::Turn {
  public:
    Turn(std::shared_ptr<OperationQueueState> state, Lane& lane)
        : state(std::move(state))
        , lane(lane) {}
    Turn(Turn&&) noexcept = default;
    Turn& operator=(Turn&&) = delete;
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() {
        if (state != nullptr) {
            Queue& fallback = state->threads;
            fallback.async([turn = Turn(std::move(state), lane)]() mutable { turn.take(); });
        }
    }

    void take() {
        const std::shared_ptr<OperationQueueState> taken = std::move(state);
        taken->takeTurn(lane);
    }

  private:
    std::shared_ptr<OperationQueueState> state;
    Lane& lane;
};

void OperationQueueState::add(const std::shared_ptr<Operation>& operation) {
    int priority = 0;
    {
        Lock lock(operation->mutex);
        if (operation->queue != nullptr) {
            std::fprintf(stderr, "zem: an operation is added to a queue for the second time\n");
            std::abort();
        }
        operation->queue = shared_from_this();
        priority = static_cast<int>(operation->priority);
    }
    if (!usesLanes) {
        operation->lane = nullptr;
    }
    Operations added{operation};
    {
        UniqueLock lock(mutex);
        Lane& lane = lanes[operation->lane.get()];
        lane.queue = operation->lane;
        operation->phase = Phase::waiting;
        operation->rank = priority;
        operation->arrival = arrivals++;
        operation->position = added.begin();
        Operations& equals = lane.waiting[priority];
        equals.splice(equals.end(), added);
        ++unfinished;
        askForTurns(lock);
    }
    if (operation->isFinished()) { // its report came before it was here
        finish(*operation);
    }
}

void OperationQueueState::finish(Operation& operation) {
    // Destroyed without the lock: what an operation captured is not ours.
    Operations removed;
    std::shared_ptr<Queue> dropped;
    UniqueLock lock(mutex);
    const Phase phase = operation.phase;
    if (phase == Phase::outside || phase == Phase::left) {
        return; // `add` looks for its end, or it has reported it before
    }
    operation.phase = Phase::left;
    --unfinished;
    switch (phase) {
    case Phase::waiting:
        removeWaiting(operation, removed);
        dropped = dropIfIdle(lanes.at(operation.lane.get()));
        break;
    case Phase::executing:
        removed.splice(removed.end(), inProgress, operation.position);
        break;
    default: // starting: its slot is given back when its start has returned
        return;
    }
    askForTurns(lock);
}

void OperationQueueState::takeTurn(Lane& lane) {
    Operations finished;
    std::shared_ptr<Queue> dropped;
    UniqueLock lock(mutex);
    lane.turnAsked = lane.queue != nullptr;
    for (int starts = 0; starts < mostStartsOfATurn; ++starts) {
        Operation* const operation = takeBest(lane);
        if (operation == nullptr) {
            break;
        }
        askForTurns(lock);
        lock.unlock();
        finished.clear();
        // One that has reported its end meanwhile is not started.
        if (!operation->isFinished()) {
            Mutex::assertNoneHeld("an operation is started");
            operation->start();
        }
        lock.lock();
        if (operation->phase == Phase::left) {
            finished.splice(finished.end(), inProgress, operation->position);
        } else {
            operation->phase = Phase::executing;
        }
    }
    if (lane.queue != nullptr) {
        lane.turnAsked = false;
        dropped = dropIfIdle(lane);
    }
    // The last slot that was given back here may be wanted elsewhere, or here again.
    askForTurns(lock);
}

void OperationQueueState::askForTurns(UniqueLock& lock) {
    while (Lane* const lane = laneToAsk()) {
        // The turn may be over, and the lane gone, before it has been asked for.
        std::shared_ptr<Queue> kept = lane->queue;
        lock.unlock();
        Queue& asked = kept != nullptr ? *kept : threads;
        asked.async([turn = Turn(shared_from_this(), *lane)]() mutable { turn.take(); });
        kept.reset();
        lock.lock();
    }
}

OperationQueueState::Lane* OperationQueueState::laneToAsk() {
    if (!hasSlot()) {
        return nullptr;
    }
    for (auto& [queue, lane] : lanes) {
        if (!lane.waiting.empty() && !lane.turnAsked && !mustPass(lane)) {
            lane.turnAsked = true;
            return &lane;
        }
    }
    return nullptr;
}

Operation* OperationQueueState::takeBest(Lane& lane) {
    if (!hasSlot() || lane.waiting.empty() || mustPass(lane)) {
        return nullptr;
    }
    Operation& best = *lane.waiting.begin()->second.front();
    removeWaiting(best, inProgress);
    best.phase = Phase::starting;
    return &best;
}

bool OperationQueueState::mustPass(const Lane& lane) const {
    if (lanes.size() == 1 || width == OperationQueue::unbounded) {
        return false;
    }
    const Operation& own = *lane.waiting.begin()->second.front();
    const std::size_t slots = width - inProgress.size();
    std::size_t before = 0;
    for (const auto& [queue, other] : lanes) {
        if (&other != &lane && before < slots) {
            before += countBefore(own, other, slots - before);
        }
    }
    return before >= slots;
}

std::size_t OperationQueueState::countBefore(const Operation& operation, const Lane& lane,
                                             std::size_t enough) {
    std::size_t count = 0;
    for (const auto& [rank, list] : lane.waiting) {
        if (rank < operation.rank || count >= enough) {
            break;
        }
        if (rank > operation.rank) {
            count += list.size();
            continue;
        }
        for (auto equal = list.begin();
             equal != list.end() && (*equal)->arrival < operation.arrival && count < enough;
             ++equal) {
            ++count;
        }
    }
    return count;
}

void OperationQueueState::removeWaiting(Operation& operation, Operations& removed) {
    Lane& lane = lanes.at(operation.lane.get());
    const auto equals = lane.waiting.find(operation.rank);
    removed.splice(removed.end(), equals->second, operation.position);
    if (equals->second.empty()) {
        lane.waiting.erase(equals);
    }
}

std::shared_ptr<Queue> OperationQueueState::dropIfIdle(Lane& lane) {
    if (lane.queue == nullptr || lane.turnAsked || !lane.waiting.empty()) {
        return nullptr;
    }
    std::shared_ptr<Queue> dropped = std::move(lane.queue);
    lanes.erase(dropped.get());
    return dropped;
}

std::shared_ptr<OperationQueue> OperationQueue::create(std::size_t maxConcurrentOperationCount,
                                                       Queue* threads) {
    return std::shared_ptr<OperationQueue>(new OperationQueue(
        std::make_shared<OperationQueueState>(maxConcurrentOperationCount, threads)));
}

OperationQueue::OperationQueue(std::shared_ptr<OperationQueueState> state)
    : state(std::move(state)) {}

OperationQueue::~OperationQueue() = default;

void OperationQueue::addOperation(const std::shared_ptr<Operation>& operation) {
    state->add(operation);
}

void OperationQueue::addOperation(Task block, QueuePriority priority, std::shared_ptr<Queue> lane) {
    const auto operation = BlockOperation::create(std::move(block), priority);
    operation->setLane(std::move(lane));
    addOperation(operation);
}

std::size_t OperationQueue::maxConcurrentOperationCount() const {
    return state->width;
}

std::size_t OperationQueue::operationCount() const {
    return state->count();
}

} // namespace zem::platform
