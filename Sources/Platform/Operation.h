#pragma once

// Operations with observable state, and the queue that runs them by priority.

#include <zem/Platform/Mutex.h>
#include <zem/Platform/Queue.h>
#include <zem/Platform/Task.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string_view>
#include <vector>

namespace zem::platform {

/// The order in which an operation queue starts what waits in it. Any integer between is allowed.
enum class QueuePriority : int { veryLow = -8, low = -4, normal = 0, high = 4, veryHigh = 8 };

class OperationQueueState;

/// One unit of work, used once. A subclass that is asynchronous overrides `start` and the three
/// state queries, and posts the changes of "isExecuting" and "isFinished" itself; a plain one
/// overrides `main`.
class Operation : public std::enable_shared_from_this<Operation> {
  public:
    enum class Change { will, did };
    /// Called on the thread that changes the state, with no lock held: it may ask for the state.
    using Observer = std::function<void(Operation&, std::string_view key, Change)>;

    Operation() = default;
    virtual ~Operation() = default;
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    /// True when the operation is not finished when `start` returns. False here.
    virtual bool isAsynchronous() const;
    virtual bool isExecuting() const;
    virtual bool isFinished() const;
    virtual bool isCancelled() const;

    /// Runs the operation on the calling thread: finishes at once when cancelled, else executes
    /// `main` between the changes of "isExecuting" and "isFinished". Does nothing the second time.
    virtual void start();

    /// Asks that it not start, with the changes of "isCancelled". One that is executing goes on,
    /// and `isCancelled` tells it. A cancelled operation in a queue is started in its turn all the
    /// same, and finishes itself. Does nothing once finished.
    virtual void cancel();

    QueuePriority queuePriority() const;
    /// Only before the operation is added to a queue.
    void setQueuePriority(QueuePriority priority);

    /// Where the operation is started instead of on the queue's threads, one after the other with
    /// all others of that lane: for operations that would only wait for each other. `lane` runs its
    /// tasks one at a time. Only before the operation is added to a queue.
    void setLane(std::shared_ptr<Queue> lane);

    /// Observers are kept until the operation is destroyed and called in the order they were added.
    /// One that is added during a change is called from the next one on.
    void addObserver(Observer observer);

  protected:
    /// The work of a plain operation. Empty here.
    virtual void main();

    /// Tells the observers. When a change of state touches two keys, the order is will(old),
    /// will(new), did(new), did(old), with the state itself changed between the wills and the dids.
    /// The queue may drop its reference when it is told of "isFinished": the caller holds another.
    void willChangeValue(std::string_view key);
    void didChangeValue(std::string_view key);

  private:
    friend class OperationQueueState;
    enum class Phase { outside, waiting, starting, executing, left };

    void notify(std::string_view key, Change change);

    mutable Mutex mutex;
    // Replaced, never changed: a notification goes on with the list that it began with.
    std::shared_ptr<const std::vector<Observer>> observers;
    std::atomic<bool> observed = false;
    QueuePriority priority = QueuePriority::normal;
    bool started = false;
    bool executing = false;
    bool finished = false;
    bool cancelled = false;
    // From when it is added: the operation keeps the queue, so that it runs although the
    // application has let go of that.
    std::shared_ptr<OperationQueueState> queue;
    std::shared_ptr<Queue> lane; // not changed from then on

    // Guarded by the queue's lock: how far it has come there, its order among those that wait, and
    // its position in the list that holds it.
    Phase phase = Phase::outside;
    int rank = 0;
    std::uint64_t arrival = 0;
    std::list<std::shared_ptr<Operation>>::iterator position;
};

/// An operation that runs one task, and destroys it before it finishes.
class BlockOperation final : public Operation {
  public:
    static std::shared_ptr<BlockOperation> create(Task block,
                                                  QueuePriority = QueuePriority::normal);

  protected:
    void main() override;

  private:
    explicit BlockOperation(Task block);
    Task block;
};

/// Starts what is added to it on the threads of a queue, or of the operation's lane: a higher
/// priority first, first come first served within one, never more than
/// `maxConcurrentOperationCount` unfinished at once. Which operation takes a slot is decided when
/// a thread is there for it. An operation holds its slot from `start` until it has reported
/// "isFinished" and `start` has returned, and is kept alive that long; one that reports it while it
/// waits leaves the queue without being started. Operations already added run even when the last
/// reference to the queue is dropped.
class OperationQueue {
  public:
    /// Bounded only by the threads of the global queue.
    static constexpr std::size_t unbounded = 0;

    /// `threads` is where operations are started, whatever their lanes; when absent that is their
    /// lane or, without one, the global concurrent queue. It must outlive the operations.
    static std::shared_ptr<OperationQueue>
    create(std::size_t maxConcurrentOperationCount = unbounded, Queue* threads = nullptr);
    ~OperationQueue();

    /// Any thread; returns at once. An operation may be added to one queue, once; adding it again
    /// ends the process.
    void addOperation(const std::shared_ptr<Operation>& operation);
    void addOperation(Task block, QueuePriority priority = QueuePriority::normal,
                      std::shared_ptr<Queue> lane = nullptr);

    std::size_t maxConcurrentOperationCount() const;

    /// How many operations were added and have not finished.
    std::size_t operationCount() const;

  private:
    explicit OperationQueue(std::shared_ptr<OperationQueueState> state);
    std::shared_ptr<OperationQueueState> state;
};

} // namespace zem::platform
