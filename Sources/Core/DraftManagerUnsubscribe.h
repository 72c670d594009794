#pragma once

// The handle that ends a listener of the draft queue, wherever that has moved meanwhile.

#include <zem/Platform/Mutex.h>

#include <functional>
#include <memory>

namespace zem {

/// Thread-safe. Destroying it ends nothing: the listener keeps its handle.
class DraftManagerUnsubscribe {
  public:
    explicit DraftManagerUnsubscribe(std::function<void()> unsubscribe);
    DraftManagerUnsubscribe(const DraftManagerUnsubscribe&) = delete;
    DraftManagerUnsubscribe& operator=(const DraftManagerUnsubscribe&) = delete;

    /// Removes the listener, by calling what is set. Any thread, any number of times. An event that
    /// was on its way to the listener before still reaches it.
    void unsubscribe();

    /// Sets the function that `unsubscribe` calls from now on; may be empty. A draft manager that
    /// takes the listener over from another one calls what is set, once and with its lock held, and
    /// sets its own: what is set calls no manager, no handle of a listener and not the runtime.
    void setUnsubscribe(std::function<void()> callback);

  private:
    friend class DraftManager;

    /// Shared, so that none of the application's code runs where it is copied.
    using Callback = std::shared_ptr<const std::function<void()>>;

    struct Moved {
        bool wasUnsubscribed = false; ///< before or meanwhile: the listener has no place any more
        /// The callback that was called, and the one that was set until now. Both are dropped
        /// without the manager's lock.
        Callback called;
        Callback replaced;
    };

    /// The move from one manager to another: removes the listener there, and has it removed by
    /// `callback` from now on.
    [[nodiscard]] Moved move(std::function<void()> callback);

    static Callback share(std::function<void()> callback);

    mutable platform::Mutex lock;
    Callback callback;
    bool wasUnsubscribed = false;
};

} // namespace zem
