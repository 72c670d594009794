#pragma once

// The live subscriptions of a service, in the order in which they were added.

#include <zem/Core/BatchingSubscription.h>
#include <zem/Core/DataServiceResult.h>
#include <zem/Core/WireSubscription.h>
#include <zem/Platform/RunLoop.h>

#include <boost/unordered/unordered_flat_map.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace zem {

/// Guarded by its service's lock. Adding, removing and settling take a time that does not depend on
/// how many there are; looking for the overdue is one walk over a plain array of times. What it
/// gives back is dropped without the lock: destroying it runs the caller's code.
class SubscriptionList {
  public:
    using Subscription = BatchingSubscription<ResultCallback, WireSubscription>;
    using Entries = std::vector<std::shared_ptr<Subscription>>;
    using TimePoint = platform::RunLoop::TimePoint;

    void append(std::shared_ptr<Subscription> subscription);

    /// Null when it is not here.
    [[nodiscard]] std::shared_ptr<Subscription> remove(const WireSubscription& unsubscribable);

    /// It has emitted and is never overdue.
    void settle(const WireSubscription& unsubscribable);

    std::size_t size() const { return places.size(); }

    /// How many were ever appended: a mark for `takeOverdue`.
    std::uint64_t appended() const { return counter; }

    /// Settles, and returns, those of the first `mark` ever appended that are silent and were
    /// prepared at `latest` or before.
    [[nodiscard]] Entries takeOverdue(TimePoint latest, std::uint64_t mark);

    /// All of them; none is left.
    [[nodiscard]] Entries takeAll();

  private:
    void compact();

    // In parallel; a removed one leaves a gap until there are as many gaps as entries.
    std::vector<TimePoint> silentSince;
    std::vector<std::uint64_t> numbers;
    Entries entries;
    boost::unordered_flat_map<const WireSubscription*, std::size_t> places;
    std::uint64_t counter = 0;
};

} // namespace zem
