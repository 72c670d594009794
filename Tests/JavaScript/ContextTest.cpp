// The one door: performing work inside the engine, here and on the thread that a context is bound
// to.

#include <zem/JavaScript/Context.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/RunLoop.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using zem::js::Arguments;
using zem::js::Context;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;
using zem::platform::RunLoopThread;
using Lines = std::vector<std::string>;

TEST(Context, GivesBackWhatTheWorkGives) {
    const Context context = test::makeContext();
    EXPECT_EQ(
        context.perform([](Scope& scope) { return scope.toNumber(*scope.evaluate("6 * 7", "")); }),
        42);
    EXPECT_EQ(*context.perform([](Scope&) { return std::make_unique<int>(5); }), 5);
    int runs = 0;
    context.perform([&](Scope&) { ++runs; });
    EXPECT_EQ(runs, 1);
}

TEST(Context, ThrowsWhatTheWorkThrows) {
    const Context context = test::makeContext();
    class Odd {};
    EXPECT_THROW(context.perform([](Scope&) { throw std::out_of_range("far"); }),
                 std::out_of_range);
    EXPECT_THROW(context.perform([](Scope&) -> int { throw Odd(); }), Odd);
    EXPECT_FALSE(context.isEntered());
    test::expectEval(context, "1 + 1", "number", "2");
}

TEST(Context, IsEnteredAgainFromInside) {
    const Context context = test::makeContext();
    EXPECT_FALSE(context.isEntered());
    const double answer = context.perform([&](Scope&) {
        EXPECT_TRUE(context.isEntered());
        return context.perform([&](Scope& inner) {
            EXPECT_TRUE(context.isEntered());
            return inner.toNumber(*inner.evaluate("7", ""));
        });
    });
    EXPECT_EQ(answer, 7);
    EXPECT_FALSE(context.isEntered());
}

TEST(Context, IsEnteredFromInsideAnother) {
    const Context one = test::makeContext();
    const Context other = test::makeContext();
    one.perform([&](Scope& scope) {
        EXPECT_FALSE(other.isEntered());
        const std::string text = other.perform([&](Scope& inner) {
            EXPECT_TRUE(one.isEntered());
            EXPECT_TRUE(inner.context() == other);
            return inner.toText(*inner.evaluate("globalThis.mark = 'other'", ""));
        });
        EXPECT_EQ(text, "other");
        EXPECT_TRUE(scope.context() == one);
        EXPECT_EQ(scope.kind(*scope.get(scope.global(), "mark")), zem::js::Kind::undefined);
    });
}

TEST(Context, IsEmptyUntilItRefersToOne) {
    EXPECT_FALSE(Context());
    const Context context = test::makeContext();
    EXPECT_TRUE(context);
    const Context same = context;
    EXPECT_TRUE(same == context);
    EXPECT_FALSE(test::makeContext() == context);
}

// The work of all threads ends up on the context's thread, or on each one's own.
TEST(Context, RunsWorkOnItsThreadOrOnTheCallers) {
    const Context context = test::makeContext();
    const auto threadOfWork = [&] {
        return context.perform([](Scope&) { return std::this_thread::get_id(); });
    };
    const std::thread::id here = threadOfWork();
    std::thread::id there;
    std::thread::id other;
    std::thread thread([&] {
        there = threadOfWork();
        other = std::this_thread::get_id();
    });
    thread.join();
    if (test::engineEntry == test::EngineEntry::bound) {
        EXPECT_NE(here, std::this_thread::get_id());
        EXPECT_EQ(there, here);
    } else {
        EXPECT_EQ(here, std::this_thread::get_id());
        EXPECT_EQ(there, other);
    }
}

TEST(Context, AsyncRunsInTheOrderOfTheCalls) {
    const Context context = test::makeContext();
    test::Transcript transcript;
    for (int call = 0; call < 5; ++call) {
        std::thread([&] {
            context.async([&, call](Scope& scope) {
                EXPECT_TRUE(context.isEntered());
                transcript.add(scope.describe(scope.number(call)));
            });
        }).join();
    }
    context.perform([&](Scope&) { transcript.add("performed"); });
    EXPECT_EQ(transcript.lines(), (Lines{"0", "1", "2", "3", "4", "performed"}));
}

TEST(Context, AsyncFromInsideRunsAtOnceInlineAndLaterWhenBound) {
    const Context context = test::makeContext();
    test::Transcript transcript;
    context.perform([&](Scope&) {
        context.async([&](Scope&) { transcript.add("async"); });
        transcript.add("performing");
    });
    context.perform([&](Scope&) { transcript.add("performed"); });
    EXPECT_EQ(transcript.lines(), test::engineEntry == test::EngineEntry::bound
                                      ? (Lines{"performing", "async", "performed"})
                                      : (Lines{"async", "performing", "performed"}));
}

// --- Bound to a thread of its own, however this run enters

