#pragma once

// A Ctrl-C that does not end the run.

#include <zem/Platform/Mutex.h>

#include <functional>
#include <memory>
#include <utility>

namespace zem::host {

/// Thread-safe.
class Interruption {
  public:
    /// `taker` returns whether it handles the interruption itself. A call that began before its
    /// replacement may end after that.
    void setTaker(std::function<bool()> taker) {
        auto shared = std::make_shared<const std::function<bool()>>(std::move(taker));
        const platform::Lock lock(mutex);
        current.swap(shared);
    }

    bool isTaken() const {
        std::shared_ptr<const std::function<bool()>> taker;
        {
            const platform::Lock lock(mutex);
            taker = current;
        }
        return taker != nullptr && *taker && (*taker)();
    }

  private:
    mutable platform::Mutex mutex;
    std::shared_ptr<const std::function<bool()>> current;
};

} // namespace zem::host
