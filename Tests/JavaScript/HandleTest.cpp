// Handles keep values and contexts alive, and are dropped anywhere, at any time.

#include <zem/JavaScript/Context.h>
#include <zem/Platform/RunLoop.h>

#include <gtest/gtest.h>

#include <JavaScript/Lives.h>
#include <Support/Engine.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using zem::js::Arguments;
using zem::js::Context;
using zem::js::Function;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;
using zem::js::Value;
using zem::platform::RunLoopThread;
using Lines = std::vector<std::string>;

Local makeFunction(Scope& scope, test::Lives& lives) {
    return scope.function("f", 0,
                          [life = lives.begin()](Scope& inner, Local, Arguments) -> Result<Local> {
                              return inner.undefined();
                          });
}

/// A global of the context: gone when the context is.
void setGlobal(const Context& context, test::Lives& lives) {
    context.perform(
        [&](Scope& scope) { (void)scope.set(scope.global(), "f", makeFunction(scope, lives)); });
}

TEST(Handle, KeepsItsValueThroughCollections) {
    const Context context = test::makeContext();
    std::vector<Value> held;
    for (int index = 0; index < 64; ++index) {
        held.push_back(context.perform([&](Scope& scope) {
            const Local object = scope.object();
            (void)scope.set(object, "index", scope.number(index));
            return scope.keep(object);
        }));
    }
    EXPECT_EQ(context.handleCount(), 64u);
    test::collectGarbage(context);
    context.perform([&](Scope& scope) {
        for (int index = 0; index < 64; ++index) {
            EXPECT_EQ(scope.toNumber(
                          *scope.get(scope.local(held[static_cast<std::size_t>(index)]), "index")),
                      index);
        }
    });
    held.clear();
    EXPECT_EQ(context.handleCount(), 0u);
}

TEST(Handle, LetsItsValueGoWithTheLastCopy) {
    const Context context = test::makeContext();
    test::Lives lives;
    constexpr int count = 64;
    std::vector<Value> held;
    test::performApart(context, [&](Scope& scope) {
        for (int index = 0; index < count; ++index) {
            held.push_back(scope.keep(makeFunction(scope, lives)));
        }
    });
    std::vector<Value> copies = held;
    held.clear();
    test::collectGarbage(context);
    EXPECT_EQ(lives.ended(), 0);
    test::performApart(context, [&](Scope&) { copies.clear(); });
    test::collectGarbage(context);
    EXPECT_EQ(lives.ended(), count);
}

TEST(Handle, KeptTwiceIsHeldUntilBothAreGone) {
    const Context context = test::makeContext();
    test::Lives lives;
    Value first;
    Value second;
    test::performApart(context, [&](Scope& scope) {
        const Local function = makeFunction(scope, lives);
        first = scope.keep(function);
        second = scope.keep(function);
    });
    test::performApart(context, [&](Scope&) { first.reset(); });
    test::collectGarbage(context);
    EXPECT_EQ(lives.ended(), 0);
    test::performApart(context, [&](Scope&) { second.reset(); });
    test::collectGarbage(context);
    EXPECT_EQ(lives.ended(), 1);
}

TEST(Handle, DroppedOnAnotherThreadDoesNotWaitForRunningJavaScript) {
    const Context context = test::makeContext();
    test::Transcript transcript;
    test::Event running("the script runs");
    std::atomic<bool> stop = false;
    std::atomic<int> asked = 0;
    ASSERT_TRUE(context.setInterruptHandler([&] {
        running.signal();
        // Given up after a while, so that a drop that does wait fails and does not hang.
        return stop.load() || ++asked > 600;
    }));
    Value held = context.perform([](Scope& scope) { return scope.keep(scope.object()); });
    std::thread other([&] {
        running.wait();
        held.reset();
        transcript.add("dropped");
        stop = true;
    });
    context.perform([&](Scope& scope) {
        (void)scope.evaluate("while (true) {}", "");
        transcript.add("stopped");
    });
    other.join();
    EXPECT_EQ(transcript.lines(), (Lines{"dropped", "stopped"}));
    EXPECT_EQ(context.handleCount(), 0u);
    ASSERT_TRUE(context.setInterruptHandler(nullptr));
}

TEST(Handle, DroppedOnAnotherThreadIsLetGoOfAtTheNextEntry) {
    const Context context = test::makeContext();
    test::Lives lives;
    Value held =
        context.perform([&](Scope& scope) { return scope.keep(makeFunction(scope, lives)); });
    std::thread([&] { held.reset(); }).join();
    EXPECT_EQ(context.handleCount(), 0u);
    test::collectGarbage(context);
    EXPECT_EQ(lives.ended(), 1);
}

