#include <zem/Platform/Operation.h>

#include <gmock/gmock.h>

#include <Platform/Call.h>
#include <Support/ManualQueue.h>
#include <Support/Wait.h>
#include <algorithm>
#include <atomic>
#include <thread>

using namespace zem::platform;
using test::Call;
using test::Event;
using test::ManualQueue;
using test::Transcript;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string name(const char* prefix, int number) {
    return prefix + std::to_string(number);
}

} // namespace

TEST(OperationQueue, StartsTheHighestPriorityFirstAndTheFirstComeWithinOne) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    const std::vector<std::pair<const char*, int>> added = {
        {"background 1", -8}, {"normal 1", 0}, {"high 1", 4},    {"mutating 1", 8},
        {"background 2", -8}, {"low", -4},     {"between", 3},   {"high 2", 4},
        {"normal 2", 0},      {"beyond", 100}, {"mutating 2", 8}};
    for (const auto& [text, priority] : added) {
        queue->addOperation([&transcript, line = std::string(text)] { transcript.add(line); },
                            QueuePriority{priority});
    }
    EXPECT_THAT(transcript.lines(), IsEmpty());
    EXPECT_EQ(queue->operationCount(), added.size());
    threads.runAll();
    EXPECT_THAT(transcript.lines(),
                ElementsAre("beyond", "mutating 1", "mutating 2", "high 1", "high 2", "between",
                            "normal 1", "normal 2", "low", "background 1", "background 2"));
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationQueue, BlocksOvertakeTheCallsThatWait) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    const auto running = Call::create(transcript, "running");
    queue->addOperation(running);
    threads.runAll();
    const auto high = Call::create(transcript, "high", QueuePriority::high);
    queue->addOperation(high);
    queue->addOperation([&] { transcript.add("block"); }, QueuePriority::veryHigh);
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("running started"));
    running->finish();
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("running started", "block", "high started"));
    high->finish();
}

TEST(OperationQueue, SixCallsOfWhichFiveExecuteUntilOneFinishes) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(5, &threads);
    std::vector<std::shared_ptr<Call>> calls;
    for (int number = 1; number <= 6; ++number) {
        calls.push_back(Call::create(transcript, name("call ", number)));
        queue->addOperation(calls.back());
    }
    threads.runAll();
    EXPECT_THAT(transcript.lines(),
                ElementsAre("call 1 started", "call 2 started", "call 3 started", "call 4 started",
                            "call 5 started"));
    EXPECT_EQ(calls[5]->state(), Call::State::ready);
    calls[2]->finish();
    threads.runAll();
    EXPECT_EQ(transcript.lines().back(), "call 6 started");
    EXPECT_EQ(queue->operationCount(), 5u);
    for (const auto& call : calls) {
        if (!call->isFinished()) {
            call->finish();
        }
    }
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationQueue, AHighCallIsStartedBeforeTheBackgroundOnesThatWaitedLonger) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(2, &threads);
    std::vector<std::shared_ptr<Call>> calls;
    const auto add = [&](std::string text, QueuePriority priority) {
        calls.push_back(Call::create(transcript, std::move(text), priority));
        queue->addOperation(calls.back());
    };
    for (int number = 1; number <= 4; ++number) {
        add(name("background ", number), QueuePriority::veryLow);
    }
    threads.runAll();
    add("high", QueuePriority::high);
    calls[0]->finish();
    threads.runAll();
    EXPECT_THAT(transcript.lines(),
                ElementsAre("background 1 started", "background 2 started", "high started"));
    calls[1]->finish();
    threads.runAll();
    EXPECT_EQ(transcript.lines().back(), "background 3 started");
    calls[4]->finish();
    calls[2]->finish();
    threads.runAll();
    calls[3]->finish();
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationQueue, TakesTheBestThatWaitsWhenAThreadComesNotWhenASlotWasFree) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(5, &threads);
    queue->addOperation([&] { transcript.add("background"); }, QueuePriority::veryLow);
    queue->addOperation([&] { transcript.add("high"); }, QueuePriority::high);
    EXPECT_EQ(threads.waiting(), 1u);
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("high", "background"));
}

