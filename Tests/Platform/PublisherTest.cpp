#include <zem/Platform/Publisher.h>

#include <gmock/gmock.h>

#include <Support/Wait.h>
#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace zem::platform;
using test::Event;
using test::Transcript;
using testing::ElementsAre;

namespace {

using NumberSubscriber = Subscriber<int, std::string>;
using NumberPublisher = Publisher<int, std::string>;
using End = Completion<std::string>;

std::string describe(Demand demand) {
    return demand.count() ? std::to_string(*demand.count()) : "unlimited";
}

std::string describe(const End& end) {
    return end.failure ? "failed: " + *end.failure : "finished";
}

/// Writes down what its subscriber does with it.
class RecordedSubscription final : public Subscription {
  public:
    explicit RecordedSubscription(Transcript& transcript)
        : transcript(transcript) {}

    void request(Demand demand) override { transcript.add("request " + describe(demand)); }
    void cancel() override { transcript.add("cancel"); }
    CombineIdentifier combineIdentifier() const override { return identifier; }

  private:
    Transcript& transcript;
    CombineIdentifier identifier;
};

/// Keeps its subscribers for the test to deliver to, and hands them nothing by itself.
class ManualPublisher final : public NumberPublisher {
  public:
    using Subscribers = std::vector<std::shared_ptr<NumberSubscriber>>;

    void receive(std::shared_ptr<NumberSubscriber> subscriber) const override {
        subscribers->push_back(std::move(subscriber));
    }
    NumberSubscriber& first() const { return *subscribers->front(); }

    std::shared_ptr<Subscribers> subscribers = std::make_shared<Subscribers>();
};

/// A publisher under test's hand, subscribed to by a sink that writes down what it is given.
class SinkTest : public testing::Test {
  protected:
    AnyCancellable subscribe() {
        return sink(
            publisher, [this](const End& end) { transcript.add(describe(end)); },
            [this](int value) { transcript.add("value " + std::to_string(value)); });
    }
    std::shared_ptr<Subscription> makeSubscription() {
        return std::make_shared<RecordedSubscription>(transcript);
    }

    Transcript transcript;
    ManualPublisher publisher;
};

} // namespace

TEST(Demand, IsACountOrUnlimited) {
    EXPECT_EQ(describe(Demand::unlimited()), "unlimited");
    EXPECT_EQ(describe(Demand::max(3)), "3");
    EXPECT_EQ(Demand::none(), Demand::max(0));
    EXPECT_NE(Demand::none(), Demand::unlimited());
}

TEST(CombineIdentifier, IsAnotherEachTimeAndStaysWhenCopied) {
    const CombineIdentifier first;
    const CombineIdentifier second;
    EXPECT_NE(first, second);
    const CombineIdentifier copy = first;
    EXPECT_EQ(copy, first);
}

TEST(AnyPublisher, PassesSubscribersToWhatItErasesAndSharesItWithItsCopies) {
    const ManualPublisher publisher;
    std::optional<AnyPublisher<int, std::string>> erased(publisher);
    const AnyPublisher<int, std::string> copy = *erased;
    erased.reset();
    Transcript transcript;
    const AnyCancellable cancellable = sink(
        copy, [](const End&) {},
        [&](int value) { transcript.add("value " + std::to_string(value)); });
    ASSERT_EQ(publisher.subscribers->size(), 1U);
    publisher.first().receive(7);
    EXPECT_THAT(transcript.lines(), ElementsAre("value 7"));
}

TEST_F(SinkTest, DemandsEverythingAtOnceAndNothingMoreForAValue) {
    const AnyCancellable cancellable = subscribe();
    publisher.first().receive(makeSubscription());
    EXPECT_EQ(publisher.first().receive(1), Demand::none());
    EXPECT_THAT(transcript.lines(), ElementsAre("request unlimited", "value 1"));
}

TEST_F(SinkTest, SubscribesOnceForEachSink) {
    const AnyCancellable first = subscribe();
    const AnyCancellable second = subscribe();
    EXPECT_EQ(publisher.subscribers->size(), 2U);
}

TEST_F(SinkTest, TakesNothingAfterAFailure) {
    const AnyCancellable cancellable = subscribe();
    publisher.first().receive(makeSubscription());
    publisher.first().receive(1);
    publisher.first().receive(End{"lost"});
    publisher.first().receive(2);
    publisher.first().receive(End{"lost again"});
    EXPECT_THAT(transcript.lines(), ElementsAre("request unlimited", "value 1", "failed: lost"));
}

TEST_F(SinkTest, TakesNothingAfterTheEnd) {
    const AnyCancellable cancellable = subscribe();
    publisher.first().receive(makeSubscription());
    publisher.first().receive(End{});
    publisher.first().receive(1);
    EXPECT_THAT(transcript.lines(), ElementsAre("request unlimited", "finished"));
}

TEST_F(SinkTest, TakesValuesBeforeThereIsASubscriptionAndWithoutOne) {
    const AnyCancellable cancellable = subscribe();
    publisher.first().receive(1);
    publisher.first().receive(makeSubscription());
    publisher.first().receive(2);
    EXPECT_THAT(transcript.lines(), ElementsAre("value 1", "request unlimited", "value 2"));
}