TEST(Handle, IsCopiedAndDroppedOnManyThreadsAtOnce) {
    const Context context = test::makeContext();
    std::vector<Value> shared;
    context.perform([&](Scope& scope) {
        for (int index = 0; index < 100; ++index) {
            shared.push_back(scope.keep(scope.object()));
        }
    });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([own = shared]() mutable {
            for (int round = 0; round < 100; ++round) {
                std::vector<Value> copies = own;
                copies.clear();
            }
            own.clear();
        });
    }
    shared.clear();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(context.handleCount(), 0u);
    context.perform([](Scope& scope) { EXPECT_TRUE(scope.evaluate("1", "")); });
}

// --- The last reference to a context

enum class Last { context, value, function };
enum class Place { here, otherThread, inside };

class LastReference : public testing::TestWithParam<std::tuple<Last, Place>> {};

TEST_P(LastReference, IsDroppedAnywhere) {
    const auto [last, place] = GetParam();
    test::Lives lives;
    Context context = test::makeUncheckedContext();
    setGlobal(context, lives);
    Value value;
    Function function;
    context.perform([&, which = last](Scope& scope) {
        if (which == Last::value) {
            value = scope.keep(scope.object());
        } else if (which == Last::function) {
            function = *Function::from(scope, *scope.evaluate("() => 1", ""));
        }
    });
    if (last != Last::context) {
        context = {};
    }
    const auto drop = [&] {
        context = {};
        value.reset();
        function = {};
    };
    switch (place) {
    case Place::here:
        drop();
        break;
    case Place::otherThread:
        std::thread(drop).join();
        break;
    case Place::inside: {
        const Context inside = last == Last::context ? context
                               : last == Last::value ? value.context()
                                                     : function.context();
        // Moved into the work, so that nothing outside refers to the context any more.
        Context only = inside;
        only.perform([&](Scope&) { drop(); });
        break;
    }
    }
    lives.waitForEnd();
}

std::string caseName(const testing::TestParamInfo<std::tuple<Last, Place>>& info) {
    constexpr const char* lasts[] = {"Context", "Value", "Function"};
    constexpr const char* places[] = {"Here", "OnAnotherThread", "Inside"};
    return std::string(lasts[static_cast<int>(std::get<0>(info.param))]) +
           places[static_cast<int>(std::get<1>(info.param))];
}

INSTANTIATE_TEST_SUITE_P(
    All, LastReference,
    testing::Combine(testing::Values(Last::context, Last::value, Last::function),
                     testing::Values(Place::here, Place::otherThread, Place::inside)),
    caseName);

TEST(Handle, StillWorksAfterTheApplicationLetItsContextGo) {
    Function function;
    {
        const Context context = test::makeUncheckedContext();
        function = context.perform([](Scope& scope) {
            return *Function::from(scope, *scope.evaluate("let n = 0; () => ++n", ""));
        });
    }
    for (int expected = 1; expected <= 3; ++expected) {
        EXPECT_EQ(function.context().perform(
                      [&](Scope& scope) { return scope.toNumber(*function.call(scope)); }),
                  expected);
    }
    EXPECT_EQ(function.context().handleCount(), 1u);
}

TEST(Handle, IsDroppedAfterTheContextsThreadHasEnded) {
    test::Lives lives;
    auto home = std::make_unique<RunLoopThread>("home");
    Context context = Context::create(home->runLoop());
    setGlobal(context, lives);
    Value value = context.perform([](Scope& scope) { return scope.keep(scope.object()); });
    home.reset();
    EXPECT_EQ(context.handleCount(), 1u);
    value.reset();
    EXPECT_EQ(context.handleCount(), 0u);
    EXPECT_EQ(lives.ended(), 0);
    std::thread([last = std::move(context)]() mutable { last = {}; }).join();
    EXPECT_EQ(lives.ended(), 1);
}

TEST(Handle, IsDroppedWithTheWorkThatItsThreadNeverRan) {
    test::Lives lives;
    auto home = std::make_unique<RunLoopThread>("home");
    {
        const Context context = Context::create(home->runLoop());
        setGlobal(context, lives);
        Value value = context.perform([](Scope& scope) { return scope.keep(scope.object()); });
        context.async([&home, value = std::move(value)](Scope& scope) mutable {
            home.reset();
            scope.context().async([value = std::move(value)](Scope&) { FAIL() << "it ran"; });
        });
    }
    lives.waitForEnd();
}

// A closure may hold handles, as long as none of them leads back to its function.
TEST(Handle, InAClosureGoesWithIt) {
    const Context context = test::makeContext();
    test::Lives lives;
    context.perform([&](Scope& scope) {
        (void)scope.function(
            "holder", 0,
            [held = scope.keep(makeFunction(scope, lives))](
                Scope& inner, Local, Arguments) -> Result<Local> { return inner.local(held); });
    });
    EXPECT_EQ(context.handleCount(), 1u);
    // The first collection takes the holder, the second what it held.
    test::collectGarbage(context);
    EXPECT_EQ(context.handleCount(), 0u);
    test::collectGarbage(context);
    EXPECT_EQ(lives.ended(), 1);
}

} // namespace
