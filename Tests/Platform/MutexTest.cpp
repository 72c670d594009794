#include <zem/Platform/Mutex.h>
#include <zem/Platform/Operation.h>
#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>

#include <gtest/gtest.h>

#include <thread>

using namespace zem::platform;

// Only the locks of the calling thread count.
TEST(Mutex, HeldByAnotherThreadIsNotHeldHere) {
    Mutex mutex;
    Lock lock(mutex);
    std::thread([] { Mutex::assertNoneHeld("another thread goes on"); }).join();
}

TEST(Mutex, IsNotHeldOnceUnlocked) {
    Mutex first;
    Mutex second;
    {
        Lock lock(first);
        Lock inner(second);
    }
    Mutex::assertNoneHeld("both locks are gone");
}

#ifndef NDEBUG

namespace {

class MutexDeathTest : public testing::Test {
  protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    Mutex mutex;
};

} // namespace

TEST_F(MutexDeathTest, HeldWhileASerialQueueIsWaitedForEndsTheProcess) {
    EXPECT_DEATH(
        {
            const auto queue = SerialQueue::create("waited for");
            Lock lock(mutex);
            queue->sync([] {});
        },
        "zem: a lock is held while a serial queue is waited for");
}

TEST_F(MutexDeathTest, LeftHeldByATaskEndsTheProcessBeforeTheNextTask) {
    EXPECT_DEATH(
        {
            const auto queue = SerialQueue::create("careless");
            queue->sync([&] {
                queue->async([&] { mutex.lock(); });
                queue->async([] {});
            });
            queue->sync([] {});
        },
        "zem: a lock is held while a task of a serial queue is run");
}

TEST_F(MutexDeathTest, HeldWhileARunLoopRunsATaskEndsTheProcess) {
    EXPECT_DEATH(
        {
            Lock lock(mutex);
            RunLoop::main()->perform([] { RunLoop::main()->stop(); });
            RunLoop::main()->run();
        },
        "zem: a lock is held while a task of a run loop is run");
}

TEST_F(MutexDeathTest, HeldWhileATimerFiresEndsTheProcess) {
    EXPECT_DEATH(
        {
            Lock lock(mutex);
            const auto timer =
                RunLoop::main()->scheduleTimer(Seconds(0), false, [] { RunLoop::main()->stop(); });
            RunLoop::main()->run();
        },
        "zem: a lock is held while a timer fires");
}

TEST_F(MutexDeathTest, HeldWhileAnOperationRunsEndsTheProcess) {
    EXPECT_DEATH(
        {
            const auto operation = BlockOperation::create([] {});
            Lock lock(mutex);
            operation->start();
        },
        "zem: a lock is held while an operation runs");
}

TEST_F(MutexDeathTest, HeldWhileObserversAreCalledEndsTheProcess) {
    EXPECT_DEATH(
        {
            const auto operation = BlockOperation::create([] {});
            operation->addObserver([](Operation&, std::string_view, Operation::Change) {});
            Lock lock(mutex);
            operation->cancel();
        },
        "zem: a lock is held while an operation's observers are called");
}

#endif
