#pragma once

// The state behind an operation queue.

#include <zem/Platform/Mutex.h>
#include <zem/Platform/Operation.h>
#include <zem/Platform/Queue.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
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
    using Operations = std::list<std::shared_ptr<Operation>>;

    /// Operations that start on the same threads: those of the queue, several at once, or those of
    /// a lane, one after the other.
    struct Lane {
        /// Null for the queue's own threads.
        std::shared_ptr<Queue> queue;
        // The highest priority first, and within one the first come. No list in it is empty.
        std::map<int, Operations, std::greater<>> waiting;
        // A turn was asked for and has not begun; of a lane, has not ended.
        bool turnAsked = false;
    };

    class Turn;

    /// On the lane's thread: starts the best of what waits there, again and again while there are
    /// slots, up to the most that one turn starts. Before each start, which may take its time,
    /// other threads are asked for if there is more to do.
    void takeTurn(Lane& lane);

    // The rest runs under the lock.

    /// Asks each lane for a turn that has something to start, when there is a slot and no turn on
    /// its way. Gives the lock back while it asks.
    void askForTurns(UniqueLock& lock);
    Lane* laneToAsk();

    /// Null when nothing that waits in the lane may start now.
    Operation* takeBest(Lane& lane);

    /// The slots that are free belong to others, which wait in other lanes and come first.
    bool mustPass(const Lane& lane) const;
    /// How many of those that wait in the lane come before `operation`; it stops counting at
    /// `enough`.
    static std::size_t countBefore(const Operation& operation, const Lane& lane,
                                   std::size_t enough);

    void removeWaiting(Operation& operation, Operations& removed);

    /// Forgets a lane where nothing waits and no turn is to come; returns its queue.
    std::shared_ptr<Queue> dropIfIdle(Lane& lane);

    bool hasSlot() const { return width == OperationQueue::unbounded || inProgress.size() < width; }

    Queue& threads;
    const bool usesLanes;

    mutable Mutex mutex;
    // By their queues; those that nothing waits in go. Few: an application has an engine or two.
    std::map<const Queue*, Lane> lanes;
    // The operations that hold a slot.
    Operations inProgress;
    std::size_t unfinished = 0;
    std::uint64_t arrivals = 0;
};

} // namespace zem::platform
