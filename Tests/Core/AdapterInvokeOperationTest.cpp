#include <zem/Core/AdapterInvokeOperation.h>
#include <zem/Core/SharedPriorityQueue.h>

#include <gtest/gtest.h>

#include <Support/ManualQueue.h>
#include <Support/Wait.h>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace zem;
using Lines = std::vector<std::string>;
using Operation = AdapterInvokeOperation;
using State = Operation::State;

std::shared_ptr<Operation> make(AdapterRequestPriority priority = AdapterRequestPriority::normal) {
    return Operation::create(priority);
}

/// Writes down each change with what the observer sees of the state meanwhile.
void observe(Operation& operation, test::Transcript& transcript) {
    operation.addObserver([&](platform::Operation& changed, std::string_view key,
                              platform::Operation::Change change) {
        transcript.add(std::string(change == platform::Operation::Change::will ? "will " : "did ") +
                       std::string(key) + (changed.isExecuting() ? " executing" : "") +
                       (changed.isFinished() ? " finished" : ""));
    });
}

TEST(AdapterInvokeOperation, BeginsReadyAndIsAsynchronous) {
    const auto operation = make();
    EXPECT_EQ(operation->state(), State::ready);
    EXPECT_TRUE(operation->isAsynchronous());
    EXPECT_FALSE(operation->isExecuting());
    EXPECT_FALSE(operation->isFinished());
    EXPECT_FALSE(operation->isCancelled());
}

TEST(AdapterInvokeOperation, TakesItsQueuePriorityFromTheAdapters) {
    using platform::QueuePriority;
    EXPECT_EQ(make(AdapterRequestPriority::high)->queuePriority(), QueuePriority::high);
    EXPECT_EQ(make(AdapterRequestPriority::normal)->queuePriority(), QueuePriority::normal);
    EXPECT_EQ(make(AdapterRequestPriority::background)->queuePriority(), QueuePriority::veryLow);
    EXPECT_EQ(static_cast<int>(QueuePriority::high), 4);
    EXPECT_EQ(static_cast<int>(QueuePriority::normal), 0);
    EXPECT_EQ(static_cast<int>(QueuePriority::veryLow), -8);
    EXPECT_EQ(static_cast<int>(QueuePriority::veryHigh), 8);
}

TEST(AdapterInvokeOperation, RunsItsBlockAndGoesOnExecutingUntilItIsFinished) {
    test::Transcript transcript;
    const auto operation = make();
    observe(*operation, transcript);
    operation->setWorkBlock([&] { transcript.add("work"); });
    operation->start();
    EXPECT_TRUE(operation->isExecuting());
    operation->finish();
    EXPECT_EQ(transcript.lines(),
              (Lines{"will isReady", "will isExecuting", "did isExecuting executing",
                     "did isReady executing", "work", "will isExecuting executing",
                     "will isFinished executing", "did isFinished finished",
                     "did isExecuting finished"}));
}

TEST(AdapterInvokeOperation, WithoutABlockExecutesAndStaysThere) {
    const auto operation = make();
    operation->start();
    EXPECT_EQ(operation->state(), State::executing);
}

TEST(AdapterInvokeOperation, WithdrawnBeforeItsTurnFinishesWithoutRunning) {
    test::Transcript transcript;
    const auto operation = make();
    observe(*operation, transcript);
    operation->setWorkBlock([&] { transcript.add("work"); });
    operation->setShouldNotStart();
    EXPECT_TRUE(operation->isCancelled());
    operation->start();
    EXPECT_EQ(transcript.lines(), (Lines{"will isReady", "will isFinished",
                                         "did isFinished finished", "did isReady finished"}));
}

TEST(AdapterInvokeOperation, WithdrawnWhileExecutingGoesOn) {
    const auto operation = make();
    operation->start();
    operation->setShouldNotStart();
    EXPECT_FALSE(operation->isCancelled());
    EXPECT_EQ(operation->state(), State::executing);
    operation->finish();
    EXPECT_EQ(operation->state(), State::finished);
}

