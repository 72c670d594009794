#pragma once

// What stands behind an operation queue.

#include <zem/Platform/Mutex.h>
#include <zem/Platform/Operation.h>
#include <zem/Platform/Queue.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>

namespace zem::platform {

/// Kept alive by its queue, by the turns that were asked for and by the operations in it.
class OperationQueueState : public std::enable_shared_from_this<OperationQueueState> {
  public:
    OperationQueueState(std::size_t width, Queue* threads)
        : width(width)
        , threads(threads != nullptr ? *threads : globalQueue())
        , usesLanes(threads == nullptr) {}

    void add(const std::shared_ptr<Operation>& operation);

    /// It has reported its end.
    void finish(Operation& operation);

    std::size_t count() const {
        Lock lock(mutex);
        return unfinished;
    }

    const std::size_t width;

  private:
    using Phase = Operation::Phase;

    /// Operations that start on the same threads: those of the queue, several at once, or those of
    /// a lane, one after the other.
    struct Lane {
        /// Null for the queue's own threads.
        std::shared_ptr<Queue> queue;
        // The highest priority first. No list in it is empty; what left while it waited is passed
        // over.
        std::map<int, std::deque<std::shared_ptr<Operation>>, std::greater<>> waiting;
        std::size_t waitingCount = 0;
        // A turn was asked for and has not begun; of a lane, has not ended.
        bool turnAsked = false;
    };

    class Turn;

    /// Asks each lane for a turn that has something to start, when there is a place and no turn on
    /// its way.
    void schedule();
    Lane* laneToAsk();

    /// On the lane's thread: starts the best of what waits there, again and again while there are
    /// places. Before each start, which may take its time, other threads are asked for if there is
    /// more to do.
    void takeTurn(Lane& lane);
    std::shared_ptr<Operation> takeBest(Lane& lane);
    static std::shared_ptr<Operation> takeFirst(Lane& lane);

    /// The place that is free belongs to something more urgent that waits in another lane.
    bool mustPass(const Lane& lane) const;

    /// Its `start` has returned: one that finished meanwhile gives its place back.
    void started(Operation& operation);

    bool hasPlace() const { return width == OperationQueue::unbounded || places < width; }

    Queue& threads;
    const bool usesLanes;

    mutable Mutex mutex;
    // By their queues; those that nothing waits in go. Few: an application has an engine or two.
    std::map<const Queue*, Lane> lanes;
    std::size_t unfinished = 0;
    std::size_t places = 0; // in use
};

} // namespace zem::platform
