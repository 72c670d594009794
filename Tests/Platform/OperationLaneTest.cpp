#include <zem/Platform/Operation.h>

#include <gmock/gmock.h>

#include <Platform/Call.h>
#include <Support/ManualQueue.h>
#include <Support/Wait.h>
#include <memory>
#include <string>
#include <utility>

using namespace zem::platform;
using test::Call;
using test::ManualQueue;
using test::Transcript;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(OperationLane, StartsTheOperationsOfALaneThereOneAfterTheOther) {
    Transcript transcript;
    const auto lane = std::make_shared<ManualQueue>();
    const auto queue = OperationQueue::create(5);
    queue->addOperation([&] { transcript.add("normal"); }, QueuePriority::normal, lane);
    queue->addOperation(
        [&] {
            transcript.add("high");
            // No other operation of the lane is started meanwhile.
            EXPECT_EQ(lane->waiting(), 0u);
        },
        QueuePriority::high, lane);
    EXPECT_THAT(transcript.lines(), IsEmpty());
    EXPECT_EQ(lane->waiting(), 1u);
    EXPECT_EQ(lane->runAll(), 1);
    EXPECT_THAT(transcript.lines(), ElementsAre("high", "normal"));
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationLane, SharesItsSlotsAmongLanes) {
    Transcript transcript;
    const auto left = std::make_shared<ManualQueue>();
    const auto right = std::make_shared<ManualQueue>();
    const auto queue = OperationQueue::create(1);
    const auto call = Call::create(transcript, "left call");
    call->setLane(left);
    queue->addOperation(call);
    EXPECT_EQ(left->runAll(), 1);
    queue->addOperation([&] { transcript.add("right"); }, QueuePriority::normal, right);
    EXPECT_EQ(right->waiting(), 0u);
    call->finish();
    EXPECT_EQ(right->runAll(), 1);
    EXPECT_THAT(transcript.lines(), ElementsAre("left call started", "right"));
}

TEST(OperationLane, LeavesTheLastSlotToTheMoreUrgentLane) {
    Transcript transcript;
    const auto left = std::make_shared<ManualQueue>();
    const auto right = std::make_shared<ManualQueue>();
    const auto queue = OperationQueue::create(1);
    queue->addOperation([&] { transcript.add("background"); }, QueuePriority::veryLow, left);
    queue->addOperation([&] { transcript.add("high"); }, QueuePriority::high, right);
    // Its turn comes first, and passes.
    left->runAll();
    EXPECT_THAT(transcript.lines(), IsEmpty());
    right->runAll();
    left->runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("high", "background"));
}

/// Ends while something waits in it, as a run loop's thread may.
class EndingQueue final : public Queue {
  public:
    void async(Task task) override { const Task dropped = std::move(task); }
};

TEST(OperationLane, StartsWhatALaneDropsOnItsOwnThreads) {
    const auto lane = std::make_shared<EndingQueue>();
    test::Event started("the operation");
    const auto queue = OperationQueue::create(5);
    queue->addOperation([&] { started.signal(); }, QueuePriority::normal, lane);
    started.wait();
}

TEST(OperationLane, ThatHasThreadsOfItsOwnStartsEverythingThere) {
    ManualQueue threads;
    Transcript transcript;
    const auto lane = std::make_shared<ManualQueue>();
    const auto queue = OperationQueue::create(1, &threads);
    queue->addOperation([&] { transcript.add("ran"); }, QueuePriority::normal, lane);
    EXPECT_EQ(lane->waiting(), 0u);
    threads.runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("ran"));
}