TEST(BoundContext, WaitsItsTurnFirstComeFirstServed) {
    const RunLoopThread home("home");
    const Context context = Context::create(home.runLoop());
    test::Transcript transcript;
    test::Event open("the gate opens");
    context.async([&](Scope&) {
        open.wait();
        transcript.add("gate");
    });
    std::vector<std::thread> threads;
    for (int call = 0; call < 4; ++call) {
        // Each is known to be in line before the next is: what it posts just before it is heard of.
        std::thread([&] {
            context.async([&, call](Scope&) { transcript.add("async " + std::to_string(call)); });
        }).join();
    }
    std::thread last([&] { context.perform([&](Scope&) { transcript.add("perform"); }); });
    open.signal();
    last.join();
    EXPECT_EQ(transcript.lines(),
              (Lines{"gate", "async 0", "async 1", "async 2", "async 3", "perform"}));
}

TEST(BoundContext, PerformsAtOnceOnItsOwnThread) {
    const RunLoopThread home("home");
    const Context context = Context::create(home.runLoop());
    test::Transcript transcript;
    home.runLoop()->perform([&] {
        context.perform([&](Scope& scope) {
            transcript.add(scope.describe(scope.number(1)));
            context.perform([&](Scope&) { transcript.add("nested"); });
        });
        transcript.add("after");
    });
    context.perform([](Scope&) {});
    EXPECT_EQ(transcript.lines(), (Lines{"1", "nested", "after"}));
}

TEST(BoundContext, IsMadeAtOnceOnItsOwnThread) {
    const RunLoopThread home("home");
    test::Arrival<std::string> made("a context made on its own thread");
    home.runLoop()->perform([&] {
        const Context context = Context::create(home.runLoop());
        made.put(context.perform(
            [](Scope& scope) { return scope.toText(*scope.evaluate("'made'", "")); }));
    });
    EXPECT_EQ(made.get(), "made");
}

TEST(BoundContext, KeepsManyWaitingThreadsApart) {
    const RunLoopThread home("home");
    const Context context = Context::create(home.runLoop());
    context.perform([](Scope& scope) { (void)scope.evaluate("var sum = 0", ""); });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                context.perform([](Scope& scope) {
                    // Two steps that only one thread at a time may be between.
                    const Local sum = *scope.get(scope.global(), "sum");
                    (void)scope.set(scope.global(), "sum", scope.number(scope.toNumber(sum) + 1));
                });
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(context.perform(
                  [](Scope& scope) { return scope.toNumber(*scope.get(scope.global(), "sum")); }),
              1600);
}

TEST(BoundContext, WhoseThreadHasEndedRefusesWork) {
    auto home = std::make_unique<RunLoopThread>("home");
    const std::shared_ptr<zem::platform::RunLoop> loop = home->runLoop();
    const Context context = Context::create(loop);
    home.reset();
    const auto performing = [&] {
        context.perform([](Scope&) { FAIL() << "it ran"; });
    };
    EXPECT_THROW(performing(), std::runtime_error);
    // A new thread is none of its business either, even where the system gives it the old one's
    // identity.
    for (int attempt = 0; attempt < 8; ++attempt) {
        std::thread([&] { EXPECT_THROW(performing(), std::runtime_error); }).join();
    }
    EXPECT_THROW((void)Context::create(loop), std::runtime_error);

    auto token = std::make_shared<int>(0);
    const std::weak_ptr<int> alive = token;
    context.async([token = std::move(token)](Scope&) { FAIL() << "it ran"; });
    EXPECT_TRUE(alive.expired());
}

TEST(BoundContext, WaitingWorkIsRefusedWhenTheThreadEndsFirst) {
    auto home = std::make_unique<RunLoopThread>("home");
    const Context context = Context::create(home->runLoop());
    // Ends the thread, and posts to it after that.
    context.async([&](Scope&) {
        home.reset();
        context.async([](Scope&) { FAIL() << "it ran"; });
    });
    // Either in line before the end, or refused: never left waiting.
    bool ran = false;
    try {
        context.perform([&](Scope&) { ran = true; });
        EXPECT_TRUE(ran);
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "the thread that the context is bound to has ended");
        EXPECT_FALSE(ran);
    }
}

// The engine's own timers and what it finishes later have one home.
TEST(BoundContext, RunsTheEnginesLateCallbacksOnItsThread) {
    test::Arrival<bool> finalised("the finalisation callback");
    const RunLoopThread home("home");
    const Context context = Context::create(home.runLoop());
    context.perform([&](Scope& scope) {
        (void)scope.set(
            scope.global(), "heard",
            scope.function("heard", 1, [&](Scope& inner, Local, Arguments) -> Result<Local> {
                finalised.put(home.runLoop()->isCurrent());
                return inner.undefined();
            }));
        (void)scope.evaluate("var registry = new FinalizationRegistry(heard);"
                             "for (let i = 0; i < 100; ++i) registry.register({}, i); 0",
                             "");
    });
    context.collectGarbage();
    EXPECT_TRUE(finalised.get());
    // After all of them.
    context.perform([](Scope&) {});
}

} // namespace
