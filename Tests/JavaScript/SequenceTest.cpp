#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
#include <thread>

using zem::js::Context;
using zem::js::Scope;
using zem::js::Sequence;

TEST(Sequence, StepsDoWhatTheyDoAlone) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const Sequence sequence(scope);
        const auto value = scope.evaluate("({a: [1, 'x']})", "test.js");
        {
            const Sequence inner(scope);
            EXPECT_EQ(scope.stringify(*value).value(), R"({"a":[1,"x"]})");
        }
        EXPECT_EQ(scope.evaluate("throw new Error('x')", "test.js").error().text(), "Error: x");
    });
    test::expectEval(context, "1 + 1", "number", "2");
}

TEST(Sequence, PromiseJobsRunAtItsEnd) {
    const Context context = test::makeContext();
    test::evaluate(context, "var heard = [];");
    context.perform([](Scope& scope) {
        const auto heard = [&] {
            return scope.describe(scope.evaluate("heard.join()", "test.js").value());
        };
        {
            const Sequence sequence(scope);
            (void)scope.evaluate("Promise.resolve().then(() => heard.push('job'))", "test.js");
            EXPECT_EQ(heard(), "");
        }
        EXPECT_EQ(heard(), "job");
    });
}

TEST(Sequence, NativeFunctionsRunWithoutTheEnginesLock) {
    const Context context = test::makeContext();
    const bool inlineEntry = test::engineEntry == test::EngineEntry::inline_;
    test::setFunction(
        context, "meet", 0,
        [&](Scope& scope, zem::js::Local, zem::js::Arguments) -> zem::js::Result<zem::js::Local> {
            if (inlineEntry) {
                test::Event entered("another thread's script");
                std::thread other([&] {
                    test::evaluate(context, "1 + 1");
                    entered.signal();
                });
                entered.wait();
                other.join();
            }
            return scope.string("met");
        });
    context.perform([](Scope& scope) {
        const Sequence sequence(scope);
        EXPECT_EQ(scope.describe(scope.evaluate("meet()", "test.js").value()), "met");
    });
}
