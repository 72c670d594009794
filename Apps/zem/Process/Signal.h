#pragma once

// Something that happens once.

#include <zem/Platform/RunLoop.h>

#include <atomic>
#include <future>

namespace zem::host {

/// Thread-safe, but waited for by one.
class Signal {
  public:
    /// The first time counts.
    void set() {
        if (!isSet.exchange(true)) {
            promise.set_value();
        }
    }

    void waitFor(platform::Seconds limit) { future.wait_for(limit); }

  private:
    std::atomic<bool> isSet = false;
    std::promise<void> promise;
    std::future<void> future = promise.get_future();
};

} // namespace zem::host
