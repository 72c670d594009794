#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>

#include <glib.h>
#include <gmock/gmock.h>

#include <Support/Wait.h>
#include <pthread.h>
#include <thread>

using namespace zem::platform;
using namespace std::chrono_literals;
using test::Arrival;
using test::Event;
using test::Transcript;
using test::waitLimit;
using testing::ElementsAre;

TEST(RunLoop, OfTheInitialThreadIsTheMainOne) {
    EXPECT_EQ(RunLoop::current(), RunLoop::main());
    EXPECT_TRUE(RunLoop::main()->isCurrent());
}

TEST(RunLoop, IsOneAThread) {
    std::shared_ptr<RunLoop> first;
    std::shared_ptr<RunLoop> second;
    bool isCurrentThere = false;
    bool mainIsCurrentThere = true;
    std::thread thread([&] {
        first = RunLoop::current();
        second = RunLoop::current();
        isCurrentThere = first->isCurrent();
        mainIsCurrentThere = RunLoop::main()->isCurrent();
    });
    thread.join();
    EXPECT_EQ(first, second);
    EXPECT_NE(first, RunLoop::main());
    EXPECT_TRUE(isCurrentThere);
    EXPECT_FALSE(first->isCurrent());
    EXPECT_FALSE(mainIsCurrentThere);
}

TEST(RunLoop, RunsTasksInOrderAndNeverBeforePerformReturns) {
    const auto loop = RunLoop::main();
    Transcript transcript;
    loop->perform([&] {
        loop->perform([&] {
            transcript.add("inner");
            loop->stop();
        });
        transcript.add("outer");
    });
    loop->perform([&] { transcript.add("second"); });
    transcript.add("performed");
    loop->run();
    EXPECT_THAT(transcript.lines(), ElementsAre("performed", "outer", "second", "inner"));
}

TEST(RunLoop, StopReturnsAfterTheTaskAtHandAndTheNextRunGoesOn) {
    const auto loop = RunLoop::main();
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
}

TEST(RunLoop, StoppedWhileNoneRunsReturnsAtOnce) {
    const auto loop = RunLoop::main();
    Transcript transcript;
    loop->perform([&] { transcript.add("task"); });
    loop->stop();
    loop->run();
    EXPECT_THAT(transcript.lines(), ElementsAre());
    EXPECT_TRUE(loop->runUntil([&] { return transcript.lines().size() == 1; }, waitLimit));
}

TEST(RunLoop, StopFromAnotherThreadWakesIt) {
    const auto loop = RunLoop::main();
    Event running("the loop running");
    std::thread stopper([&] {
        running.wait();
        loop->stop();
    });
    loop->perform([&] { running.signal(); });
    loop->run();
    stopper.join();
    EXPECT_EQ(running.signalled(), 1);
}

TEST(RunLoop, StopEndsTheInnermostRun) {
    const auto loop = RunLoop::main();
    Transcript transcript;
    loop->perform([&] {
        loop->run();
        transcript.add("inner returned");
    });
    loop->perform([&] {
        transcript.add("in the inner");
        loop->stop();
    });
    loop->perform([&] {
        transcript.add("in the outer");
        loop->stop();
    });
    loop->run();
    transcript.add("outer returned");
    EXPECT_THAT(transcript.lines(),
                ElementsAre("in the inner", "inner returned", "in the outer", "outer returned"));
}

TEST(RunLoop, RunUntilAsksFirstAndAfterEachTask) {
    const auto loop = RunLoop::main();
    Transcript transcript;
    int remaining = 2;
    for (const char* name : {"one", "two", "three"}) {
        loop->perform([&, name] {
            transcript.add(name);
            --remaining;
        });
    }
    const auto done = [&] {
        transcript.add("asked");
        return remaining == 0;
    };
    EXPECT_TRUE(loop->runUntil(done, waitLimit));
    EXPECT_THAT(transcript.lines(), ElementsAre("asked", "one", "asked", "two", "asked"));
    EXPECT_TRUE(loop->runUntil([&] { return remaining == -1; }, waitLimit));
}

TEST(RunLoop, RunUntilEndsWhenItsLimitHasPassed) {
    const auto loop = RunLoop::main();
    const auto begin = loop->now();
    EXPECT_FALSE(loop->runUntil([] { return false; }, 5ms));
    EXPECT_GE(loop->now() - begin, 5ms);
    EXPECT_FALSE(loop->runUntil([] { return false; }, Seconds(-1)));
}

TEST(RunLoop, RunUntilIsNotEndedByStop) {
    const auto loop = RunLoop::main();
    bool second = false;
    loop->perform([&] { loop->stop(); });
    loop->perform([&] { second = true; });
    EXPECT_TRUE(loop->runUntil([&] { return second; }, waitLimit));
    // The stop was for a run, and the next one heeds it.
    loop->run();
}

