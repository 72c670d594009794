#pragma once

// An event that happens once.

#include <zem/Platform/RunLoop.h>

#include <atomic>
#include <future>

namespace zem::host {

/// Any thread sets it; one thread waits for it.
class OneShotEvent {
  public:
    /// The first call sets it, later ones do nothing.
    void set() {
        if (!isSet.exchange(true)) {
            promise.set_value();
        }
    }

    /// Returns when it is set, at the latest after `limit`.
    void waitFor(platform::Seconds limit) { future.wait_for(limit); }

  private:
    std::atomic<bool> isSet = false;
    std::promise<void> promise;
    std::future<void> future = promise.get_future();
};

} // namespace zem::host
