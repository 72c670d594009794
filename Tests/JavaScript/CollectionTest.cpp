// Garbage collection of native functions and their closures, and its order.

#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <JavaScript/Lives.h>
#include <Support/Engine.h>
#include <Support/Wait.h>
#include <memory>
#include <string>
#include <vector>

namespace {

using zem::js::Arguments;
using zem::js::Context;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;

Local makeFunction(Scope& scope, test::Lives& lives) {
    return scope.function("f", 0,
                          [life = lives.begin()](Scope& inner, Local, Arguments) -> Result<Local> {
                              return inner.string("called");
                          });
}

void makeFunctions(const Context& context, int count, test::Lives& lives) {
    test::performApart(context, [&](Scope& scope) {
        for (int index = 0; index < count; ++index) {
            (void)makeFunction(scope, lives);
        }
    });
}

TEST(Collection, TakesTheClosuresOfFunctionsThatNobodyHolds) {
    const Context context = test::makeContext();
    test::Lives lives;
    makeFunctions(context, 1000, lives);
    test::collectGarbage(context);
    EXPECT_EQ(lives.alive(), 0);
}

TEST(Collection, LeavesFunctionsThatJavaScriptHolds) {
    const Context context = test::makeContext();
    test::Lives lives;
    test::performApart(context, [&](Scope& scope) {
        (void)scope.set(scope.global(), "held", makeFunction(scope, lives));
    });
    test::collectGarbage(context);
    EXPECT_EQ(lives.alive(), 1);
    test::expectEval(context, "held()", "string", "called");
    test::evaluate(context, "held = undefined");
    test::collectGarbage(context);
    EXPECT_EQ(lives.alive(), 0);
}

// A long script makes and drops them without ever leaving the engine.
TEST(Collection, HappensWhileAScriptRuns) {
    const Context context = test::makeContext();
    test::Lives lives;
    test::setFunction(context, "make", 0, [&](Scope& scope, Local, Arguments) -> Result<Local> {
        return makeFunction(scope, lives);
    });
    test::setFunction(context, "collect", 0, [&](Scope& scope, Local, Arguments) -> Result<Local> {
        scope.context().collectGarbage();
        return scope.number(lives.alive());
    });
    // A few functions may survive: the script's own frames still point at them.
    test::expectEval(context, "for (let i = 0; i < 10000; ++i) make(); collect() < 100", "boolean",
                     "true");
    test::evaluate(context, "make = undefined");
    test::collectGarbage(context);
    EXPECT_EQ(lives.alive(), 0);
}

TEST(Collection, OfAHundredThousandFunctionsLeavesNone) {
    const Context context = test::makeContext();
    test::Lives lives;
    for (int round = 0; round < 10; ++round) {
        makeFunctions(context, 10'000, lives);
        test::collectGarbage(context);
        EXPECT_EQ(lives.alive(), 0) << round;
    }
}

// A closure's destructor may do what it likes, the engine included: it does not run in the middle
// of the collection.
TEST(Collection, IsOverWhenClosuresAreDestroyed) {
    const Context context = test::makeContext();
    auto transcript = std::make_shared<test::Transcript>();
    const auto useTheEngine = [context, transcript](const int*) {
        transcript->add(context.perform([](Scope& scope) {
            return scope.toText(
                *scope.evaluate("[...Array(1000).keys()].map(n => ({n})).length + ''", ""));
        }));
    };
    test::performApart(context, [&](Scope& scope) {
        static const int any = 0;
        (void)scope.function(
            "f", 0,
            [last = std::unique_ptr<const int, decltype(useTheEngine)>(&any, useTheEngine)](
                Scope& inner, Local, Arguments) -> Result<Local> { return inner.undefined(); });
    });
    test::collectGarbage(context);
    EXPECT_EQ(transcript->lines(), std::vector<std::string>{"1000"});
}

TEST(Collection, OfAContextTakesAllItsClosures) {
    test::Lives lives;
    {
        const Context context = test::makeUncheckedContext();
        makeFunctions(context, 100, lives);
        context.perform([&](Scope& scope) {
            (void)scope.set(scope.global(), "held", makeFunction(scope, lives));
        });
    }
    if (const auto loop = test::engineRunLoop()) {
        test::Event passed("the engine's thread has let go");
        loop->perform([&] { passed.signal(); });
        passed.wait();
    }
    EXPECT_EQ(lives.alive(), 0);
}

} // namespace
