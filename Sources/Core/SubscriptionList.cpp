#include <zem/Core/Private/SubscriptionList.h>

#include <utility>

namespace zem {

namespace {

/// Later than anything: an entry that is a gap or has emitted.
constexpr auto never = SubscriptionList::TimePoint::max();

} // namespace

void SubscriptionList::append(std::shared_ptr<Subscription> subscription) {
    places.emplace(subscription->unsubscribable.get(), entries.size());
    silentSince.push_back(subscription->hasEmitted ? never : subscription->preparedDate);
    numbers.push_back(counter++);
    entries.push_back(std::move(subscription));
}

std::shared_ptr<SubscriptionList::Subscription>
SubscriptionList::remove(const WireSubscription& unsubscribable) {
    const auto found = places.find(&unsubscribable);
    if (found == places.end()) {
        return nullptr;
    }
    const std::size_t place = found->second;
    places.erase(found);
    silentSince[place] = never;
    std::shared_ptr<Subscription> removed = std::exchange(entries[place], nullptr);
    if (entries.size() > 2 * places.size() + 16) {
        compact();
    }
    return removed;
}

void SubscriptionList::settle(const WireSubscription& unsubscribable) {
    if (const auto found = places.find(&unsubscribable); found != places.end()) {
        silentSince[found->second] = never;
    }
}

SubscriptionList::Entries SubscriptionList::takeOverdue(TimePoint latest, std::uint64_t mark) {
    Entries overdue;
    for (std::size_t place = 0; place < silentSince.size(); ++place) {
        if (silentSince[place] <= latest && numbers[place] < mark) {
            silentSince[place] = never;
            overdue.push_back(entries[place]);
        }
    }
    return overdue;
}

SubscriptionList::Entries SubscriptionList::takeAll() {
    compact();
    silentSince.clear();
    numbers.clear();
    places.clear();
    return std::exchange(entries, {});
}

void SubscriptionList::compact() {
    std::size_t kept = 0;
    for (std::size_t place = 0; place < entries.size(); ++place) {
        if (entries[place] == nullptr) {
            continue;
        }
        places[entries[place]->unsubscribable.get()] = kept;
        silentSince[kept] = silentSince[place];
        numbers[kept] = numbers[place];
        entries[kept] = std::move(entries[place]);
        ++kept;
    }
    silentSince.resize(kept);
    numbers.resize(kept);
    entries.resize(kept);
}

} // namespace zem
