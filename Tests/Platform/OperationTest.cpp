#include <zem/Platform/Operation.h>

#include <gmock/gmock.h>

#include <Support/Wait.h>

using namespace zem::platform;
using test::Transcript;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string describe(Operation& operation, std::string_view key, Operation::Change change) {
    return std::string(change == Operation::Change::will ? "will " : "did ") + std::string(key) +
           (operation.isExecuting() ? ", executing" : "") +
           (operation.isFinished() ? ", finished" : "") +
           (operation.isCancelled() ? ", cancelled" : "");
}

void observe(Operation& operation, Transcript& transcript) {
    operation.addObserver(
        [&transcript](Operation& changed, std::string_view key, Operation::Change change) {
            transcript.add(describe(changed, key, change));
        });
}

} // namespace

TEST(Operation, IsAtFirstNothingOfAll) {
    const auto operation = std::make_shared<Operation>();
    EXPECT_FALSE(operation->isAsynchronous());
    EXPECT_FALSE(operation->isExecuting());
    EXPECT_FALSE(operation->isFinished());
    EXPECT_FALSE(operation->isCancelled());
    EXPECT_EQ(operation->queuePriority(), QueuePriority::normal);
}

TEST(Operation, PrioritiesAreTheNumbersThatCallersCompute) {
    EXPECT_EQ(static_cast<int>(QueuePriority::veryLow), -8);
    EXPECT_EQ(static_cast<int>(QueuePriority::low), -4);
    EXPECT_EQ(static_cast<int>(QueuePriority::normal), 0);
    EXPECT_EQ(static_cast<int>(QueuePriority::high), 4);
    EXPECT_EQ(static_cast<int>(QueuePriority::veryHigh), 8);
}

TEST(Operation, ReportsItsStatesAroundItsBlock) {
    Transcript transcript;
    const auto operation = BlockOperation::create([&] { transcript.add("block"); });
    observe(*operation, transcript);
    operation->start();
    EXPECT_THAT(transcript.lines(),
                ElementsAre("will isExecuting", "did isExecuting, executing", "block",
                            "will isExecuting, executing", "will isFinished, executing",
                            "did isFinished, finished", "did isExecuting, finished"));
}

TEST(Operation, FinishesWithoutItsBlockWhenCancelled) {
    Transcript transcript;
    const auto operation = BlockOperation::create([&] { transcript.add("block"); });
    observe(*operation, transcript);
    operation->cancel();
    operation->cancel();
    operation->start();
    EXPECT_THAT(transcript.lines(),
                ElementsAre("will isCancelled", "did isCancelled, cancelled",
                            "will isFinished, cancelled", "did isFinished, finished, cancelled"));
}

TEST(Operation, GoesOnWhenCancelledWhileItExecutesAndCanSee) {
    Transcript transcript;
    std::shared_ptr<BlockOperation> operation;
    operation = BlockOperation::create([&] {
        operation->cancel();
        transcript.add(operation->isCancelled() ? "cancelled" : "not cancelled");
        transcript.add("goes on");
    });
    operation->start();
    EXPECT_THAT(transcript.lines(), ElementsAre("cancelled", "goes on"));
    EXPECT_TRUE(operation->isFinished());
}

TEST(Operation, CancelOnceFinishedDoesNothing) {
    const auto operation = BlockOperation::create([] {});
    operation->start();
    Transcript transcript;
    observe(*operation, transcript);
    operation->cancel();
    EXPECT_FALSE(operation->isCancelled());
    EXPECT_THAT(transcript.lines(), IsEmpty());
}

TEST(Operation, StartsOnce) {
    Transcript transcript;
    const auto operation = BlockOperation::create([&] { transcript.add("block"); });
    operation->start();
    operation->start();
    EXPECT_THAT(transcript.lines(), ElementsAre("block"));
}

TEST(Operation, DestroysItsBlockBeforeItFinishes) {
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = captured;
    const auto operation = BlockOperation::create([captured = std::move(captured)] {});
    Transcript transcript;
    operation->addObserver([&](Operation&, std::string_view key, Operation::Change change) {
        if (key == "isFinished" && change == Operation::Change::will) {
            transcript.add(weak.expired() ? "destroyed" : "alive");
        }
    });
    operation->start();
    EXPECT_THAT(transcript.lines(), ElementsAre("destroyed"));
}

TEST(Operation, CallsItsObserversInTheOrderTheyWereAddedAndNewOnesFromTheNextChange) {
    Transcript transcript;
    const auto operation = BlockOperation::create([] {});
    bool added = false;
    operation->addObserver([&](Operation& changed, std::string_view key, Operation::Change change) {
        transcript.add("first: " + describe(changed, key, change));
        if (!std::exchange(added, true)) {
            changed.addObserver(
                [&](Operation& again, std::string_view laterKey, Operation::Change laterChange) {
                    transcript.add("added: " + describe(again, laterKey, laterChange));
                });
        }
    });
    operation->addObserver([&](Operation& changed, std::string_view key, Operation::Change change) {
        transcript.add("second: " + describe(changed, key, change));
    });
    operation->cancel();
    EXPECT_THAT(transcript.lines(),
                ElementsAre("first: will isCancelled", "second: will isCancelled",
                            "first: did isCancelled, cancelled",
                            "second: did isCancelled, cancelled",
                            "added: did isCancelled, cancelled"));
}

TEST(Operation, CarriesAnyPriorityBetween) {
    const auto operation = BlockOperation::create([] {}, QueuePriority::veryHigh);
    EXPECT_EQ(operation->queuePriority(), QueuePriority::veryHigh);
    operation->setQueuePriority(QueuePriority{3});
    EXPECT_EQ(static_cast<int>(operation->queuePriority()), 3);
}
