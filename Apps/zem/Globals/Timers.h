#pragma once

// The timers behind setTimeout and setInterval.

#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/Activity.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>

namespace zem::host {

/// Used on the thread of its run loop only. Timers fire in the order of their due times, and of
/// their starts if these are equal. The activity counts one while a timer that holds the run waits,
/// or any fires.
class Timers {
  public:
    using Id = std::uint64_t;

    Timers(std::shared_ptr<platform::RunLoop> runLoop, std::shared_ptr<tessel::Activity> activity,
           std::function<void(Id)> fire);

    /// Calls `fire(id)` once, after the delay. An id may be started again once it has fired. The
    /// run does not end by itself before a timer that holds it has fired.
    void start(Id id, platform::Seconds delay, bool holdsRun);

    /// Stops a timer. Ignores an id that is not started.
    void stop(Id id);

  private:
    using Due = std::pair<platform::RunLoop::TimePoint, std::uint64_t>;
    struct Started {
        Due due;
        bool holdsRun;
    };

    void fireDue();
    void arm();
    /// Takes or drops the token, as `holding` says.
    void hold();
    void remove(Id id);

    std::shared_ptr<platform::RunLoop> runLoop;
    std::shared_ptr<tessel::Activity> activity;
    std::function<void(Id)> fire;
    std::uint64_t started = 0;
    std::map<Due, Id> waiting;
    std::unordered_map<Id, Started> timers;
    std::size_t holding = 0;
    std::unique_ptr<platform::Timer> alarm;
    std::unique_ptr<tessel::ActivityToken> token;
};

} // namespace zem::host
