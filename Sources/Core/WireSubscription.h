#pragma once

// The two halves of a subscription to an adapter: the caller's, which there is at once, and the
// runtime's unsubscribe function, which comes later.

#include <zem/Core/AdapterRequestContext.h>
#include <zem/JavaScript/Context.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/Operation.h>
#include <zem/Platform/Queue.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zem {

/// The caller may end the subscription before or after the runtime's function arrives: that
/// function is called at most once, and the clean-up that takes the subscription out of its service
/// runs once. Compared by identity. Thread-safe.
class WireSubscription : public std::enable_shared_from_this<WireSubscription> {
  public:
    /// The runtime's function is called from `unsubscribeQueue`, ahead of everything that waits
    /// there with a priority of its own. Results go to `callbackQueue`; without one, the
    /// subscription has a queue to itself.
    static std::shared_ptr<WireSubscription>
    create(std::string adapterId, std::string config,
           std::optional<AdapterRequestContext> requestContext,
           std::shared_ptr<platform::OperationQueue> unsubscribeQueue,
           std::shared_ptr<platform::SerialQueue> callbackQueue = nullptr);

    /// The caller's unsubscribe: may be called any number of times, on any thread, and outlive
    /// every service. The runtime's function is called later, from the queue.
    std::function<void()> cleanupHandle();

    /// Sets the clean-up that takes the subscription out of its service. Called at once, and not
    /// kept, when the clean-up was requested before the runtime's function came.
    void setCleanupFunc(std::function<void()> function);

    /// The runtime has answered with its unsubscribe function, empty when the answer was none, and
    /// the service says what takes the subscription out of it. One step, so that a clean-up on
    /// another thread comes before both or after both; one that was requested before happens now. A
    /// function that was there already is called, as nobody else will.
    void functionArrived(js::Function function, std::function<void()> cleanup);

    /// True once a service has dropped it: then none takes it up.
    bool wasRemovedFromDataService() const { return removed; }
    void setWasRemovedFromDataService() { removed = true; }

    /// True once the caller has ended it.
    bool wasCleanedUp() const { return cleanedUp; }

    const std::string adapterId;
    /// The adapter's configuration, JSON by agreement; passed on as it is.
    const std::string config;
    const std::optional<AdapterRequestContext> requestContext;
    /// Where its results are delivered, in whichever service it is: the callback is never called
    /// twice at once.
    const std::shared_ptr<platform::SerialQueue> callbackQueue;

  private:
    WireSubscription(std::string adapterId, std::string config,
                     std::optional<AdapterRequestContext> requestContext,
                     std::shared_ptr<platform::OperationQueue> unsubscribeQueue,
                     std::shared_ptr<platform::SerialQueue> callbackQueue);

    void cleanUp();
    void unsubscribe();
    js::Function claimUncalled();
    js::Function claimForUnsubscribe();
    void scheduleCall(js::Function function);
    void called();

    const std::shared_ptr<platform::OperationQueue> unsubscribeQueue;
    std::atomic<bool> removed = false;
    std::atomic<bool> cleanedUp = false;

    // Guards what follows. Never held while anything is called.
    mutable platform::Mutex mutex;
    bool cleanedUpBeforeFunctionSet = false;
    bool jsAlreadyCalled = false;
    js::Function unsubscribeFunc;
    std::function<void()> cleanupFunc;
};

} // namespace zem