TEST(OperationLane, StartsSixteenInOneTurnAndThenLetsOthersHaveTheThread) {
    Transcript transcript;
    const auto lane = std::make_shared<ManualQueue>();
    const auto queue = OperationQueue::create(5);
    constexpr int count = 40;
    int started = 0;
    for (int number = 0; number < count; ++number) {
        queue->addOperation([&] { ++started; }, QueuePriority::normal, lane);
    }
    const auto report = [&] {
        transcript.add(std::to_string(started));
    };
    lane->async(report);
    EXPECT_TRUE(lane->runNext());
    EXPECT_TRUE(lane->runNext());
    lane->async(report);
    EXPECT_TRUE(lane->runNext());
    EXPECT_TRUE(lane->runNext());
    lane->async(report);
    lane->runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("16", "32", "40"));
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationLane, AsksForNoTurnWhenItsLastTurnTookAll) {
    const auto lane = std::make_shared<ManualQueue>();
    const auto queue = OperationQueue::create(5);
    for (int number = 0; number < 16; ++number) {
        queue->addOperation([] {}, QueuePriority::normal, lane);
    }
    EXPECT_TRUE(lane->runNext());
    EXPECT_EQ(lane->waiting(), 0u);
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationLane, AsksForTheNextTurnWhenASlotIsFreeNotBefore) {
    Transcript transcript;
    const auto lane = std::make_shared<ManualQueue>();
    const auto queue = OperationQueue::create(16);
    std::vector<std::shared_ptr<Call>> calls;
    for (int number = 0; number < 17; ++number) {
        calls.push_back(Call::create(transcript, "call"));
        calls.back()->setLane(lane);
        queue->addOperation(calls.back());
    }
    EXPECT_TRUE(lane->runNext());
    EXPECT_EQ(transcript.lines().size(), 16u);
    EXPECT_EQ(lane->waiting(), 0u);
    calls.front()->finish();
    EXPECT_EQ(lane->waiting(), 1u);
    lane->runAll();
    EXPECT_EQ(transcript.lines().size(), 17u);
    for (const auto& call : calls) {
        call->finish();
    }
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationLane, FirstComeFirstServedHoldsAcrossLanes) {
    Transcript transcript;
    const auto left = std::make_shared<ManualQueue>();
    const auto right = std::make_shared<ManualQueue>();
    const auto queue = OperationQueue::create(1);
    const auto add = [&](std::string line, const std::shared_ptr<ManualQueue>& lane) {
        queue->addOperation([&transcript, line] { transcript.add(line); }, QueuePriority::normal,
                            lane);
    };
    add("left 1", left);
    add("right 2", right);
    add("right 3", right);
    add("left 4", left);
    add("right 5", right);
    // Each passes to the other what came before.
    while (left->runAll() + right->runAll() != 0) {
    }
    EXPECT_THAT(transcript.lines(),
                ElementsAre("left 1", "right 2", "right 3", "left 4", "right 5"));
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationLane, StartsWhatHasASlotBesidesAllThatCameBeforeIt) {
    Transcript transcript;
    const auto left = std::make_shared<ManualQueue>();
    const auto right = std::make_shared<ManualQueue>();
    const auto queue = OperationQueue::create(3);
    const auto add = [&](std::string line, const std::shared_ptr<ManualQueue>& lane) {
        const auto call = Call::create(transcript, std::move(line));
        call->setLane(lane);
        queue->addOperation(call);
        return call;
    };
    const auto first = add("left 1", left);
    const auto second = add("left 2", left);
    const auto third = add("right 3", right);
    const auto fourth = add("right 4", right);
    right->runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("right 3 started"));
    left->runAll();
    EXPECT_THAT(transcript.lines(),
                ElementsAre("right 3 started", "left 1 started", "left 2 started"));
    second->finish();
    right->runAll();
    EXPECT_EQ(transcript.lines().back(), "right 4 started");
    for (const auto& call : {first, third, fourth}) {
        call->finish();
    }
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationLane, GoesOnWhenWhatItHadToPassFinishesWhileItWaits) {
    Transcript transcript;
    const auto left = std::make_shared<ManualQueue>();
    const auto right = std::make_shared<ManualQueue>();
    const auto queue = OperationQueue::create(1);
    const auto running = Call::create(transcript, "running");
    running->setLane(left);
    queue->addOperation(running);
    left->runAll();
    queue->addOperation([&] { transcript.add("background"); }, QueuePriority::veryLow, left);
    const auto urgent = Call::create(transcript, "urgent", QueuePriority::high);
    urgent->setLane(right);
    queue->addOperation(urgent);
    urgent->finish();
    running->finish();
    left->runAll();
    EXPECT_THAT(transcript.lines(), ElementsAre("running started", "background"));
    EXPECT_EQ(queue->operationCount(), 0u);
}

TEST(OperationLane, IsAskedAgainWhenWhatItHadToPassFinishesAfterItsTurn) {
    Transcript transcript;
    const auto left = std::make_shared<ManualQueue>();
    const auto right = std::make_shared<ManualQueue>();
    const auto queue = OperationQueue::create(1);
    queue->addOperation([&] { transcript.add("background"); }, QueuePriority::veryLow, left);
    const auto urgent = Call::create(transcript, "urgent", QueuePriority::high);
    urgent->setLane(right);
    queue->addOperation(urgent);
    left->runAll(); // its turn passes
    urgent->finish();
    left->runAll();
    EXPECT_EQ(right->runAll(), 1); // the turn that was asked for finds nothing
    EXPECT_THAT(transcript.lines(), ElementsAre("background"));
}

TEST(OperationLane, IsLetGoWhenNothingWaitsInIt) {
    Transcript transcript;
    const auto queue = OperationQueue::create(1);
    const auto other = std::make_shared<ManualQueue>();
    const auto running = Call::create(transcript, "running");
    running->setLane(other);
    queue->addOperation(running);
    other->runAll();
    auto lane = std::make_shared<ManualQueue>();
    const std::weak_ptr<ManualQueue> weak = lane;
    {
        const auto waiting = Call::create(transcript, "waiting");
        waiting->setLane(lane);
        queue->addOperation(waiting);
        waiting->finish();
    }
    lane.reset();
    EXPECT_TRUE(weak.expired());
    running->finish();
}
