#pragma once

// Where asynchronous work goes: serial queues, the global concurrent queue and the main queue.

#include <zem/Platform/Task.h>

#include <memory>
#include <optional>
#include <string>

namespace zem::platform {

enum class QualityOfService { background, utility, unspecified, userInitiated, userInteractive };

/// Anything that runs tasks later, on a thread of its own choosing.
class Queue {
  public:
    virtual ~Queue() = default;

    /// Enqueues `task` and returns at once; never runs it before returning. Any thread.
    virtual void async(Task task) = 0;
};

/// Runs its tasks one at a time in the order they were enqueued, each seeing what the one before
/// wrote, on threads of the global concurrent queue. Tasks already enqueued are run even when the
/// last reference to the queue is dropped, which may be done from one of them.
class SerialQueue final : public Queue {
  public:
    static std::shared_ptr<SerialQueue> create(std::string label,
                                               QualityOfService = QualityOfService::unspecified);
    ~SerialQueue() override;

    void async(Task task) override;

    /// Enqueues `task` and returns when it has run. On a queue that is not running just then, the
    /// calling thread itself runs what waits in it, up to and including `task`: so it returns even
    /// when every thread of the global queue is blocked. Calling it from a task of the same queue
    /// could never return, and ends the process instead.
    void sync(Task task);

    const std::string& label() const;
    QualityOfService qualityOfService() const;

    /// True on the thread that is running one of this queue's tasks, while it runs it.
    bool isCurrent() const;

    /// The label of the serial queue whose task this thread is running; empty when there is none.
    static std::string currentLabel();
    /// Its quality of service; absent when there is none.
    static std::optional<QualityOfService> currentQualityOfService();

  private:
    struct State;
    explicit SerialQueue(std::shared_ptr<State> state);
    std::shared_ptr<State> state;
};

/// The process-wide concurrent queue of a quality of service. Made on first use, never destroyed.
/// All qualities share the same threads, which tasks can block without starving others up to a
/// generous bound (64 threads); when they are all taken, a higher quality of service goes first.
Queue& globalQueue(QualityOfService = QualityOfService::unspecified);

/// Runs its tasks in order on the main thread's run loop, which the application (or the `zem` host)
/// runs. Never destroyed.
const std::shared_ptr<Queue>& mainQueue();

} // namespace zem::platform
