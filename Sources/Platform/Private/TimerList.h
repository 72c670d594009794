#pragma once

// The timers of one run loop, in the order in which they fall due.

#include <zem/Platform/Mutex.h>
#include <zem/Platform/RunLoop.h>

#include <cstdint>
#include <map>
#include <optional>
#include <utility>

namespace zem::platform {

class TimerList : public std::enable_shared_from_this<TimerList> {
  public:
    using TimePoint = RunLoop::TimePoint;

    struct Entry {
        TimePoint due;
        TimePoint::duration interval;
        bool repeats;
        bool valid;
        std::uint64_t number; // of two that are due together, the one scheduled first fires first
        std::function<void()> block;
    };

    /// Any thread.
    std::unique_ptr<Timer> add(TimePoint now, Seconds interval, bool repeats,
                               std::function<void()> block);

    std::optional<TimePoint> nextDue() const;

    /// The run loop's thread: takes out the first timer that is due by `limit`, to call its block
    /// with no lock held and then put it back. Null when there is none.
    std::shared_ptr<Entry> take(TimePoint limit);

    /// Puts a repeating timer back that was not invalidated meanwhile, at the next tick of its
    /// original rhythm that is after `now`.
    void putBack(std::shared_ptr<Entry> entry, TimePoint now);

    void remove(const std::shared_ptr<Entry>& entry);

    /// Drops every timer, and every later one.
    void close();

  private:
    using Key = std::pair<TimePoint, std::uint64_t>;

    mutable Mutex mutex;
    std::map<Key, std::shared_ptr<Entry>> entries;
    std::uint64_t lastNumber = 0;
    bool closed = false;
};

} // namespace zem::platform
