// A script that does not end by itself can be stopped, and the context goes on.

#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/Wait.h>
#include <atomic>
#include <memory>
#include <thread>

namespace {

using zem::js::Arguments;
using zem::js::Context;
using zem::js::Exception;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;

constexpr const char* stopped = "JavaScript execution terminated.";

TEST(Interrupt, StopsAnEndlessScript) {
    const Context context = test::makeContext();
    std::atomic<int> asked = 0;
    ASSERT_TRUE(context.setInterruptHandler([&] { return ++asked >= 3; }));
    test::expectEval(context, "while (true) {}", "exception", stopped);
    EXPECT_EQ(asked, 3);
    ASSERT_TRUE(context.setInterruptHandler(nullptr));
}

TEST(Interrupt, CannotBeCaughtAndLeavesTheContextUsable) {
    const Context context = test::makeContext();
    std::atomic<bool> stop = true;
    ASSERT_TRUE(context.setInterruptHandler([&] { return stop.load(); }));
    test::evaluate(context, "var caught = 0");
    for (int round = 0; round < 3; ++round) {
        test::expectEval(context,
                         "try { while (true) {} } catch (error) { caught = 1 } "
                         "finally { caught = 2 }",
                         "exception", stopped);
        test::expectEval(context, "caught", "number", "0");
        test::expectEval(context, "[1, 2, 3].map(n => n * 2)", "array", "[2,4,6]");
    }
    stop = false;
    test::expectEval(context, "let n = 0; for (let i = 0; i < 3e7; ++i) n = i; n", "number",
                     "29999999");
    ASSERT_TRUE(context.setInterruptHandler(nullptr));
}

TEST(Interrupt, StopsWhatAnotherThreadAsksToStop) {
    const Context context = test::makeContext();
    test::Event running("the script runs");
    std::atomic<bool> stop = false;
    ASSERT_TRUE(context.setInterruptHandler([&] {
        running.signal();
        return stop.load();
    }));
    std::thread other([&] {
        running.wait();
        stop = true;
    });
    test::expectEval(context, "for (;;);", "exception", stopped);
    other.join();
    ASSERT_TRUE(context.setInterruptHandler(nullptr));
}

TEST(Interrupt, StopsAnEndlessPromiseJob) {
    const Context context = test::makeContext();
    std::atomic<int> asked = 0;
    ASSERT_TRUE(context.setInterruptHandler([&] { return ++asked >= 2; }));
    context.perform([](Scope& scope) {
        (void)scope.evaluate("Promise.resolve().then(() => { while (true) {} }); 1", "");
    });
    EXPECT_EQ(asked, 2);
    ASSERT_TRUE(context.setInterruptHandler(nullptr));
    test::expectEval(context, "1 + 1", "number", "2");
}

TEST(Interrupt, CannotBeCaughtWhenItComesInANativeFunctionsStep) {
    const Context context = test::makeContext();
    std::atomic<int> asked = 0;
    ASSERT_TRUE(context.setInterruptHandler([&] {
        ++asked;
        return true;
    }));
    test::setFunction(context, "step", 1,
                      [&](Scope& scope, Local, Arguments arguments) -> Result<Local> {
                          while (asked == 0) {
                              const Result<Local> value = scope.get(arguments[0], "getter");
                              if (!value) {
                                  return value;
                              }
                          }
                          return scope.undefined();
                      });
    test::expectEval(context, "try { step({ get getter() { return 1 } }) } catch {} for (;;);",
                     "exception", stopped);
    EXPECT_EQ(asked, 1);
    ASSERT_TRUE(context.setInterruptHandler(nullptr));
}

TEST(Interrupt, TheHandlerIsReplaced) {
    const Context context = test::makeContext();
    ASSERT_TRUE(context.setInterruptHandler([] { return false; }));
    std::atomic<int> asked = 0;
    ASSERT_TRUE(context.setInterruptHandler([&] {
        ++asked;
        return true;
    }));
    test::expectEval(context, "while (true) {}", "exception", stopped);
    EXPECT_EQ(asked, 1);
    ASSERT_TRUE(context.setInterruptHandler(nullptr));
}

TEST(Interrupt, TheHandlerIsGoneWithItsContext) {
    auto token = std::make_shared<int>(0);
    const std::weak_ptr<int> alive = token;
    {
        const Context context = test::makeUncheckedContext();
        ASSERT_TRUE(context.setInterruptHandler([token = std::move(token)] { return true; }));
        test::expectEval(context, "while (true) {}", "exception", stopped);
    }
    if (const auto loop = test::engineRunLoop()) {
        test::Event passed("the engine's thread has let go");
        loop->perform([&] { passed.signal(); });
        passed.wait();
    }
    EXPECT_TRUE(alive.expired());
}

} // namespace
