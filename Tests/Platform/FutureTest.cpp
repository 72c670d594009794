#include <zem/Platform/Future.h>

#include <gmock/gmock.h>

#include <Support/Detached.h>
#include <Support/Wait.h>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

using namespace zem::platform;
using test::Arrival;
using test::Detached;
using test::Event;
using test::Transcript;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

namespace {

const Seconds limit(test::waitLimit);

Detached record(Future<int> future, std::string name, Transcript& transcript) {
    transcript.add(name + " awaits");
    const int value = co_await future;
    transcript.add(name + ": " + std::to_string(value));
}

Detached arrive(Future<std::string> future, Arrival<std::string>& arrival) {
    arrival.put(co_await future);
}

Detached arriveOn(Future<int> future, Arrival<std::thread::id>& arrival) {
    co_await future;
    arrival.put(std::this_thread::get_id());
}

std::function<void(const int&)> recorder(std::string name, Transcript& transcript) {
    return [name = std::move(name), &transcript](const int& value) {
        transcript.add(name + ": " + std::to_string(value));
    };
}

} // namespace

TEST(Future, CallsItsContinuationsOnTheCompletingThreadInTheirOrder) {
    Transcript transcript;
    const Promise<int> promise(-1);
    const Future<int> future = promise.future();
    future.then(recorder("first", transcript));
    future.then(recorder("second", transcript));
    const Future<int> copy = future;
    copy.then(recorder("third", transcript));
    std::thread::id calledOn;
    future.then([&](const int&) { calledOn = std::this_thread::get_id(); });
    EXPECT_THAT(transcript.lines(), IsEmpty());
    std::thread::id completedOn;
    std::thread([&] {
        completedOn = std::this_thread::get_id();
        promise.complete(5);
        transcript.add("completed");
    }).join();
    EXPECT_THAT(transcript.lines(), ElementsAre("first: 5", "second: 5", "third: 5", "completed"));
    EXPECT_EQ(calledOn, completedOn);
}

TEST(Future, CallsAContinuationAtOnceWhenItIsComplete) {
    Transcript transcript;
    const Promise<int> promise(-1);
    std::thread([&] { promise.complete(5); }).join();
    std::thread::id calledOn;
    promise.future().then([&](const int& value) {
        transcript.add(std::to_string(value));
        calledOn = std::this_thread::get_id();
    });
    transcript.add("returned");
    EXPECT_THAT(transcript.lines(), ElementsAre("5", "returned"));
    EXPECT_EQ(calledOn, std::this_thread::get_id());
}

TEST(Future, CallsAContinuationThatOneOfItsContinuationsAddsAtOnce) {
    Transcript transcript;
    const Promise<int> promise(-1);
    const Future<int> future = promise.future();
    future.then([&](const int& value) {
        recorder("first", transcript)(value);
        future.then(recorder("added", transcript));
    });
    future.then(recorder("second", transcript));
    promise.complete(5);
    EXPECT_THAT(transcript.lines(), ElementsAre("first: 5", "added: 5", "second: 5"));
}

TEST(Future, LetsAContinuationGoBeforeItCallsTheNext) {
    Transcript transcript;
    const Promise<int> promise(-1);
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = captured;
    promise.future().then([&, captured = std::move(captured)](const int&) {
        transcript.add(weak.expired() ? "destroyed" : "alive");
    });
    promise.future().then(
        [&](const int&) { transcript.add(weak.expired() ? "destroyed" : "alive"); });
    promise.complete(5);
    EXPECT_THAT(transcript.lines(), ElementsAre("alive", "destroyed"));
}

TEST(Future, CallsItsContinuationsWhenEveryFutureIsGone) {
    Transcript transcript;
    const Promise<int> promise(-1);
    promise.future().then(recorder("continuation", transcript));
    promise.complete(5);
    EXPECT_THAT(transcript.lines(), ElementsAre("continuation: 5"));
}

TEST(Future, IsWaitedForFromAnyNumberOfThreads) {
    for (int round = 0; round < 50; ++round) {
        const Promise<std::string> promise("dropped");
        Transcript transcript;
        Event waiting("every thread is about to wait");
        {
            std::vector<std::jthread> threads;
            for (int index = 0; index < 4; ++index) {
                threads.emplace_back([&, future = promise.future()] {
                    waiting.signal();
                    transcript.add(future.wait(limit).value_or("in vain"));
                });
            }
            waiting.wait(4);
            promise.complete("done");
        }
        ASSERT_THAT(transcript.lines(), ElementsAre("done", "done", "done", "done"));
    }
}

