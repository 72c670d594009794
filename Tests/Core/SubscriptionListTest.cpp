#include <zem/Core/Private/SubscriptionList.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace zem;
using Subscription = SubscriptionList::Subscription;
using std::chrono::seconds;
using Lines = std::vector<std::string>;

SubscriptionList::TimePoint at(int second) {
    return SubscriptionList::TimePoint(seconds(second));
}

std::shared_ptr<Subscription> make(const std::string& name, int prepared = 0,
                                   ResultCallback callback = {}) {
    return std::make_shared<Subscription>(
        std::move(callback), at(prepared),
        WireSubscription::create(name, "{}", std::nullopt, platform::OperationQueue::create()));
}

/// Appends subscriptions named by their numbers; every one prepared a second after the one before.
std::vector<std::shared_ptr<Subscription>> fill(SubscriptionList& list, int count) {
    std::vector<std::shared_ptr<Subscription>> all;
    for (int number = 0; number < count; ++number) {
        all.push_back(make(std::to_string(number), number));
        list.append(all.back());
    }
    return all;
}

Lines namesOf(const SubscriptionList::Entries& entries) {
    Lines names;
    for (const auto& entry : entries) {
        names.push_back(entry->unsubscribable->adapterId);
    }
    return names;
}

TEST(SubscriptionList, KeepsTheOrderInWhichTheyWereAdded) {
    SubscriptionList list;
    EXPECT_EQ(list.size(), 0u);
    fill(list, 3);
    EXPECT_EQ(list.size(), 3u);
    EXPECT_EQ(namesOf(list.takeAll()), (Lines{"0", "1", "2"}));
    EXPECT_EQ(list.size(), 0u);
    EXPECT_EQ(namesOf(list.takeAll()), Lines{});
}

TEST(SubscriptionList, RemovesByIdentity) {
    SubscriptionList list;
    const auto first = make("same");
    const auto second = make("same");
    const auto stranger = make("same");
    list.append(first);
    list.append(second);
    EXPECT_EQ(list.remove(*stranger->unsubscribable), nullptr);
    EXPECT_EQ(list.size(), 2u);
    EXPECT_EQ(list.remove(*second->unsubscribable), second);
    EXPECT_EQ(list.remove(*second->unsubscribable), nullptr);
    EXPECT_EQ(list.size(), 1u);
    EXPECT_EQ(list.takeAll(), SubscriptionList::Entries{first});
    EXPECT_EQ(list.remove(*first->unsubscribable), nullptr);
}

TEST(SubscriptionList, LetsGoOfWhatItGivesBack) {
    SubscriptionList list;
    auto all = fill(list, 2);
    (void)list.remove(*all[0]->unsubscribable);
    EXPECT_EQ(all[0].use_count(), 1);
    (void)list.takeAll();
    EXPECT_EQ(all[1].use_count(), 1);
}

/// Removes all but every tenth, in several orders, each far past the point where gaps are closed.
class SubscriptionListRemoval : public testing::TestWithParam<int> {};

TEST_P(SubscriptionListRemoval, KeepsOrderTimesAndMarksOfTheOthers) {
    constexpr int count = 200;
    SubscriptionList list;
    auto all = fill(list, count);
    for (int step = 0; step < count; ++step) {
        // The stride shares no factor with the count: every number once.
        const auto number = static_cast<std::size_t>(step * GetParam() % count);
        if (number % 10 != 0) {
            EXPECT_EQ(list.remove(*all[number]->unsubscribable), all[number]);
        }
    }
    EXPECT_EQ(list.size(), 20u);
    EXPECT_EQ(list.appended(), 200u);
    list.settle(*all[50]->unsubscribable);
    // Of those prepared until second 90, the first 80 that were added.
    EXPECT_EQ(namesOf(list.takeOverdue(at(90), 80)),
              (Lines{"0", "10", "20", "30", "40", "60", "70"}));
    EXPECT_EQ(namesOf(list.takeOverdue(at(90), 200)), (Lines{"80", "90"}));
    // A new entry comes last, in a list with gaps too.
    const auto late = make("late", 500);
    list.append(late);
    EXPECT_EQ(list.appended(), 201u);
    EXPECT_EQ(list.remove(*all[190]->unsubscribable), all[190]);
    EXPECT_EQ(namesOf(list.takeAll()),
              (Lines{"0",   "10",  "20",  "30",  "40",  "50",  "60",  "70",  "80",  "90",
                     "100", "110", "120", "130", "140", "150", "160", "170", "180", "late"}));
}

INSTANTIATE_TEST_SUITE_P(Stride, SubscriptionListRemoval, testing::Values(1, 199, 7, 73));

TEST(SubscriptionList, IsOverdueFromTheVeryMomentOn) {
    SubscriptionList list;
    list.append(make("list", 100));
    EXPECT_EQ(namesOf(list.takeOverdue(at(99), list.appended())), Lines{});
    EXPECT_EQ(namesOf(list.takeOverdue(at(100), list.appended())), Lines{"list"});
    // Once.
    EXPECT_EQ(namesOf(list.takeOverdue(at(1000), list.appended())), Lines{});
    EXPECT_EQ(list.size(), 1u);
}

TEST(SubscriptionList, FindsOnlyWhatWasThereWhenTheMarkWasTaken) {
    SubscriptionList list;
    list.append(make("before"));
    const auto mark = list.appended();
    EXPECT_EQ(mark, 1u);
    list.append(make("after"));
    EXPECT_EQ(namesOf(list.takeOverdue(at(10), mark)), Lines{"before"});
    EXPECT_EQ(namesOf(list.takeOverdue(at(10), list.appended())), Lines{"after"});
}

TEST(SubscriptionList, CountsOnAcrossATakeOver) {
    SubscriptionList list;
    fill(list, 3);
    const auto mark = list.appended();
    (void)list.takeAll();
    list.append(make("later"));
    EXPECT_EQ(list.appended(), 4u);
    EXPECT_EQ(namesOf(list.takeOverdue(at(10), mark)), Lines{});
}

TEST(SubscriptionList, NeverFindsWhatHasEmittedOrWasRemoved) {
    SubscriptionList list;
    const auto emittedBefore = make("emitted before");
    emittedBefore->hasEmitted = true;
    const auto settled = make("settled");
    const auto removed = make("removed");
    list.append(emittedBefore);
    list.append(settled);
    list.append(removed);
    list.settle(*settled->unsubscribable);
    list.settle(*make("stranger")->unsubscribable);
    (void)list.remove(*removed->unsubscribable);
    EXPECT_EQ(namesOf(list.takeOverdue(at(1000), list.appended())), Lines{});
    EXPECT_EQ(namesOf(list.takeAll()), (Lines{"emitted before", "settled"}));
}

TEST(SubscriptionList, MayHoldOneAgainThatWasTaken) {
    SubscriptionList first;
    SubscriptionList second;
    auto all = fill(first, 2);
    for (auto& entry : first.takeAll()) {
        second.append(std::move(entry));
    }
    EXPECT_EQ(first.remove(*all[0]->unsubscribable), nullptr);
    EXPECT_EQ(second.remove(*all[0]->unsubscribable), all[0]);
    EXPECT_EQ(namesOf(second.takeOverdue(at(1), second.appended())), Lines{"1"});
}

} // namespace
