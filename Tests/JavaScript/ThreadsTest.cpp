// The law about threads, as far as the engine is concerned.

#include <zem/JavaScript/Context.h>
#include <zem/Platform/Mutex.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using zem::js::Arguments;
using zem::js::Context;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;
using Lines = std::vector<std::string>;

// The engine drops its lock while a native callback runs. The door stays closed.
TEST(Threads, ACallbackIsAlone) {
    const Context context = test::makeContext();
    std::atomic<int> inside = 0;
    std::atomic<int> meetings = 0;
    test::setFunction(context, "callback", 0, [&](Scope& scope, Local, Arguments) -> Result<Local> {
        ++inside;
        test::letOthersIn(scope);
        --inside;
        return scope.undefined();
    });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 100; ++round) {
                context.perform([&](Scope& scope) {
                    meetings += inside;
                    EXPECT_TRUE(scope.evaluate("callback()", ""));
                    meetings += inside;
                });
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(meetings, 0);
}

// Several threads at the engine's own lock, with promise jobs due that call native functions, end
// in an abort or a hang of the engine.
TEST(Threads, ManyMayEnterWhilePromiseJobsCallNativeFunctions) {
    const Context context = test::makeContext();
    std::atomic<int> inside = 0;
    std::atomic<int> meetings = 0;
    std::atomic<int> calls = 0;
    test::setFunction(context, "native", 0, [&](Scope& scope, Local, Arguments) -> Result<Local> {
        meetings += inside++;
        ++calls;
        test::letOthersIn(scope);
        --inside;
        return scope.undefined();
    });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 100; ++round) {
                context.perform([&](Scope& scope) {
                    meetings += inside;
                    EXPECT_TRUE(scope.evaluate("Promise.resolve().then(native).then(native)", ""));
                });
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(calls, 4 * 100 * 2);
    EXPECT_EQ(meetings, 0);
}

TEST(Threads, ManyMayEnterAtOnce) {
    const Context context = test::makeContext();
    test::evaluate(context, "var calls = 0");
    test::setFunction(context, "count", 0, [](Scope& scope, Local, Arguments) -> Result<Local> {
        return scope.evaluate("++calls", "");
    });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 100; ++round) {
                context.perform([](Scope& scope) {
                    EXPECT_TRUE(scope.evaluate("for (let i = 0; i < 10; ++i) count()", ""));
                });
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    test::expectEval(context, "calls", "number", "4000");
}

// Promise jobs run on whichever thread made the outermost step.
TEST(Threads, PromiseJobsRunOnTheThreadOfTheOutermostStep) {
    const Context context = test::makeContext();
    test::Arrival<std::thread::id> job("the job's thread");
    test::setFunction(context, "job", 0, [&](Scope& scope, Local, Arguments) -> Result<Local> {
        job.put(std::this_thread::get_id());
        return scope.undefined();
    });
    std::thread::id made;
    std::thread([&] {
        context.perform([&](Scope& scope) {
            made = std::this_thread::get_id();
            (void)scope.evaluate("Promise.resolve().then(job)", "");
        });
    }).join();
    EXPECT_EQ(job.get(), made);
}

// The other thread waits for the function to return, and the function for the other thread.
TEST(ThreadsDeathTest, ANativeFunctionThatWaitsForAThreadAtTheDoorIsNamed) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Context context = test::makeContext();
    test::setFunction(context, "waiter", 0, [&](Scope& scope, Local, Arguments) -> Result<Local> {
        std::thread([&] { context.perform([](Scope&) {}); }).join();
        return scope.undefined();
    });
    EXPECT_DEATH(
        test::evaluate(context, "waiter()"),
        "zem: the native function \"waiter\" keeps the engine while another thread waits to "
        "enter it: a native function must not wait for another thread");
}

// However long it takes: on a busy machine that may be any time.
TEST(Threads, ANativeFunctionThatWorksWhileAThreadIsAtTheDoorIsLeftAlone) {
    const Context context = test::makeContext();
    std::thread other;
    test::setFunction(context, "worker", 0, [&](Scope& scope, Local, Arguments) -> Result<Local> {
        other = std::thread([&] { context.perform([](Scope&) {}); });
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(11);
        while (std::chrono::steady_clock::now() < end) {
        }
        return scope.undefined();
    });
    test::evaluate(context, "worker()");
    other.join();
}

// Not looked at in builds without assertions, which run no tests.
TEST(ThreadsDeathTest, NoLockIsHeldWhenTheEngineIsEntered) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const bool bound = test::engineEntry == test::EngineEntry::bound;
    const char* said = bound ? "zem: a lock is held while waiting for the engine's thread"
                             : "zem: a lock is held while entering the engine";
    const Context context = test::makeContext();
    zem::platform::Mutex mutex;
    EXPECT_DEATH(
        {
            const zem::platform::Lock lock(mutex);
            context.perform([](Scope&) {});
        },
        said);
}

TEST(ThreadsDeathTest, NorOnTheContextsOwnThread) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Context context = test::makeContext();
    zem::platform::Mutex mutex;
    EXPECT_DEATH(context.perform([&](Scope&) {
        const zem::platform::Lock lock(mutex);
        context.perform([](Scope&) {});
    }),
                 "zem: a lock is held while entering the engine");
}

TEST(ThreadsDeathTest, NorWhenJavaScriptIsCalledFromACallback) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Context context = test::makeContext();
    zem::platform::Mutex mutex;
    test::setFunction(context, "callback", 0, [&](Scope& scope, Local, Arguments) -> Result<Local> {
        const zem::platform::Lock lock(mutex);
        return scope.evaluate("1", "");
    });
    EXPECT_DEATH(test::evaluate(context, "callback()"),
                 "zem: a lock is held while running JavaScript");
}

} // namespace