TEST(AdapterInvokeOperation, CancelledAsOperationsAreRunsAllTheSame) {
    test::Transcript transcript;
    const auto operation = make();
    operation->setWorkBlock([&] { transcript.add("work"); });
    operation->cancel();
    EXPECT_FALSE(operation->isCancelled());
    operation->start();
    EXPECT_FALSE(operation->isCancelled());
    EXPECT_EQ(operation->state(), State::executing);
    EXPECT_EQ(transcript.lines(), Lines{"work"});
    // Only its own withdrawal counts.
    const auto withdrawn = make();
    withdrawn->cancel();
    withdrawn->setShouldNotStart();
    EXPECT_TRUE(withdrawn->isCancelled());
}

TEST(AdapterInvokeOperation, IsFinishedOnce) {
    test::Transcript transcript;
    const auto operation = make();
    operation->start();
    observe(*operation, transcript);
    operation->finish();
    operation->finish();
    EXPECT_EQ(transcript.lines().size(), 4u);
}

TEST(AdapterInvokeOperation, FinishedBeforeItsTurnNeverRuns) {
    test::Transcript transcript;
    const auto operation = make();
    operation->setWorkBlock([&] { transcript.add("work"); });
    operation->finish();
    operation->start();
    EXPECT_EQ(operation->state(), State::finished);
    EXPECT_EQ(transcript.lines(), Lines{});
}

TEST(AdapterInvokeOperation, LetsGoOfItsBlockWhenThatHasRun) {
    const auto operation = make();
    auto captured = std::make_shared<int>();
    const std::weak_ptr<int> weak = captured;
    operation->setWorkBlock([captured = std::move(captured)] {});
    operation->start();
    EXPECT_TRUE(weak.expired());
}

TEST(SharedPriorityQueue, IsOneQueueOfFiveSlots) {
    EXPECT_EQ(SharedPriorityQueue::priority(), SharedPriorityQueue::priority());
    EXPECT_EQ(SharedPriorityQueue::priority()->maxConcurrentOperationCount(), 5u);
}

TEST(SharedPriorityQueue, TheSixthOperationWaitsUntilOneOfFiveIsFinished) {
    test::Event started("an operation's start");
    std::vector<std::shared_ptr<Operation>> operations;
    for (int number = 0; number < 6; ++number) {
        auto operation = make();
        operation->setWorkBlock([&] { started.signal(); });
        operations.push_back(std::move(operation));
    }
    for (const auto& operation : operations) {
        SharedPriorityQueue::priority()->addOperation(operation);
    }
    started.wait(5);
    EXPECT_EQ(operations[5]->state(), State::ready);
    EXPECT_EQ(started.signalled(), 5);
    operations[2]->finish();
    started.wait(6);
    for (const auto& operation : operations) {
        operation->finish();
    }
    EXPECT_EQ(SharedPriorityQueue::priority()->operationCount(), 0u);
}

TEST(SharedPriorityQueue, OrdersByPriorityAndThenByArrival) {
    test::ManualQueue threads;
    const auto queue = platform::OperationQueue::create(1, &threads);
    test::Transcript transcript;
    std::vector<std::shared_ptr<Operation>> operations;
    const auto add = [&](const char* name, AdapterRequestPriority priority) {
        auto operation = make(priority);
        operation->setWorkBlock([&transcript, name, weak = std::weak_ptr(operation)] {
            transcript.add(name);
            weak.lock()->finish();
        });
        operations.push_back(operation);
        queue->addOperation(operations.back());
    };
    add("background 1", AdapterRequestPriority::background);
    add("background 2", AdapterRequestPriority::background);
    add("normal", AdapterRequestPriority::normal);
    add("high 1", AdapterRequestPriority::high);
    add("high 2", AdapterRequestPriority::high);
    queue->addOperation([&] { transcript.add("block"); }, platform::QueuePriority::veryHigh);
    threads.runAll();
    EXPECT_EQ(transcript.lines(),
              (Lines{"block", "high 1", "high 2", "normal", "background 1", "background 2"}));
}

} // namespace
