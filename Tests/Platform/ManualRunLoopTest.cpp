#include <zem/Platform/RunLoop.h>

#include <gmock/gmock.h>

#include <Support/Wait.h>
#include <thread>

using namespace zem::platform;
using namespace std::chrono_literals;
using test::Transcript;
using test::waitLimit;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// The loop's time in whole milliseconds since `begin`.
std::string since(RunLoop::TimePoint begin, const RunLoop& loop) {
    return std::to_string(
        std::chrono::duration_cast<std::chrono::milliseconds>(loop.now() - begin).count());
}

} // namespace

TEST(ManualRunLoop, IsTheCurrentOneOfItsThreadWhileItLives) {
    const auto before = RunLoop::current();
    {
        const auto manual = ManualRunLoop::create();
        EXPECT_EQ(RunLoop::current(), manual);
        EXPECT_TRUE(manual->isCurrent());
        bool elsewhere = true;
        std::thread([&] {
            elsewhere = manual->isCurrent() || RunLoop::current() == manual;
        }).join();
        EXPECT_FALSE(elsewhere);
    }
    EXPECT_EQ(RunLoop::current(), before);
}

TEST(ManualRunLoop, TheYoungestOfSeveralIsCurrent) {
    auto older = ManualRunLoop::create();
    auto younger = ManualRunLoop::create();
    EXPECT_EQ(RunLoop::current(), younger);
    younger.reset();
    EXPECT_EQ(RunLoop::current(), older);
    younger = ManualRunLoop::create();
    older.reset();
    EXPECT_EQ(RunLoop::current(), younger);
    younger.reset();
    EXPECT_EQ(RunLoop::current(), RunLoop::main());
}

TEST(ManualRunLoop, RunsTasksWhenAskedAndCountsThem) {
    const auto loop = ManualRunLoop::create();
    Transcript transcript;
    loop->perform([&] {
        transcript.add("outer");
        loop->perform([&] { transcript.add("inner"); });
    });
    loop->perform([&] { transcript.add("second"); });
    EXPECT_THAT(transcript.lines(), IsEmpty());
    EXPECT_EQ(loop->runTasks(), 3);
    EXPECT_THAT(transcript.lines(), ElementsAre("outer", "second", "inner"));
    EXPECT_EQ(loop->runTasks(), 0);
}

TEST(ManualRunLoop, MovesItsClockOnlyWhenTold) {
    const auto loop = ManualRunLoop::create();
    const auto begin = loop->now();
    loop->perform([] {});
    loop->runTasks();
    EXPECT_EQ(loop->now(), begin);
    loop->advance(1500ms);
    EXPECT_EQ(loop->now(), begin + 1500ms);
}

TEST(ManualRunLoop, FiresTimersAtTheirDueTimesInOrder) {
    const auto loop = ManualRunLoop::create();
    const auto begin = loop->now();
    Transcript transcript;
    const auto thirty = loop->scheduleTimer(
        30ms, false, [&] { transcript.add("once 30 at " + since(begin, *loop)); });
    const auto twenty = loop->scheduleTimer(
        20ms, true, [&] { transcript.add("every 20 at " + since(begin, *loop)); });
    loop->advance(19ms);
    EXPECT_THAT(transcript.lines(), IsEmpty());
    loop->advance(1ms);
    EXPECT_THAT(transcript.lines(), ElementsAre("every 20 at 20"));
    loop->advance(45ms);
    EXPECT_THAT(transcript.lines(),
                ElementsAre("every 20 at 20", "once 30 at 30", "every 20 at 40", "every 20 at 60"));
    EXPECT_EQ(since(begin, *loop), "65");
}

TEST(ManualRunLoop, FiresWhatABlockSchedulesOnTheWay) {
    const auto loop = ManualRunLoop::create();
    const auto begin = loop->now();
    Transcript transcript;
    std::unique_ptr<Timer> second;
    const auto first = loop->scheduleTimer(10ms, false, [&] {
        second = loop->scheduleTimer(5ms, false,
                                     [&] { transcript.add("second at " + since(begin, *loop)); });
    });
    loop->advance(20ms);
    EXPECT_THAT(transcript.lines(), ElementsAre("second at 15"));
}

TEST(ManualRunLoop, SkipsTheTicksThatALongBlockMissed) {
    const auto loop = ManualRunLoop::create();
    const auto begin = loop->now();
    Transcript transcript;
    bool slow = true;
    const auto timer = loop->scheduleTimer(10ms, true, [&] {
        transcript.add("at " + since(begin, *loop));
        if (std::exchange(slow, false)) {
            loop->advance(25ms); // the block takes until 35
        }
    });
    loop->advance(60ms);
    EXPECT_THAT(transcript.lines(), ElementsAre("at 10", "at 40", "at 50", "at 60"));
}

TEST(ManualRunLoop, InvalidatedAndDestroyedTimersDoNotFire) {
    const auto loop = ManualRunLoop::create();
    Transcript transcript;
    const auto invalidated = loop->scheduleTimer(1s, true, [&] { transcript.add("invalidated"); });
    auto destroyed = loop->scheduleTimer(1s, true, [&] { transcript.add("destroyed"); });
    std::unique_ptr<Timer> itself;
    itself = loop->scheduleTimer(1s, true, [&] {
        transcript.add("itself");
        itself.reset();
    });
    invalidated->invalidate();
    destroyed.reset();
    loop->advance(3s);
    EXPECT_THAT(transcript.lines(), ElementsAre("itself"));
}

TEST(ManualRunLoop, RunUntilRunsTasksFromOtherThreadsWithoutMovingTheClock) {
    const auto loop = ManualRunLoop::create();
    const auto begin = loop->now();
    bool ran = false;
    Transcript transcript;
    const auto timer = loop->scheduleTimer(1ms, false, [&] { transcript.add("too early"); });
    std::thread other([&] { loop->perform([&] { ran = true; }); });
    EXPECT_TRUE(loop->runUntil([&] { return ran; }, waitLimit));
    other.join();
    EXPECT_EQ(loop->now(), begin);
    EXPECT_THAT(transcript.lines(), IsEmpty());
    EXPECT_FALSE(loop->runUntil([] { return false; }, 1ms));
}

TEST(ManualRunLoop, RunReturnsWhenStopped) {
    const auto loop = ManualRunLoop::create();
    Transcript transcript;
    loop->perform([&] {
        loop->stop();
        transcript.add("first");
    });
    loop->perform([&] {
        transcript.add("second");
        loop->stop();
    });
    loop->run();
    transcript.add("returned");
    loop->run();
    EXPECT_THAT(transcript.lines(), ElementsAre("first", "returned", "second"));
    std::thread stopper([&] { loop->stop(); });
    loop->run();
    stopper.join();
}

TEST(ManualRunLoop, DestroysTasksThatHaveNotRun) {
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = captured;
    auto loop = ManualRunLoop::create();
    loop->perform([captured = std::move(captured)] {});
    EXPECT_FALSE(weak.expired());
    loop.reset();
    EXPECT_TRUE(weak.expired());
}

TEST(ManualRunLoop, MayLoseItsLastReferenceInATask) {
    Transcript transcript;
    auto loop = ManualRunLoop::create();
    ManualRunLoop& alive = *loop;
    alive.perform([&] {
        loop.reset();
        transcript.add("dropped");
    });
    alive.perform([&] { transcript.add("after"); });
    EXPECT_EQ(alive.runTasks(), 2);
    EXPECT_THAT(transcript.lines(), ElementsAre("dropped", "after"));
    EXPECT_EQ(RunLoop::current(), RunLoop::main());
}