TEST(Future, IsWaitedForNoLongerThanTheLimit) {
    const Promise<int> promise(-1);
    EXPECT_EQ(promise.future().wait(Seconds(0)), std::nullopt);
    EXPECT_EQ(promise.future().wait(Seconds(-1)), std::nullopt);
    EXPECT_EQ(promise.future().wait(Seconds(0.001)), std::nullopt);
    promise.complete(5);
    EXPECT_THAT(promise.future().wait(Seconds(0)), Optional(5));
}

// No clock holds these limits: the wait must neither end before it began nor never begin.
TEST(Future, IsWaitedForHoweverLongTheLimit) {
    for (const Seconds endless :
         {Seconds(std::numeric_limits<double>::infinity()), Seconds::max(), Seconds(1e10)}) {
        const Promise<int> promise(-1);
        Event waiting("a thread is about to wait");
        std::optional<int> value;
        {
            std::jthread thread([&] {
                waiting.signal();
                value = promise.future().wait(endless);
            });
            waiting.wait();
            promise.complete(5);
        }
        EXPECT_THAT(value, Optional(5));
    }
}

TEST(Future, ResumesEveryCoroutineThatAwaitsItInItsTurn) {
    Transcript transcript;
    const Promise<int> promise(-1);
    record(promise.future(), "first", transcript);
    promise.future().then(recorder("continuation", transcript));
    record(promise.future(), "second", transcript);
    transcript.add("completing");
    promise.complete(5);
    EXPECT_THAT(transcript.lines(), ElementsAre("first awaits", "second awaits", "completing",
                                                "first: 5", "continuation: 5", "second: 5"));
}

TEST(Future, ResumesACoroutineOnTheCompletingThread) {
    const Promise<int> promise(-1);
    Arrival<std::thread::id> resumedOn("the coroutine");
    arriveOn(promise.future(), resumedOn);
    std::jthread completing([&] { promise.complete(5); });
    EXPECT_EQ(resumedOn.get(), completing.get_id());
}

TEST(Future, DoesNotSuspendACoroutineWhenItIsComplete) {
    Transcript transcript;
    const Promise<int> promise(-1);
    promise.complete(5);
    record(promise.future(), "coroutine", transcript);
    transcript.add("returned");
    EXPECT_THAT(transcript.lines(), ElementsAre("coroutine awaits", "coroutine: 5", "returned"));
}

TEST(Future, GivesEveryoneTheValueHoweverCompletingAndContinuingMeet) {
    for (int round = 0; round < 300; ++round) {
        std::optional<Promise<std::string>> promise("dropped");
        const Future<std::string> future = promise->future();
        Arrival<std::string> continued("the continuation");
        Arrival<std::string> awaited("the coroutine");
        std::optional<std::string> waited;
        {
            std::jthread completing([&] {
                promise->complete("done");
                promise.reset();
            });
            std::jthread continuing(
                [&] { future.then([&](const std::string& value) { continued.put(value); }); });
            std::jthread awaiting([&] { arrive(future, awaited); });
            std::jthread waiting([&] { waited = future.wait(limit); });
        }
        ASSERT_EQ(continued.get(), "done");
        ASSERT_EQ(awaited.get(), "done");
        ASSERT_EQ(waited, "done");
        ASSERT_EQ(continued.count(), 1);
        ASSERT_EQ(awaited.count(), 1);
    }
}

TEST(Promise, CompletesOnce) {
    Transcript transcript;
    const Promise<int> promise(-1);
    const Promise<int> copy = promise;
    promise.future().then([&](const int& value) {
        recorder("continuation", transcript)(value);
        promise.complete(6);
    });
    copy.complete(5);
    promise.complete(7);
    EXPECT_THAT(transcript.lines(), ElementsAre("continuation: 5"));
    EXPECT_THAT(promise.future().wait(Seconds(0)), Optional(5));
}

TEST(Promise, CompletesOnceFromManyThreads) {
    for (int round = 0; round < 200; ++round) {
        const Promise<int> promise(-1);
        Transcript transcript;
        promise.future().then([&](const int& value) { transcript.add(std::to_string(value)); });
        {
            std::vector<std::jthread> threads;
            for (int index = 0; index < 4; ++index) {
                threads.emplace_back([promise, index] { promise.complete(index); });
            }
        }
        const std::optional<int> value = promise.future().wait(Seconds(0));
        ASSERT_TRUE(value);
        ASSERT_THAT(transcript.lines(), ElementsAre(std::to_string(*value)));
    }
}

