#include <zem/Platform/Private/TimerList.h>

#include <algorithm>

namespace zem::platform {

namespace {

using Duration = TimerList::TimePoint::duration;

class ScheduledTimer final : public Timer {
  public:
    ScheduledTimer(std::weak_ptr<TimerList> list, std::weak_ptr<TimerList::Entry> entry)
        : list(std::move(list))
        , entry(std::move(entry)) {}
    ~ScheduledTimer() override { ScheduledTimer::invalidate(); }

    void invalidate() override {
        const std::shared_ptr<TimerList> timers = list.lock();
        const std::shared_ptr<TimerList::Entry> scheduled = entry.lock();
        if (timers != nullptr && scheduled != nullptr) {
            timers->remove(scheduled);
        }
    }

  private:
    const std::weak_ptr<TimerList> list;
    const std::weak_ptr<TimerList::Entry> entry;
};

Duration durationOf(Seconds interval, bool repeats) {
    // A repeating timer without an interval would leave the run loop no time for anything else.
    constexpr Seconds shortest{0.0001};
    constexpr Seconds longest = std::chrono::years(100);
    const Seconds least = repeats ? shortest : Seconds::zero();
    if (!(interval > least)) { // not a number, too
        interval = least;
    }
    return std::chrono::duration_cast<Duration>(std::min(interval, longest));
}

} // namespace

std::unique_ptr<Timer> TimerList::add(TimePoint now, Seconds interval, bool repeats,
                                      std::function<void()> block) {
    const Duration duration = durationOf(interval, repeats);
    auto entry = std::make_shared<Entry>(
        Entry{now + duration, duration, repeats, true, 0, std::move(block)});
    auto timer = std::make_unique<ScheduledTimer>(weak_from_this(), entry);
    Lock lock(mutex);
    if (!closed) {
        entry->number = ++lastNumber;
        entries.emplace(Key{entry->due, entry->number}, entry);
    }
    return timer;
}

std::optional<RunLoop::TimePoint> TimerList::nextDue() const {
    Lock lock(mutex);
    return entries.empty() ? std::nullopt : std::optional(entries.begin()->first.first);
}

std::shared_ptr<TimerList::Entry> TimerList::take(TimePoint limit) {
    Lock lock(mutex);
    if (entries.empty() || entries.begin()->first.first > limit) {
        return nullptr;
    }
    return entries.extract(entries.begin()).mapped();
}

void TimerList::putBack(std::shared_ptr<Entry> entry, TimePoint now) {
    Lock lock(mutex);
    if (!entry->repeats || !entry->valid || closed) {
        return;
    }
    const auto missed = std::max<Duration::rep>(0, (now - entry->due) / entry->interval);
    entry->due += (missed + 1) * entry->interval;
    const Key key{entry->due, entry->number};
    entries.emplace(key, std::move(entry));
}

void TimerList::remove(const std::shared_ptr<Entry>& entry) {
    // The caller holds the entry, so that its block is destroyed without the lock.
    Lock lock(mutex);
    entry->valid = false;
    entries.erase(Key{entry->due, entry->number});
}

void TimerList::close() {
    std::map<Key, std::shared_ptr<Entry>> dropped;
    Lock lock(mutex);
    closed = true;
    dropped.swap(entries);
}

} // namespace zem::platform
