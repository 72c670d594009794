#include <zem/Platform/RunLoop.h>

#include <gmock/gmock.h>

#include <Support/Wait.h>
#include <limits>
#include <thread>

// Timers of the run loop that stands on GLib: nothing here waits for a time, only for timers.

using namespace zem::platform;
using namespace std::chrono_literals;
using test::Event;
using test::Transcript;
using test::waitLimit;
using testing::ElementsAre;

namespace {

bool runMainUntil(const std::function<bool()>& done) {
    return RunLoop::main()->runUntil(done, waitLimit);
}

} // namespace

TEST(Timer, FiresOnceAfterItsInterval) {
    const auto loop = RunLoop::main();
    int fired = 0;
    const auto begin = loop->now();
    RunLoop::TimePoint at;
    const auto timer = loop->scheduleTimer(3ms, false, [&] {
        ++fired;
        at = loop->now();
    });
    bool later = false;
    const auto after = loop->scheduleTimer(20ms, false, [&] { later = true; });
    EXPECT_TRUE(runMainUntil([&] { return later; }));
    EXPECT_EQ(fired, 1);
    EXPECT_GE(at - begin, 3ms);
}

TEST(Timer, FiresAgainAndAgainWhenItRepeats) {
    int fired = 0;
    const auto timer = RunLoop::main()->scheduleTimer(1ms, true, [&] { ++fired; });
    EXPECT_TRUE(runMainUntil([&] { return fired == 3; }));
}

TEST(Timer, FiresInTheOrderOfTheDueTimesAndThenOfTheCalls) {
    const auto loop = RunLoop::main();
    Transcript transcript;
    const auto first = loop->scheduleTimer(0s, false, [&] { transcript.add("at once, first"); });
    const auto second = loop->scheduleTimer(0s, false, [&] { transcript.add("at once, second"); });
    const auto later = loop->scheduleTimer(1ms, false, [&] { transcript.add("later"); });
    const auto latest = loop->scheduleTimer(2ms, false, [&] { transcript.add("latest"); });
    EXPECT_TRUE(runMainUntil([&] { return transcript.lines().size() == 4; }));
    EXPECT_THAT(transcript.lines(),
                ElementsAre("at once, first", "at once, second", "later", "latest"));
}

TEST(Timer, FiresOnItsRunLoopsThreadWhenScheduledFromAnother) {
    RunLoopThread thread("timers");
    Event fired("the timer");
    bool onItsThread = false;
    // The loop sleeps by now or not: either way it has to hear of the timer.
    const auto timer = thread.runLoop()->scheduleTimer(1ms, false, [&] {
        onItsThread = thread.runLoop()->isCurrent();
        fired.signal();
    });
    fired.wait();
    EXPECT_TRUE(onItsThread);
}

TEST(Timer, DoesNotFireOnceInvalidated) {
    const auto loop = RunLoop::main();
    Transcript transcript;
    const auto never = loop->scheduleTimer(1ms, false, [&] { transcript.add("never"); });
    const auto after = loop->scheduleTimer(5ms, false, [&] { transcript.add("after"); });
    never->invalidate();
    never->invalidate();
    EXPECT_TRUE(runMainUntil([&] { return !transcript.lines().empty(); }));
    EXPECT_THAT(transcript.lines(), ElementsAre("after"));
}

TEST(Timer, DoesNotFireOnceDestroyed) {
    const auto loop = RunLoop::main();
    Transcript transcript;
    auto never = loop->scheduleTimer(1ms, true, [&] { transcript.add("never"); });
    const auto after = loop->scheduleTimer(5ms, false, [&] { transcript.add("after"); });
    never.reset();
    EXPECT_TRUE(runMainUntil([&] { return !transcript.lines().empty(); }));
    EXPECT_THAT(transcript.lines(), ElementsAre("after"));
}

TEST(Timer, MayBeInvalidatedByItsOwnBlock) {
    const auto loop = RunLoop::main();
    Transcript transcript;
    std::unique_ptr<Timer> timer;
    timer = loop->scheduleTimer(1ms, true, [&] {
        timer->invalidate();
        transcript.add("once");
    });
    const auto after = loop->scheduleTimer(10ms, false, [&] { transcript.add("after"); });
    EXPECT_TRUE(runMainUntil([&] { return transcript.lines().size() == 2; }));
    EXPECT_THAT(transcript.lines(), ElementsAre("once", "after"));
}