TEST(OperationQueue, AsksForOneThreadAtATimeAndOnlyWhileThereAreASlotAndAnOperation) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(3, &threads);
    std::vector<std::shared_ptr<Call>> calls;
    for (int number = 1; number <= 4; ++number) {
        calls.push_back(Call::create(transcript, name("call ", number)));
        // Asked for before a start, which may take its time: never for the last slot.
        calls.back()->work = [&] {
            transcript.add(name("asked for ", static_cast<int>(threads.waiting())));
        };
        queue->addOperation(calls.back());
        EXPECT_EQ(threads.waiting(), 1u);
    }
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("call 1 started", "asked for 1", "call 2 started",
                                                "asked for 1", "call 3 started", "asked for 1"));
    calls[0]->finish();
    EXPECT_EQ(threads.waiting(), 1u);
    calls[1]->finish();
    EXPECT_EQ(threads.waiting(), 1u);
    threads.runAll();
    EXPECT_EQ(transcript.lines().back(), "asked for 0");
    calls[2]->finish();
    calls[3]->finish();
    EXPECT_EQ(threads.waiting(), 0u);
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationQueue, StartsTheNextOnAnotherThreadWhileOneIsStarting) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(2, &threads);
    queue->addOperation([&] {
        transcript.add("first begins");
        EXPECT_TRUE(threads.runNext());
        transcript.add("first ends");
    });
    queue->addOperation([&] { transcript.add("second"); });
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("first begins", "second", "first ends"));
}

TEST(OperationQueue, KeepsTheSlotOfACallThatFinishedUntilItsStartHasReturned) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    const auto call = Call::create(transcript, "call");
    call->work = [&] {
        call->finish();
        EXPECT_EQ(queue->operationCount(), 1u);
        EXPECT_EQ(threads.waiting(), 0u);
        transcript.add("call returns");
    };
    queue->addOperation(call);
    queue->addOperation([&] { transcript.add("next"); });
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("call started", "call returns", "next"));
}

TEST(OperationQueue, HasItsWidthToTell) {
    EXPECT_EQ(OperationQueue::create(3)->maxConcurrentOperationCount(), 3u);
    EXPECT_EQ(OperationQueue::create()->maxConcurrentOperationCount(), OperationQueue::unbounded);
}

TEST(OperationQueue, StartsAWithdrawnCallInItsTurnWhichFinishesItself) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    const auto running = Call::create(transcript, "running");
    const auto withdrawn = Call::create(transcript, "withdrawn call");
    withdrawn->work = [&] {
        transcript.add("work of the withdrawn call");
    };
    const auto next = Call::create(transcript, "next");
    withdrawn->addObserver([&](Operation&, std::string_view key, Operation::Change change) {
        transcript.add((change == Operation::Change::will ? "will " : "did ") + std::string(key));
    });
    queue->addOperation(running);
    queue->addOperation(withdrawn);
    queue->addOperation(next);
    threads.runAll();
    withdrawn->shouldNotStart = true;
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("running started"));
    EXPECT_EQ(queue->operationCount(), 3u);
    running->finish();
    threads.runAll();
    EXPECT_THAT(transcript.lines(),
                ElementsAre("running started", "withdrawn call withdrawn", "will isReady",
                            "will isFinished", "did isFinished", "did isReady", "next started"));
    next->finish();
}

TEST(OperationQueue, StartsACancelledBlockInItsTurnWhichFinishesItself) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    const auto block = BlockOperation::create([&] { transcript.add("cancelled block"); });
    queue->addOperation(block);
    queue->addOperation([&] { transcript.add("next"); });
    block->cancel();
    EXPECT_EQ(queue->operationCount(), 2u);
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("next"));
    EXPECT_TRUE(block->isFinished());
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationQueue, ACallWithoutWorkKeepsItsSlot) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    const auto idle = Call::create(transcript, "idle");
    queue->addOperation(idle);
    queue->addOperation([&] { transcript.add("block"); });
    threads.runAll();
    EXPECT_EQ(idle->state(), Call::State::executing);
    EXPECT_THAT(transcript.lines(), ElementsAre("idle started"));
    idle->finish();
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("idle started", "block"));
}

TEST(OperationQueue, GivesTheSlotAwayOnceWhenTheEndIsReportedTwice) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    std::vector<std::shared_ptr<Call>> calls;
    for (int number = 1; number <= 3; ++number) {
        calls.push_back(Call::create(transcript, name("call ", number)));
        queue->addOperation(calls.back());
    }
    threads.runAll();
    calls[0]->finish();
    calls[0]->finish();
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("call 1 started", "call 2 started"));
    calls[1]->finish();
    threads.runAll();
    calls[2]->finish();
}

