#pragma once

// A caller's callback and the handle that ends what it listens to.

#include <zem/Core/AdapterInvokeOperation.h>
#include <zem/Platform/RunLoop.h>

#include <atomic>
#include <memory>
#include <utility>

namespace zem {

/// Compared by identity. What is not const is atomic: emissions, watchdog and callers meet here on
/// different threads.
template <class Callback, class Unsubscribable>
struct BatchingSubscription {
    BatchingSubscription(Callback callback, platform::RunLoop::TimePoint preparedDate,
                         std::shared_ptr<Unsubscribable> unsubscribable,
                         std::weak_ptr<AdapterInvokeOperation> adapterOperation = {})
        : callback(std::move(callback))
        , preparedDate(preparedDate)
        , adapterOperation(std::move(adapterOperation))
        , unsubscribable(std::move(unsubscribable)) {}

    /// No owner is left to hear an answer: an operation that waits for one gives its slot on the
    /// shared queue back.
    ~BatchingSubscription() {
        if (const auto operation = adapterOperation.lock()) {
            operation->finish();
        }
    }
    BatchingSubscription(const BatchingSubscription&) = delete;
    BatchingSubscription& operator=(const BatchingSubscription&) = delete;

    const Callback callback;
    /// When it was asked for, and stays so when it moves from one service to another.
    const platform::RunLoop::TimePoint preparedDate;
    std::atomic<bool> hasEmitted = false;
    /// The operation that holds a slot on the shared queue until the first emission. Weak: an
    /// operation that has not started holds this subscription.
    const std::weak_ptr<AdapterInvokeOperation> adapterOperation;
    const std::shared_ptr<Unsubscribable> unsubscribable;
};

} // namespace zem
