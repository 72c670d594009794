#include <zem/Platform/Queue.h>

#include <gmock/gmock.h>

#include <Support/Wait.h>
#include <atomic>
#include <thread>
#include <vector>

using namespace zem::platform;
using test::Arrival;
using test::Event;
using test::Transcript;
using testing::ElementsAre;

TEST(SerialQueue, RunsTasksInOrder) {
    const auto queue = SerialQueue::create("order");
    Transcript transcript;
    Event done("the last task");
    for (int number = 1; number <= 5; ++number) {
        queue->async([&transcript, number] { transcript.add(std::to_string(number)); });
    }
    queue->async([&done] { done.signal(); });
    done.wait();
    EXPECT_THAT(transcript.lines(), ElementsAre("1", "2", "3", "4", "5"));
}

TEST(SerialQueue, NeverRunsATaskBeforeAsyncReturns) {
    const auto queue = SerialQueue::create("later");
    Transcript transcript;
    Event done("the inner task");
    queue->async([&] {
        queue->async([&] {
            transcript.add("inner");
            done.signal();
        });
        transcript.add("outer");
    });
    done.wait();
    EXPECT_THAT(transcript.lines(), ElementsAre("outer", "inner"));
}

TEST(SerialQueue, NeverRunsTwoTasksAtOnceAndEachSeesWhatTheOneBeforeWrote) {
    constexpr int producers = 4;
    constexpr int tasksEach = 2000;
    const auto queue = SerialQueue::create("exclusive");
    Event done("every task");
    std::atomic<int> running = 0;
    int overlaps = 0;
    int counter = 0; // not atomic: the queue alone keeps it whole
    std::vector<int> last(producers, -1);
    int outOfOrder = 0;
    std::vector<std::thread> threads;
    threads.reserve(producers);
    for (int producer = 0; producer < producers; ++producer) {
        threads.emplace_back([&, producer] {
            for (int number = 0; number < tasksEach; ++number) {
                queue->async([&, producer, number] {
                    overlaps += running.fetch_add(1) == 0 ? 0 : 1;
                    outOfOrder += last[static_cast<std::size_t>(producer)] + 1 == number ? 0 : 1;
                    last[static_cast<std::size_t>(producer)] = number;
                    const bool isLast = ++counter == producers * tasksEach;
                    running.fetch_sub(1);
                    if (isLast) {
                        done.signal();
                    }
                });
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    done.wait();
    queue->sync([&] {
        EXPECT_EQ(counter, producers * tasksEach);
        EXPECT_EQ(overlaps, 0);
        EXPECT_EQ(outOfOrder, 0);
    });
}

TEST(SerialQueue, RunsWhatWasEnqueuedBeforeItsLastReferenceWent) {
    Transcript transcript;
    Event gate("the gate");
    Event done("the last task");
    {
        const auto queue = SerialQueue::create("orphan");
        queue->async([&] {
            gate.wait();
            transcript.add("first");
        });
        queue->async([&] { transcript.add("second, on " + SerialQueue::currentLabel()); });
        queue->async([&] { done.signal(); });
    }
    gate.signal();
    done.wait();
    EXPECT_THAT(transcript.lines(), ElementsAre("first", "second, on orphan"));
}

TEST(SerialQueue, MayLoseItsLastReferenceInOneOfItsTasks) {
    Transcript transcript;
    Event enqueued("both tasks enqueued");
    Event done("the task after");
    auto queue = SerialQueue::create("dropped");
    const std::weak_ptr<SerialQueue> weak = queue;
    SerialQueue& alive = *queue;
    alive.async([&transcript, &enqueued, &weak, queue = std::move(queue)]() mutable {
        enqueued.wait();
        queue.reset();
        transcript.add(weak.expired() ? "gone" : "alive");
    });
    alive.async([&] {
        transcript.add("after");
        done.signal();
    });
    enqueued.signal();
    done.wait();
    EXPECT_THAT(transcript.lines(), ElementsAre("gone", "after"));
}

TEST(SerialQueue, DestroysWhatATaskCapturedBeforeTheNextOneRuns) {
    struct Capture {
        Transcript& transcript;
        const SerialQueue& queue;
        ~Capture() { transcript.add(queue.isCurrent() ? "destroyed on the queue" : "elsewhere"); }
    };
    const auto queue = SerialQueue::create("captures");
    Transcript transcript;
    queue->async(
        [&, capture = std::make_unique<Capture>(transcript, *queue)] { transcript.add("first"); });
    queue->async([&] { transcript.add("second"); });
    queue->sync([&] { transcript.add("third"); });
    EXPECT_THAT(transcript.lines(),
                ElementsAre("first", "destroyed on the queue", "second", "third"));
}

TEST(SerialQueue, SyncReturnsWhenItsTaskHasRunAfterTheOnesBefore) {
    const auto queue = SerialQueue::create("sync");
    Transcript transcript;
    queue->async([&] { transcript.add("async"); });
    queue->sync([&] { transcript.add("sync"); });
    transcript.add("returned");
    EXPECT_THAT(transcript.lines(), ElementsAre("async", "sync", "returned"));
}

TEST(SerialQueue, SyncWaitsForTheTaskThatIsRunning) {
    const auto queue = SerialQueue::create("busy");
    Transcript transcript;
    Event running("the task running");
    Event gate("the gate");
    queue->async([&] {
        running.signal();
        gate.wait();
        transcript.add("running task");
    });
    running.wait();
    std::thread opener([&] { gate.signal(); });
    queue->sync([&] { transcript.add("sync"); });
    opener.join();
    EXPECT_THAT(transcript.lines(), ElementsAre("running task", "sync"));
}

TEST(SerialQueue, RunsWhatWasEnqueuedDuringASync) {
    const auto queue = SerialQueue::create("meanwhile");
    Event done("the task enqueued meanwhile");
    queue->sync([&] { queue->async([&] { done.signal(); }); });
    done.wait();
    EXPECT_EQ(done.signalled(), 1);
}

TEST(SerialQueue, SyncFromATaskOfAnotherQueueRuns) {
    const auto outer = SerialQueue::create("outer");
    const auto inner = SerialQueue::create("inner");
    Transcript transcript;
    outer->sync([&] {
        inner->sync([&] {
            transcript.add("on " + SerialQueue::currentLabel());
            transcript.add(outer->isCurrent() ? "outer too" : "inner only");
        });
        transcript.add("back on " + SerialQueue::currentLabel());
        transcript.add(inner->isCurrent() ? "still inner" : "inner left");
    });
    EXPECT_THAT(transcript.lines(),
                ElementsAre("on inner", "outer too", "back on outer", "inner left"));
}

TEST(SerialQueue, SyncReturnsWhileEveryGlobalThreadIsBlocked) {
    constexpr int threads = 64;
    Event blocked("every thread blocked");
    Event gate("the gate");
    Event released("every thread released");
    for (int index = 0; index < threads; ++index) {
        globalQueue().async([&] {
            blocked.signal();
            gate.wait();
            released.signal();
        });
    }
    blocked.wait(threads);
    const auto queue = SerialQueue::create("crowded");
    Transcript transcript;
    queue->async([&] { transcript.add("async"); });
    queue->sync([&] { transcript.add("sync"); });
    EXPECT_THAT(transcript.lines(), ElementsAre("async", "sync"));
    gate.signal();
    released.wait(threads);
}

TEST(SerialQueue, KnowsItselfInItsTasksOnly) {
    const auto queue =
        SerialQueue::create("com.quorvane.zem.SQLiteConnection", QualityOfService::userInitiated);
    EXPECT_EQ(queue->label(), "com.quorvane.zem.SQLiteConnection");
    EXPECT_EQ(queue->qualityOfService(), QualityOfService::userInitiated);
    EXPECT_EQ(SerialQueue::create("plain")->qualityOfService(), QualityOfService::unspecified);
    EXPECT_FALSE(queue->isCurrent());
    EXPECT_EQ(SerialQueue::currentLabel(), "");
    EXPECT_EQ(SerialQueue::currentQualityOfService(), std::nullopt);
    Arrival<std::string> label("the label");
    Arrival<std::optional<QualityOfService>> quality("the quality of service");
    Arrival<bool> isCurrent("isCurrent");
    queue->async([&] {
        isCurrent.put(queue->isCurrent());
        label.put(SerialQueue::currentLabel());
        quality.put(SerialQueue::currentQualityOfService());
    });
    EXPECT_EQ(label.get(), "com.quorvane.zem.SQLiteConnection");
    EXPECT_EQ(quality.get(), QualityOfService::userInitiated);
    EXPECT_TRUE(isCurrent.get());
    EXPECT_FALSE(queue->isCurrent());
}

TEST(SerialQueueDeathTest, SyncFromItsOwnTaskEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const auto queue = SerialQueue::create("com.quorvane.deadlock");
            queue->sync([&] { queue->sync([] {}); });
        },
        "zem: sync on the serial queue \"com\\.quorvane\\.deadlock\" from one of its own tasks");
}

TEST(SerialQueueDeathTest, ATaskThatThrowsEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Event never("a task after one that threw");
            const auto queue = SerialQueue::create("throwing");
            queue->async([] { throw std::runtime_error("escaped from a task"); });
            queue->async([&] { never.signal(); });
            never.wait();
        },
        "escaped from a task");
}