TEST(OperationQueue, ACallThatFinishesWhileItWaitsIsNotStarted) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    const auto first = Call::create(transcript, "first");
    const auto timedOut = Call::create(transcript, "timed out");
    const auto last = Call::create(transcript, "last");
    queue->addOperation(timedOut);
    timedOut->finish(); // its turn was asked for already
    EXPECT_EQ(queue->operationCount(), 0u);
    queue->addOperation(first);
    threads.runAll();
    const auto timedOutLater = Call::create(transcript, "timed out later");
    queue->addOperation(timedOutLater);
    queue->addOperation(last);
    timedOutLater->finish();
    EXPECT_EQ(queue->operationCount(), 2u);
    first->finish();
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("first started", "last started"));
    last->finish();
    EXPECT_EQ(queue->operationCount(), 0u);
}

/// Says when it goes, from wherever that is.
class Captured {
  public:
    explicit Captured(std::function<void()> gone)
        : gone(std::move(gone)) {}
    ~Captured() { gone(); }
    Captured(const Captured&) = delete;
    Captured& operator=(const Captured&) = delete;

  private:
    const std::function<void()> gone;
};

TEST(OperationQueue, LetsGoAtOnceOfACallThatFinishesWhileItWaitsWithNoLockHeld) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    const auto running = Call::create(transcript, "running");
    queue->addOperation(running);
    threads.runAll();
    std::weak_ptr<Call> weak;
    {
        const auto timedOut = Call::create(transcript, "timed out");
        timedOut->work = [captured = std::make_shared<Captured>([&] {
                              Mutex::assertNoneHeld("a work block is destroyed");
                              transcript.add(name("gone, left ", int(queue->operationCount())));
                          })] {
        };
        weak = timedOut;
        queue->addOperation(timedOut);
    }
    weak.lock()->finish();
    EXPECT_THAT(transcript.lines(), ElementsAre("running started", "gone, left 1"));
    running->finish();
}

TEST(OperationQueue, ManyCallsThatFinishWhileTheyWaitLeaveTheOthersInTheirOrder) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    std::vector<std::shared_ptr<Call>> calls;
    for (int number = 1; number <= 6; ++number) {
        calls.push_back(Call::create(transcript, name("call ", number), QueuePriority{number / 3}));
        calls.back()->work = [&calls, number] {
            calls[static_cast<std::size_t>(number) - 1]->finish();
        };
        queue->addOperation(calls.back());
    }
    for (const std::size_t finished : {1u, 2u, 4u}) {
        calls[finished]->finish();
    }
    EXPECT_EQ(queue->operationCount(), 3u);
    threads.runAll();
    EXPECT_THAT(transcript.lines(),
                ElementsAre("call 6 started", "call 4 started", "call 1 started"));
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationQueue, ACallThatFinishesWhileItIsAddedLeavesOnce) {
    constexpr int rounds = 20'000;
    Transcript transcript;
    ManualQueue threads;
    std::vector<std::shared_ptr<Call>> calls;
    for (int round = 0; round < rounds; ++round) {
        calls.push_back(Call::create(transcript, "call"));
    }
    Event begun("the other thread");
    std::thread other([&] {
        begun.signal();
        for (const auto& call : calls) {
            call->finish();
        }
    });
    begun.wait();
    std::vector<std::shared_ptr<OperationQueue>> queues;
    for (const auto& call : calls) {
        queues.push_back(OperationQueue::create(1, &threads));
        queues.back()->addOperation(call);
    }
    other.join();
    threads.runAll();
    for (const auto& queue : queues) {
        ASSERT_EQ(queue->operationCount(), 0u);
    }
    EXPECT_THAT(transcript.lines(), IsEmpty());
}

TEST(OperationQueue, ACallThatWasFinishedBeforeItWasAddedIsNotStarted) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    const auto finished = Call::create(transcript, "finished");
    finished->finish();
    queue->addOperation(finished);
    queue->addOperation([&] { transcript.add("next"); });
    EXPECT_EQ(queue->operationCount(), 1u);
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("next"));
}

TEST(OperationQueue, ACallMayFinishInItsOwnWork) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    const auto call = Call::create(transcript, "call");
    call->work = [&] {
        call->finish();
    };
    queue->addOperation(call);
    queue->addOperation([&] { transcript.add("next"); });
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("call started", "next"));
}

TEST(OperationQueue, KeepsACallUntilItIsFinishedAndNoLonger) {
    ManualQueue threads;
    Transcript transcript;
    const auto queue = OperationQueue::create(1, &threads);
    std::weak_ptr<Call> weak;
    {
        const auto call = Call::create(transcript, "call");
        weak = call;
        queue->addOperation(call);
    }
    threads.runAll();
    ASSERT_FALSE(weak.expired());
    weak.lock()->finish();
    EXPECT_TRUE(weak.expired());
}

