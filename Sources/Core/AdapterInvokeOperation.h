#pragma once

// One call into an adapter, waiting for its turn on the shared queue.

#include <zem/Core/AdapterRequestContext.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/Operation.h>
#include <zem/Platform/Task.h>

#include <atomic>
#include <memory>

namespace zem {

/// Asynchronous: once started it executes, and holds its slot on the queue, until whoever receives
/// the adapter's answer finishes it. Thread-safe.
class AdapterInvokeOperation final : public platform::Operation {
    struct Made {}; // what only `create` has

  public:
    explicit AdapterInvokeOperation(Made) {}

    /// Observers hear of the states under the keys "isReady", "isExecuting" and "isFinished".
    enum class State { ready, executing, finished };

    static std::shared_ptr<AdapterInvokeOperation> create(AdapterRequestPriority priority);

    /// Sets the block that its start runs: once, on the thread that starts it, which is its lane's
    /// or else the queue's. Destroyed when it has run. Set before it is added to a queue.
    void setWorkBlock(platform::Task block);

    /// Withdraws the request: if it has not begun executing, it never runs its work block and
    /// finishes when its turn comes. It has no effect on one that is executing.
    void setShouldNotStart();

    State state() const;

    /// Posts will(old), will(new), did(new), did(old), with the new state in force from between the
    /// two pairs on.
    void setState(State state);

    /// Finishes it unless it is finished already. When several threads do, one of them does.
    void finish();

    bool isAsynchronous() const override { return true; }
    bool isExecuting() const override { return state() == State::executing; }
    bool isFinished() const override { return state() == State::finished; }
    /// Withdrawn, and not executing.
    bool isCancelled() const override;
    void start() override;

  private:
    platform::Task workBlock;
    std::atomic<bool> shouldNotStart = false;
    std::atomic<bool> finishing = false;
    mutable platform::Mutex stateLock;
    State stateStore = State::ready;
};

/// The queue priority of an adapter call: high 4, normal 0, background -8.
platform::QueuePriority queuePriority(AdapterRequestPriority priority);

} // namespace zem
