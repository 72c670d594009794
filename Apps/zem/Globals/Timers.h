#pragma once

// The timers behind setTimeout and setInterval.

#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/Activity.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>

namespace zem::host {

/// Used on the thread of its run loop only. Timers fire in the order of their due times, those due
/// at once in the order in which they were started. While one is left, or firing, the activity
/// counts one.
class Timers {
  public:
    using Id = std::uint64_t;

    Timers(std::shared_ptr<platform::RunLoop> runLoop, std::shared_ptr<tessel::Activity> activity,
           std::function<void(Id)> fire);

    /// Has `fire(id)` called once, after the delay. An id may be started again once it has fired.
    void start(Id id, platform::Seconds delay);

    /// It does not fire any more. One that is not started is ignored.
    void stop(Id id);

  private:
    using Due = std::pair<platform::RunLoop::TimePoint, std::uint64_t>;

    void fireDue();
    void arm();

    std::shared_ptr<platform::RunLoop> runLoop;
    std::shared_ptr<tessel::Activity> activity;
    std::function<void(Id)> fire;
    std::uint64_t started = 0;
    std::map<Due, Id> waiting;
    std::unordered_map<Id, Due> dueTimes;
    std::unique_ptr<platform::Timer> alarm;
    std::unique_ptr<tessel::ActivityToken> token;
};

} // namespace zem::host
