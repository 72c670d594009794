#pragma once

// How much native work JavaScript is still waiting for.

#include <zem/Platform/Mutex.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

namespace tessel {

/// Counts what is outstanding. A host that wants to end when nothing is left to do asks it.
/// Thread-safe.
class Activity {
  public:
    std::size_t outstanding() const;

    /// Calls `handler` whenever the count reaches zero, on the thread that ended the last piece of
    /// work. It must return soon and not enter the engine.
    void setIdleHandler(std::function<void()> handler);

  private:
    friend class ActivityToken;
    void begin();
    void end();

    mutable zem::platform::Mutex mutex;
    std::size_t count = 0;
    std::shared_ptr<const std::function<void()>> idleHandler;
};

/// One piece of outstanding work, for as long as it lives.
class ActivityToken {
  public:
    explicit ActivityToken(std::shared_ptr<Activity> activity)
        : activity(std::move(activity)) {
        this->activity->begin();
    }
    ~ActivityToken() { activity->end(); }
    ActivityToken(const ActivityToken&) = delete;
    ActivityToken& operator=(const ActivityToken&) = delete;

  private:
    std::shared_ptr<Activity> activity;
};

} // namespace tessel