TEST(Timer, MayBeDestroyedByItsOwnBlockWhoseCapturesLiveUntilItReturns) {
    struct Capture {
        Transcript& transcript;
        ~Capture() { transcript.add("captures destroyed"); }
    };
    const auto loop = RunLoop::main();
    Transcript transcript;
    std::unique_ptr<Timer> timer;
    timer =
        loop->scheduleTimer(1ms, true, [&timer, capture = std::make_shared<Capture>(transcript)] {
            timer.reset();
            capture->transcript.add("timer destroyed");
        });
    const auto after = loop->scheduleTimer(10ms, false, [&] { transcript.add("after"); });
    EXPECT_TRUE(runMainUntil([&] { return transcript.lines().size() == 3; }));
    EXPECT_THAT(transcript.lines(), ElementsAre("timer destroyed", "captures destroyed", "after"));
}

TEST(Timer, ReleasesItsBlockWhenInvalidated) {
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = captured;
    const auto timer =
        RunLoop::main()->scheduleTimer(1h, true, [captured = std::move(captured)] {});
    EXPECT_FALSE(weak.expired());
    timer->invalidate();
    EXPECT_TRUE(weak.expired());
}

TEST(Timer, InvalidatedFromAnotherThreadStartsNoMore) {
    RunLoopThread thread("invalidated");
    for (int round = 0; round < 50; ++round) {
        Event fired("the timer");
        // Not atomic: nothing may touch it once the timer is invalidated and the loop was passed.
        int count = 0;
        const auto timer = thread.runLoop()->scheduleTimer(0s, true, [&] {
            ++count;
            fired.signal();
        });
        fired.wait();
        timer->invalidate();
        Event passed("a task after the invalidation");
        thread.runLoop()->perform([&] { passed.signal(); });
        passed.wait();
        const int seen = count;
        EXPECT_GE(seen, 1);
        Event later("a later timer");
        const auto marker = thread.runLoop()->scheduleTimer(1ms, false, [&] { later.signal(); });
        later.wait();
        EXPECT_EQ(count, seen);
    }
}

TEST(Timer, OutlivesItsRunLoop) {
    bool fired = false;
    std::unique_ptr<Timer> before;
    std::unique_ptr<Timer> after;
    std::shared_ptr<RunLoop> loop;
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = captured;
    std::thread thread([&] {
        loop = RunLoop::current();
        before =
            loop->scheduleTimer(0s, true, [&, captured = std::move(captured)] { fired = true; });
    });
    thread.join();
    EXPECT_TRUE(weak.expired());
    after = loop->scheduleTimer(0s, true, [&] { fired = true; });
    loop.reset();
    before->invalidate();
    after->invalidate();
    EXPECT_FALSE(fired);
}

TEST(Timer, IsNotReenteredWhileItsBlockRunsTheLoop) {
    const auto loop = RunLoop::main();
    Transcript transcript;
    std::unique_ptr<Timer> timer;
    timer = loop->scheduleTimer(1ms, true, [&] {
        transcript.add("begins");
        EXPECT_FALSE(loop->runUntil([] { return false; }, 5ms));
        transcript.add("ends");
        timer->invalidate();
    });
    EXPECT_TRUE(runMainUntil([&] { return transcript.lines().size() >= 2; }));
    EXPECT_THAT(transcript.lines(), ElementsAre("begins", "ends"));
}

TEST(Timer, LeavesTimeForTasksHoweverShortItsInterval) {
    const auto loop = RunLoop::main();
    for (const Seconds interval :
         {Seconds(0), Seconds(-1), Seconds(std::numeric_limits<double>::quiet_NaN())}) {
        int fired = 0;
        bool ran = false;
        const auto timer = loop->scheduleTimer(interval, true, [&] {
            if (++fired == 2) {
                loop->perform([&] { ran = true; });
            }
        });
        EXPECT_TRUE(runMainUntil([&] { return ran; }));
    }
}

TEST(Timer, OfAnEndlessIntervalDoesNotFire) {
    const auto loop = RunLoop::main();
    Transcript transcript;
    const auto never = loop->scheduleTimer(Seconds(std::numeric_limits<double>::infinity()), true,
                                           [&] { transcript.add("never"); });
    const auto after = loop->scheduleTimer(1ms, false, [&] { transcript.add("after"); });
    EXPECT_TRUE(runMainUntil([&] { return !transcript.lines().empty(); }));
    EXPECT_THAT(transcript.lines(), ElementsAre("after"));
}
