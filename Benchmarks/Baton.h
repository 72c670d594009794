#pragma once

// One thread telling another to go on.

#include <condition_variable>
#include <mutex>

namespace bench {

/// Given from one thread to another.
class Baton {
  public:
    void give() {
        const std::scoped_lock lock(mutex);
        given = true;
        condition.notify_one();
    }
    void take() {
        std::unique_lock lock(mutex);
        condition.wait(lock, [this] { return given; });
        given = false;
    }

  private:
    std::mutex mutex;
    std::condition_variable condition;
    bool given = false;
};

} // namespace bench
