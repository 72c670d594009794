#include <zem/Platform/Operation.h>
#include <zem/Platform/Private/OperationQueueState.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace zem::platform {

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
    {
        Lock lock(operation->mutex);
        if (std::exchange(operation->enqueued, true)) {
            std::fprintf(stderr, "zem: an operation is added to a queue for the second time\n");
            std::abort();
        }
        operation->queue = shared_from_this();
    }
    const int priority = static_cast<int>(operation->queuePriority());
    {
        Lock lock(mutex);
        if (!usesLanes) {
            operation->lane = nullptr;
        }
        Lane& lane = lanes[operation->lane.get()];
        if (lane.queue != operation->lane) {
            lane.queue = operation->lane;
        }
        lane.waiting[priority].push_back(operation);
        ++lane.waitingCount;
        ++unfinished;
    }
    if (operation->isFinished()) { // its report came before it was here
        finish(*operation);
    } else {
        schedule();
    }
}

void OperationQueueState::schedule() {
    while (Lane* const lane = laneToAsk()) {
        // The turn may be over, and the lane gone, before this call returns.
        const std::shared_ptr<Queue> kept = lane->queue;
        Queue& asked = kept != nullptr ? *kept : threads;
        asked.async([turn = Turn(shared_from_this(), *lane)]() mutable { turn.take(); });
    }
}

OperationQueueState::Lane* OperationQueueState::laneToAsk() {
    Lock lock(mutex);
    if (!hasPlace()) {
        return nullptr;
    }
    for (auto& [queue, lane] : lanes) {
        if (lane.waitingCount != 0 && !lane.turnAsked && !mustPass(lane)) {
            lane.turnAsked = true;
            return &lane;
        }
    }
    return nullptr;
}

void OperationQueueState::takeTurn(Lane& lane) {
    {
        Lock lock(mutex);
        lane.turnAsked = lane.queue != nullptr;
    }
    while (const std::shared_ptr<Operation> operation = takeBest(lane)) {
        schedule();
        // One that has reported its end meanwhile is not started.
        if (!operation->isFinished()) {
            Mutex::assertNoneHeld("an operation is started");
            operation->start();
        }
        started(*operation);
    }
    // The last place that was given back here may be wanted elsewhere.
    schedule();
}

std::shared_ptr<Operation> OperationQueueState::takeBest(Lane& lane) {
    std::shared_ptr<Queue> dropped;
    Lock lock(mutex);
    std::shared_ptr<Operation> best;
    if (hasPlace() && !mustPass(lane)) {
        best = takeFirst(lane);
    }
    if (best != nullptr) {
        ++places;
        best->phase = Phase::starting;
    } else if (lane.queue != nullptr) {
        lane.turnAsked = false;
        if (lane.waiting.empty()) {
            dropped = lane.queue;
            lanes.erase(dropped.get());
        }
    }
    return best;
}

std::shared_ptr<Operation> OperationQueueState::takeFirst(Lane& lane) {
    while (!lane.waiting.empty()) {
        const auto best = lane.waiting.begin();
        std::shared_ptr<Operation> operation = std::move(best->second.front());
        best->second.pop_front();
        if (best->second.empty()) {
            lane.waiting.erase(best);
        }
        if (operation->phase == Phase::waiting) {
            --lane.waitingCount;
            return operation;
        }
    }
    return nullptr;
}

bool OperationQueueState::mustPass(const Lane& lane) const {
    if (lanes.size() == 1 || width == OperationQueue::unbounded || lane.waiting.empty()) {
        return false;
    }
    const int own = lane.waiting.begin()->first;
    std::size_t better = 0;
    for (const auto& [queue, other] : lanes) {
        for (auto list = other.waiting.begin(); list != other.waiting.end() && list->first > own;
             ++list) {
            better += &other == &lane ? 0 : list->second.size();
        }
    }
    return better >= width - places;
}

void OperationQueueState::started(Operation& operation) {
    Lock lock(mutex);
    if (operation.phase == Phase::left) {
        --places;
    } else {
        operation.phase = Phase::executing;
        operation.kept = operation.shared_from_this();
    }
}

void OperationQueueState::finish(Operation& operation) {
    // Let go of when the lock is: the operation may be the last to hold this queue, and the queue
    // the last to hold the operation.
    std::shared_ptr<OperationQueueState> self;
    std::shared_ptr<Operation> released;
    {
        Lock lock(operation.mutex);
        self = std::move(operation.queue);
    }
    {
        Lock lock(mutex);
        const Phase phase = std::exchange(operation.phase, Phase::left);
        if (phase == Phase::left) {
            return; // it reports its end for the second time
        }
        --unfinished;
        if (phase == Phase::starting) {
            return; // its place is given back when its start has returned
        }
        if (phase == Phase::waiting) {
            --lanes.at(operation.lane.get()).waitingCount;
        } else {
            --places;
            released = std::move(operation.kept);
        }
    }
    schedule();
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