TEST(RunLoop, PerformsFromManyThreadsInTheOrderOfEach) {
    constexpr int producers = 4;
    constexpr int tasksEach = 2000;
    RunLoopThread thread("consumer");
    Event done("every task");
    int counter = 0; // not atomic: the loop alone keeps it whole
    int outOfOrder = 0;
    std::vector<int> last(producers, -1);
    std::vector<std::thread> threads;
    threads.reserve(producers);
    for (int producer = 0; producer < producers; ++producer) {
        threads.emplace_back([&, producer] {
            for (int number = 0; number < tasksEach; ++number) {
                thread.runLoop()->perform([&, producer, number] {
                    outOfOrder += last[static_cast<std::size_t>(producer)] + 1 == number ? 0 : 1;
                    last[static_cast<std::size_t>(producer)] = number;
                    if (++counter == producers * tasksEach) {
                        done.signal();
                    }
                });
            }
        });
    }
    for (std::thread& producer : threads) {
        producer.join();
    }
    done.wait();
    EXPECT_EQ(counter, producers * tasksEach);
    EXPECT_EQ(outOfOrder, 0);
}

TEST(RunLoop, RunsSourcesOfItsThreadsDefaultContext) {
    RunLoopThread thread("sources");
    Arrival<std::thread::id> ranOn("the source");
    Arrival<std::thread::id> loopThread("the task");
    thread.runLoop()->perform([&] {
        loopThread.put(std::this_thread::get_id());
        GSource* source = g_idle_source_new();
        g_source_set_callback(
            source,
            [](gpointer data) -> gboolean {
                static_cast<Arrival<std::thread::id>*>(data)->put(std::this_thread::get_id());
                return G_SOURCE_REMOVE;
            },
            &ranOn, nullptr);
        g_source_attach(source, g_main_context_get_thread_default());
        g_source_unref(source);
    });
    EXPECT_EQ(ranOn.get(), loopThread.get());
    EXPECT_NE(ranOn.get(), std::this_thread::get_id());
}

TEST(RunLoop, RunsUnderAnApplicationsOwnMainLoop) {
    const auto loop = RunLoop::main();
    Transcript transcript;
    GMainLoop* application = g_main_loop_new(nullptr, FALSE);
    const auto timer = loop->scheduleTimer(1ms, false, [&] {
        transcript.add("timer");
        g_main_loop_quit(application);
    });
    std::thread other([&] { loop->perform([&] { transcript.add("task"); }); });
    other.join();
    g_main_loop_run(application);
    g_main_loop_unref(application);
    EXPECT_THAT(transcript.lines(), ElementsAre("task", "timer"));
}

TEST(RunLoop, StandsOnTheContextThatItsThreadAlreadyHas) {
    Transcript transcript;
    std::thread([&] {
        GMainContext* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        RunLoop::current()->perform([&] { transcript.add("task"); });
        EXPECT_EQ(g_main_context_get_thread_default(), context);
        g_main_context_iteration(context, FALSE);
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    }).join();
    EXPECT_THAT(transcript.lines(), ElementsAre("task"));
}

TEST(RunLoop, LetsOtherSourcesRunBetweenTasksThatFollowOneAnother) {
    const auto loop = RunLoop::main();
    bool sourceRan = false;
    g_idle_add_full(
        G_PRIORITY_DEFAULT,
        [](gpointer data) -> gboolean {
            *static_cast<bool*>(data) = true;
            return G_SOURCE_REMOVE;
        },
        &sourceRan, nullptr);
    bool ended = false;
    std::function<void()> again = [&] {
        if (sourceRan) {
            ended = true;
        } else {
            loop->perform([&] { again(); });
        }
    };
    again();
    EXPECT_TRUE(loop->runUntil([&] { return ended; }, waitLimit));
}

TEST(RunLoop, DestroysItsTasksWithoutRunningThemWhenItsThreadEnds) {
    Transcript transcript;
    struct Capture {
        Transcript& transcript;
        std::string name;
        ~Capture() { transcript.add(name + " destroyed"); }
    };
    std::shared_ptr<RunLoop> loop;
    std::thread thread([&] {
        loop = RunLoop::current();
        loop->perform([&, held = loop, capture = std::make_unique<Capture>(transcript, "pending")] {
            transcript.add("ran");
        });
    });
    thread.join();
    transcript.add("joined");
    loop->perform(
        [&, capture = std::make_unique<Capture>(transcript, "late")] { transcript.add("ran"); });
    EXPECT_THAT(transcript.lines(), ElementsAre("pending destroyed", "joined", "late destroyed"));
    const std::weak_ptr<RunLoop> weak = loop;
    loop.reset();
    EXPECT_TRUE(weak.expired());
}

TEST(RunLoopDeathTest, RunOnAThreadThatIsNotItsOwnEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(std::thread([] { RunLoop::main()->run(); }).join(),
                 "zem: a run loop is run on a thread that is not its own");
}

TEST(MainQueue, RunsItsTasksInOrderOnTheMainRunLoop) {
    Transcript transcript;
    std::thread other([&] {
        for (const char* name : {"first", "second"}) {
            mainQueue()->async([&, name] {
                transcript.add(std::string(name) +
                               (RunLoop::main()->isCurrent() ? " on main" : " elsewhere"));
            });
        }
    });
    other.join();
    mainQueue()->async([&] { RunLoop::main()->stop(); });
    RunLoop::main()->run();
    EXPECT_THAT(transcript.lines(), ElementsAre("first on main", "second on main"));
}