TEST_F(SinkTest, CancelsItsSubscriptionOnceAndTakesNothingAfterwards) {
    AnyCancellable cancellable = subscribe();
    publisher.first().receive(makeSubscription());
    cancellable.cancel();
    cancellable.cancel();
    publisher.first().receive(1);
    publisher.first().receive(End{"lost"});
    EXPECT_THAT(transcript.lines(), ElementsAre("request unlimited", "cancel"));
}

TEST_F(SinkTest, IsCancelledWithWhatSinkReturned) {
    {
        const AnyCancellable cancellable = subscribe();
        publisher.first().receive(makeSubscription());
    }
    publisher.first().receive(1);
    EXPECT_THAT(transcript.lines(), ElementsAre("request unlimited", "cancel"));
}

TEST_F(SinkTest, CancelsASubscriptionThatComesAfterItWasCancelled) {
    AnyCancellable cancellable = subscribe();
    cancellable.cancel();
    publisher.first().receive(makeSubscription());
    publisher.first().receive(1);
    EXPECT_THAT(transcript.lines(), ElementsAre("cancel"));
}

TEST_F(SinkTest, CancelsASecondSubscriptionAndKeepsTheFirst) {
    AnyCancellable cancellable = subscribe();
    publisher.first().receive(makeSubscription());
    publisher.first().receive(makeSubscription());
    publisher.first().receive(1);
    EXPECT_THAT(transcript.lines(), ElementsAre("request unlimited", "cancel", "value 1"));
}

// A source may go on after its stream has failed: it is ended with the sink.
TEST_F(SinkTest, KeepsTheSubscriptionOfAFailedStreamUntilItIsCancelled) {
    AnyCancellable cancellable = subscribe();
    publisher.first().receive(makeSubscription());
    publisher.first().receive(End{"lost"});
    EXPECT_THAT(transcript.lines(), ElementsAre("request unlimited", "failed: lost"));
    cancellable.cancel();
    EXPECT_THAT(transcript.lines(), ElementsAre("request unlimited", "failed: lost", "cancel"));
}

TEST_F(SinkTest, MayBeCancelledFromAValue) {
    AnyCancellable cancellable;
    cancellable = sink(
        publisher, [&](const End& end) { transcript.add(describe(end)); },
        [&](int value) {
            transcript.add("value " + std::to_string(value));
            cancellable.cancel();
            transcript.add("goes on");
        });
    publisher.first().receive(makeSubscription());
    publisher.first().receive(1);
    publisher.first().receive(2);
    publisher.first().receive(End{});
    EXPECT_THAT(transcript.lines(),
                ElementsAre("request unlimited", "value 1", "cancel", "goes on"));
}

TEST_F(SinkTest, MayBeDestroyedFromItsCompletion) {
    AnyCancellable cancellable;
    cancellable = sink(
        publisher,
        [&](const End& end) {
            transcript.add(describe(end));
            cancellable = AnyCancellable();
            transcript.add("goes on");
        },
        [](int) {});
    publisher.first().receive(makeSubscription());
    publisher.first().receive(End{});
    EXPECT_THAT(transcript.lines(),
                ElementsAre("request unlimited", "finished", "cancel", "goes on"));
}

TEST_F(SinkTest, MayBeDroppedByItsPublisherWhileItTakesAValue) {
    AnyCancellable cancellable;
    cancellable = sink(
        publisher, [](const End&) {},
        [&](int value) {
            transcript.add("value " + std::to_string(value));
            cancellable = AnyCancellable();
            publisher.subscribers->clear();
        });
    const std::weak_ptr<NumberSubscriber> weak = publisher.subscribers->front();
    publisher.first().receive(1);
    EXPECT_TRUE(weak.expired());
    EXPECT_THAT(transcript.lines(), ElementsAre("value 1"));
}

TEST_F(SinkTest, ToleratesAbsentClosures) {
    const AnyCancellable cancellable = sink(publisher, nullptr, nullptr);
    publisher.first().receive(makeSubscription());
    EXPECT_EQ(publisher.first().receive(1), Demand::none());
    publisher.first().receive(End{});
    EXPECT_THAT(transcript.lines(), ElementsAre("request unlimited"));
}

TEST_F(SinkTest, LetsItsSubscriptionGoWhenCancelled) {
    AnyCancellable cancellable = subscribe();
    std::shared_ptr<Subscription> subscription = makeSubscription();
    const std::weak_ptr<Subscription> weak = subscription;
    publisher.first().receive(std::move(subscription));
    EXPECT_FALSE(weak.expired());
    cancellable.cancel();
    EXPECT_TRUE(weak.expired());
}

TEST_F(SinkTest, LetsItsClosuresGoWhenCancelled) {
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = captured;
    AnyCancellable cancellable =
        sink(publisher, [](const End&) {}, [captured = std::move(captured)](int) {});
    EXPECT_FALSE(weak.expired());
    cancellable.cancel();
    EXPECT_TRUE(weak.expired());
}

