// What the engine collects: native functions, their closures, and the order of it all.

#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/Wait.h>
#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using zem::js::Arguments;
using zem::js::Context;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;
using Lines = std::vector<std::string>;

/// Counts the closures that are alive.
class Counted {
  public:
    explicit Counted(std::atomic<int>& alive)
        : alive(&alive) {
        ++alive;
    }
    Counted(Counted&& other) noexcept
        : alive(std::exchange(other.alive, nullptr)) {}
    ~Counted() {
        if (alive != nullptr) {
            --*alive;
        }
    }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    Counted& operator=(Counted&&) = delete;

  private:
    std::atomic<int>* alive;
};

void makeFunctions(const Context& context, int count, std::atomic<int>& alive) {
    context.perform([&](Scope& scope) {
        for (int index = 0; index < count; ++index) {
            (void)scope.function(
                "f", 0,
                [counted = Counted(alive)](Scope& inner, Local, Arguments) -> Result<Local> {
                    return inner.undefined();
                });
        }
    });
}

TEST(Collection, TakesTheClosuresOfFunctionsThatNobodyHolds) {
    const Context context = test::makeContext();
    std::atomic<int> alive = 0;
    makeFunctions(context, 1000, alive);
    test::collectGarbage(context);
    EXPECT_EQ(alive, 0);
}

TEST(Collection, LeavesFunctionsThatJavaScriptHolds) {
    const Context context = test::makeContext();
    std::atomic<int> alive = 0;
    context.perform([&](Scope& scope) {
        (void)scope.set(scope.global(), "held",
                        scope.function("held", 0,
                                       [counted = Counted(alive)](Scope& inner, Local, Arguments)
                                           -> Result<Local> { return inner.string("called"); }));
    });
    test::collectGarbage(context);
    EXPECT_EQ(alive, 1);
    test::expectEval(context, "held()", "string", "called");
    test::evaluate(context, "held = undefined");
    test::collectGarbage(context);
    EXPECT_EQ(alive, 0);
}

// A long script makes and drops them without ever leaving the engine.
TEST(Collection, HappensWhileAScriptRuns) {
    const Context context = test::makeContext();
    std::atomic<int> alive = 0;
    test::setFunction(context, "make", 0, [&](Scope& scope, Local, Arguments) -> Result<Local> {
        return scope.function(
            "made", 0, [counted = Counted(alive)](Scope& inner, Local, Arguments) -> Result<Local> {
                return inner.undefined();
            });
    });
    test::setFunction(context, "collect", 0, [&](Scope& scope, Local, Arguments) -> Result<Local> {
        scope.context().collectGarbage();
        return scope.number(alive.load());
    });
    // What the script's own frames still point at may be a few.
    test::expectEval(context, "for (let i = 0; i < 10000; ++i) make(); collect() < 100", "boolean",
                     "true");
    test::evaluate(context, "make = undefined");
    test::collectGarbage(context);
    EXPECT_EQ(alive, 0);
}

TEST(Collection, OfAHundredThousandFunctionsLeavesNone) {
    const Context context = test::makeContext();
    std::atomic<int> alive = 0;
    for (int round = 0; round < 10; ++round) {
        makeFunctions(context, 10'000, alive);
        test::collectGarbage(context);
        EXPECT_EQ(alive, 0) << round;
    }
}

// A closure's destructor may do what it likes, the engine included: it does not run in the middle
// of the collection.
TEST(Collection, IsOverWhenClosuresAreDestroyed) {
    const Context context = test::makeContext();
    test::Transcript transcript;
    struct Last {
        const Context& context;
        test::Transcript& transcript;
        bool moved = false;
        Last(const Context& context, test::Transcript& transcript)
            : context(context)
            , transcript(transcript) {}
        Last(Last&& other) noexcept
            : context(other.context)
            , transcript(other.transcript) {
            other.moved = true;
        }
        ~Last() {
            if (!moved) {
                transcript.add(context.perform([](Scope& scope) {
                    return scope.toText(
                        *scope.evaluate("[...Array(1000).keys()].map(n => ({n})).length + ''", ""));
                }));
            }
        }
    };
    context.perform([&](Scope& scope) {
        (void)scope.function(
            "f", 0,
            [last = Last(context, transcript)](Scope& inner, Local, Arguments) -> Result<Local> {
                return inner.undefined();
            });
    });
    test::collectGarbage(context);
    EXPECT_EQ(transcript.lines(), Lines{"1000"});
}

TEST(Collection, OfAContextTakesAllItsClosures) {
    std::atomic<int> alive = 0;
    {
        const Context context = test::makeUncheckedContext();
        makeFunctions(context, 100, alive);
        context.perform([&](Scope& scope) {
            (void)scope.set(scope.global(), "held",
                            scope.function("held", 0,
                                           [counted = Counted(alive)](Scope& inner, Local,
                                                                      Arguments) -> Result<Local> {
                                               return inner.undefined();
                                           }));
        });
    }
    if (const auto loop = test::engineRunLoop()) {
        test::Event passed("the engine's thread has let go");
        loop->perform([&] { passed.signal(); });
        passed.wait();
    }
    EXPECT_EQ(alive, 0);
}

} // namespace