TEST(OperationQueue, RunsWhatWasAddedBeforeItsLastReferenceWent) {
    ManualQueue threads;
    Transcript transcript;
    const auto first = Call::create(transcript, "first");
    {
        const auto queue = OperationQueue::create(1, &threads);
        queue->addOperation(first);
        queue->addOperation([&] { transcript.add("second"); });
        queue->addOperation([&] { transcript.add("third"); });
    }
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("first started"));
    first->finish();
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("first started", "second", "third"));
}

TEST(OperationQueue, MayLoseItsLastReferenceInOneOfItsOperations) {
    Transcript transcript;
    Event given("both operations added");
    Event done("the last operation");
    auto queue = OperationQueue::create(1);
    OperationQueue& alive = *queue;
    alive.addOperation([&, queue = std::move(queue)]() mutable {
        given.wait();
        queue.reset();
        transcript.add("dropped");
    });
    alive.addOperation([&] {
        transcript.add("after");
        done.signal();
    });
    given.signal();
    done.wait();
    EXPECT_THAT(transcript.lines(), ElementsAre("dropped", "after"));
}

TEST(OperationQueue, OfWidthOneRunsOneOperationAtATimeOnTheGlobalQueue) {
    constexpr int count = 500;
    const auto queue = OperationQueue::create(1);
    Event done("every operation");
    std::atomic<int> running = 0;
    int overlaps = 0;
    int counter = 0; // not atomic: a width of one keeps it whole
    std::vector<int> order;
    for (int number = 0; number < count; ++number) {
        queue->addOperation([&, number] {
            overlaps += running.fetch_add(1) == 0 ? 0 : 1;
            order.push_back(number);
            ++counter;
            running.fetch_sub(1);
            done.signal();
        });
    }
    done.wait(count);
    EXPECT_EQ(counter, count);
    EXPECT_EQ(overlaps, 0);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_EQ(order.size(), static_cast<std::size_t>(count));
}

TEST(OperationQueue, FillsItsWidthOnTheGlobalQueueAndNeverMore) {
    constexpr int width = 5;
    constexpr int count = 20;
    const auto queue = OperationQueue::create(width);
    Event started("the operations started");
    Event gate("the gate");
    Event done("every operation");
    std::atomic<int> running = 0;
    std::atomic<int> most = 0;
    for (int number = 0; number < count; ++number) {
        queue->addOperation([&] {
            const int now = running.fetch_add(1) + 1;
            int seen = most;
            while (seen < now && !most.compare_exchange_weak(seen, now)) {
            }
            started.signal();
            gate.wait();
            running.fetch_sub(1);
            done.signal();
        });
    }
    started.wait(width);
    EXPECT_EQ(queue->operationCount(), static_cast<std::size_t>(count));
    gate.signal();
    done.wait(count);
    EXPECT_EQ(most, width);
}

TEST(OperationQueue, TakesOperationsFromManyThreadsAndTheirEndsFromOthers) {
    constexpr int producers = 4;
    constexpr int callsEach = 250;
    Transcript transcript;
    const auto queue = OperationQueue::create(5);
    Event finished("every call finished");
    std::vector<std::thread> threads;
    threads.reserve(producers);
    for (int producer = 0; producer < producers; ++producer) {
        threads.emplace_back([&, producer] {
            for (int number = 0; number < callsEach; ++number) {
                const auto call = Call::create(transcript, "call", QueuePriority{producer});
                call->work = [&, weak = std::weak_ptr(call)] {
                    globalQueue().async([&, weak] {
                        if (const auto alive = weak.lock()) {
                            alive->finish();
                            finished.signal();
                        }
                    });
                };
                call->shouldNotStart = number % 5 == 4;
                if (call->shouldNotStart) {
                    call->addObserver(
                        [&](Operation&, std::string_view key, Operation::Change change) {
                            if (key == "isFinished" && change == Operation::Change::did) {
                                finished.signal();
                            }
                        });
                }
                queue->addOperation(call);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    finished.wait(producers * callsEach);
    const auto lines = transcript.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "call started"), producers * 200);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "call withdrawn"), producers * 50);
}

TEST(OperationQueueDeathTest, AddingAnOperationTwiceEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            ManualQueue threads;
            const auto queue = OperationQueue::create(1, &threads);
            const auto operation = BlockOperation::create([] {});
            queue->addOperation(operation);
            queue->addOperation(operation);
        },
        "zem: an operation is added to a queue for the second time");
}