TEST_F(SinkTest, LetsItsClosuresGoWithTheCompletionButNotBeforeItHasReturned) {
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = captured;
    const AnyCancellable cancellable = sink(
        publisher, [&](const End&) { transcript.add(weak.expired() ? "destroyed" : "alive"); },
        [captured = std::move(captured)](int) {});
    publisher.first().receive(End{});
    EXPECT_THAT(transcript.lines(), ElementsAre("alive"));
    EXPECT_TRUE(weak.expired());
}

TEST_F(SinkTest, MayBeCalledByWhatItsClosuresLetGo) {
    const auto letGo = [this](const int* number) {
        transcript.add("let go");
        publisher.first().receive(2);
        publisher.first().receive(End{});
        delete number;
    };
    AnyCancellable cancelled =
        sink(publisher, nullptr, [captured = std::shared_ptr<int>(new int(1), letGo)](int) {});
    cancelled.cancel();
    EXPECT_THAT(transcript.lines(), ElementsAre("let go"));
    publisher.subscribers->clear();
    const AnyCancellable completed =
        sink(publisher, nullptr, [captured = std::shared_ptr<int>(new int(1), letGo)](int) {});
    publisher.first().receive(End{});
    EXPECT_THAT(transcript.lines(), ElementsAre("let go", "let go"));
}

TEST_F(SinkTest, IsCancelledWithoutWaitingForTheValueThatAnotherThreadDelivers) {
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = captured;
    Event entered("the closure runs");
    Event gate("the gate");
    AnyCancellable cancellable = sink(
        publisher, [](const End&) {},
        [&, captured = std::move(captured)](int) {
            entered.signal();
            gate.wait();
            transcript.add(weak.expired() ? "destroyed" : "alive");
        });
    publisher.first().receive(makeSubscription());
    std::jthread delivering([&] {
        publisher.first().receive(1);
        publisher.first().receive(2);
    });
    entered.wait();
    cancellable.cancel();
    transcript.add("cancelled");
    EXPECT_FALSE(weak.expired());
    gate.signal();
    delivering.join();
    EXPECT_THAT(transcript.lines(),
                ElementsAre("request unlimited", "cancel", "cancelled", "alive"));
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(entered.signalled(), 1);
}

// Whichever comes first, the subscription is cancelled once, and what was delivered is a beginning
// of the stream.
TEST(Sink, IsCancelledOnceHoweverValuesSubscriptionAndCancellingMeet) {
    constexpr int values = 50;
    for (int round = 0; round < 300; ++round) {
        const ManualPublisher publisher;
        Transcript signals;
        std::vector<int> taken;
        AnyCancellable cancellable =
            sink(publisher, [](const End&) {}, [&](int value) { taken.push_back(value); });
        {
            std::jthread delivering([&] {
                for (int value = 0; value < values; ++value) {
                    publisher.first().receive(value);
                }
            });
            std::jthread subscribing([&] {
                publisher.first().receive(std::make_shared<RecordedSubscription>(signals));
            });
            std::jthread cancelling([&] { cancellable.cancel(); });
        }
        const std::vector<std::string> lines = signals.lines();
        ASSERT_EQ(std::count(lines.begin(), lines.end(), "cancel"), 1);
        ASSERT_LE(taken.size(), static_cast<std::size_t>(values));
        for (std::size_t index = 0; index < taken.size(); ++index) {
            ASSERT_EQ(taken[index], static_cast<int>(index));
        }
    }
}

#ifndef NDEBUG

namespace {

class SinkDeathTest : public SinkTest {
  protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    Mutex mutex;
};

} // namespace

TEST_F(SinkDeathTest, GivenAValueWithALockHeldEndsTheProcess) {
    EXPECT_DEATH(
        {
            const AnyCancellable cancellable = subscribe();
            Lock lock(mutex);
            publisher.first().receive(1);
        },
        "zem: a lock is held while a value is received");
}

TEST_F(SinkDeathTest, GivenACompletionWithALockHeldEndsTheProcess) {
    EXPECT_DEATH(
        {
            const AnyCancellable cancellable = subscribe();
            Lock lock(mutex);
            publisher.first().receive(End{});
        },
        "zem: a lock is held while a completion is received");
}

TEST_F(SinkDeathTest, GivenASubscriptionWithALockHeldEndsTheProcess) {
    EXPECT_DEATH(
        {
            const AnyCancellable cancellable = subscribe();
            Lock lock(mutex);
            publisher.first().receive(makeSubscription());
        },
        "zem: a lock is held while a subscription is received");
}

TEST_F(SinkDeathTest, WhoseClosureThrowsEndsTheProcess) {
    EXPECT_DEATH(
        {
            const AnyCancellable cancellable = sink(
                publisher, nullptr, [](int) { throw std::runtime_error("not for the publisher"); });
            try {
                publisher.first().receive(1);
            } catch (const std::runtime_error&) { // would let the process go on, and the test fail
            }
        },
        "not for the publisher");
}

#endif
