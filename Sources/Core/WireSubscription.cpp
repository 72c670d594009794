#include <zem/Core/Private/CallbackQueue.h>
#include <zem/Core/Private/EnterRuntime.h>
#include <zem/Core/WireSubscription.h>

#include <utility>

namespace zem {

WireSubscription::WireSubscription(std::string adapterId, std::string config,
                                   std::optional<AdapterRequestContext> requestContext,
                                   std::shared_ptr<platform::OperationQueue> unsubscribeQueue,
                                   std::shared_ptr<platform::SerialQueue> callbackQueue)
    : adapterId(std::move(adapterId))
    , config(std::move(config))
    , requestContext(std::move(requestContext))
    , callbackQueue(callbackQueue ? std::move(callbackQueue) : makeCallbackQueue())
    , unsubscribeQueue(std::move(unsubscribeQueue)) {}

std::shared_ptr<WireSubscription>
WireSubscription::create(std::string adapterId, std::string config,
                         std::optional<AdapterRequestContext> requestContext,
                         std::shared_ptr<platform::OperationQueue> unsubscribeQueue,
                         std::shared_ptr<platform::SerialQueue> callbackQueue) {
    return std::shared_ptr<WireSubscription>(
        new WireSubscription(std::move(adapterId), std::move(config), std::move(requestContext),
                             std::move(unsubscribeQueue), std::move(callbackQueue)));
}

std::function<void()> WireSubscription::cleanupHandle() {
    // Strong: the caller may end the subscription after its service is gone, and the runtime must
    // hear of it.
    return [self = shared_from_this()] {
        self->cleanUp();
    };
}

/// Claims the right to call the runtime's function: returned once, then empty.
js::Function WireSubscription::claimUncalled() {
    if (!unsubscribeFunc || jsAlreadyCalled) {
        return {};
    }
    jsAlreadyCalled = true;
    return unsubscribeFunc;
}

/// The same. Where nothing is returned, the function is called when it arrives.
js::Function WireSubscription::claimForUnsubscribe() {
    js::Function claimed = claimUncalled();
    if (!claimed) {
        cleanedUpBeforeFunctionSet = true;
    }
    return claimed;
}

void WireSubscription::setCleanupFunc(std::function<void()> function) {
    {
        const platform::Lock lock(mutex);
        if (!cleanedUpBeforeFunctionSet) {
            std::swap(cleanupFunc, function);
            return;
        }
        cleanupFunc = nullptr;
    }
    if (function) {
        function();
    }
}

void WireSubscription::functionArrived(js::Function function, std::function<void()> cleanup) {
    js::Function before;
    js::Function after;
    {
        const platform::Lock lock(mutex);
        before = claimUncalled();
        std::swap(unsubscribeFunc, function);
        if (cleanedUpBeforeFunctionSet) {
            after = claimForUnsubscribe();
        } else {
            std::swap(cleanupFunc, cleanup);
            cleanup = nullptr;
        }
    }
    scheduleCall(std::move(before));
    scheduleCall(std::move(after));
    if (cleanup) {
        cleanup();
    }
}

void WireSubscription::cleanUp() {
    cleanedUp = true;
    js::Function dropped;
    js::Function claimed;
    bool wasBefore = false;
    {
        const platform::Lock lock(mutex);
        if (!unsubscribeFunc) {
            cleanedUpBeforeFunctionSet = true;
        }
        claimed = claimUncalled();
        std::swap(unsubscribeFunc, dropped);
        wasBefore = cleanedUpBeforeFunctionSet;
    }
    scheduleCall(std::move(claimed));
    if (wasBefore) {
        unsubscribe();
    }
    std::function<void()> cleanup;
    {
        const platform::Lock lock(mutex);
        std::swap(cleanupFunc, cleanup);
    }
    if (cleanup) {
        cleanup();
    }
}

void WireSubscription::unsubscribe() {
    js::Function claimed;
    {
        const platform::Lock lock(mutex);
        claimed = claimForUnsubscribe();
    }
    scheduleCall(std::move(claimed));
}

void WireSubscription::scheduleCall(js::Function function) {
    if (!function) {
        return;
    }
    const js::Context context = function.context();
    unsubscribeQueue->addOperation(
        [function = std::move(function), weak = weak_from_this()] {
            enterRuntime(function.context(), [&](js::Scope& scope) {
                if (const auto answer = function.call(scope); !answer) {
                    scope.context().reportUncaught(scope, answer.error());
                }
            });
            if (const auto self = weak.lock()) {
                self->called();
            }
        },
        platform::QueuePriority::veryHigh, context.lane());
}

void WireSubscription::called() {
    js::Function dropped;
    bool wasBefore = false;
    {
        const platform::Lock lock(mutex);
        std::swap(unsubscribeFunc, dropped);
        wasBefore = cleanedUpBeforeFunctionSet;
    }
    if (wasBefore) {
        unsubscribe();
    }
}

} // namespace zem