// Then nothing but the call itself holds on to what the future and the promise shared.
TEST(Promise, MayBeDroppedByAContinuation) {
    Transcript transcript;
    std::optional<Promise<std::string>> promise("dropped");
    promise->future().then([&](const std::string& value) {
        transcript.add("first: " + value);
        promise.reset();
    });
    promise->future().then([&](const std::string& value) { transcript.add("second: " + value); });
    promise->complete("a text too long to be kept inside a string");
    EXPECT_FALSE(promise);
    EXPECT_THAT(transcript.lines(),
                ElementsAre("first: a text too long to be kept inside a string",
                            "second: a text too long to be kept inside a string"));
}

TEST(Promise, CompletesWithItsFallbackOnlyWhenTheLastCopyIsGone) {
    std::optional<Promise<std::string>> promise("dropped");
    std::optional<Promise<std::string>> copy = promise;
    const Future<std::string> future = promise->future();
    promise.reset();
    EXPECT_EQ(future.wait(Seconds(0)), std::nullopt);
    copy.reset();
    EXPECT_THAT(future.wait(limit), Optional(std::string("dropped")));
}

TEST(Promise, CompletesWithItsFallbackOnAnotherThreadAndWithLocksHeld) {
    Arrival<std::thread::id> continuedOn("the continuation");
    Arrival<std::thread::id> resumedOn("the coroutine");
    {
        Mutex mutex;
        std::optional<Promise<int>> promise(-1);
        promise->future().then([&](const int&) { continuedOn.put(std::this_thread::get_id()); });
        arriveOn(promise->future(), resumedOn);
        Lock lock(mutex);
        promise.reset();
    }
    EXPECT_NE(continuedOn.get(), std::this_thread::get_id());
    EXPECT_NE(resumedOn.get(), std::this_thread::get_id());
}

TEST(Promise, KeepsItsValueWhenDroppedOnceFulfilled) {
    std::optional<Promise<std::string>> promise("dropped");
    const Future<std::string> future = promise->future();
    Arrival<std::string> arrival("the continuation");
    future.then([&](const std::string& value) { arrival.put(value); });
    promise->complete("done");
    promise.reset();
    EXPECT_EQ(arrival.get(), "done");
    EXPECT_EQ(future.wait(limit), "done");
    EXPECT_EQ(arrival.count(), 1);
}

TEST(Promise, LetsGoOfItsFallbackAtOnceWhenDroppedOnceFulfilled) {
    for (int round = 0; round < 50; ++round) {
        auto fallback = std::make_shared<int>(1);
        const std::weak_ptr<int> weak = fallback;
        std::optional<Promise<std::shared_ptr<int>>> promise(std::move(fallback));
        promise->complete(nullptr);
        promise.reset();
        ASSERT_TRUE(weak.expired());
    }
}

#ifndef NDEBUG

namespace {

class FutureDeathTest : public testing::Test {
  protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    Mutex mutex;
    Promise<int> promise{-1};
};

} // namespace

TEST_F(FutureDeathTest, CompletedWithALockHeldEndsTheProcess) {
    EXPECT_DEATH(
        {
            Lock lock(mutex);
            promise.complete(5);
        },
        "zem: a lock is held while a future is completed");
}

TEST_F(FutureDeathTest, ContinuedWithALockHeldEndsTheProcess) {
    EXPECT_DEATH(
        {
            Lock lock(mutex);
            promise.future().then([](const int&) {});
        },
        "zem: a lock is held while a future is continued");
}

TEST_F(FutureDeathTest, WaitedForWithALockHeldEndsTheProcess) {
    EXPECT_DEATH(
        {
            Lock lock(mutex);
            std::ignore = promise.future().wait(Seconds(0));
        },
        "zem: a lock is held while a future is waited for");
}

TEST_F(FutureDeathTest, WhoseContinuationThrowsEndsTheProcess) {
    EXPECT_DEATH(
        {
            promise.future().then([](const int&) { throw std::runtime_error("not for anybody"); });
            try {
                promise.complete(5);
            } catch (const std::runtime_error&) { // would let the process go on, and the test fail
            }
        },
        "not for anybody");
}

#endif
