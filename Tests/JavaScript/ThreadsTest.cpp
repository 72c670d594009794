// The law about threads, as far as the engine is concerned.

#include <zem/JavaScript/Context.h>
#include <zem/Platform/Mutex.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
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

// The engine's lock is dropped while a native callback runs, so inline another thread's JavaScript
// runs in the middle of it. Bound to a thread it cannot.
TEST(Threads, ACallbackIsNotExclusiveInline) {
    const Context context = test::makeContext();
    test::Transcript transcript;
    test::setFunction(context, "callback", 0, [&](Scope& scope, Local, Arguments) -> Result<Local> {
        transcript.add("callback begins");
        std::thread([&] {
            context.async([&](Scope& other) {
                transcript.add(other.toText(*other.evaluate("'other ' + 'thread'", "")));
            });
        }).join();
        transcript.add("callback ends");
        return scope.undefined();
    });
    test::evaluate(context, "callback()");
    context.perform([](Scope&) {});
    EXPECT_EQ(transcript.lines(),
              test::engineEntry == test::EngineEntry::bound
                  ? (Lines{"callback begins", "callback ends", "other thread"})
                  : (Lines{"callback begins", "other thread", "callback ends"}));
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
