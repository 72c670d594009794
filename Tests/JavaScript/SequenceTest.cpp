#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
#include <string>
#include <thread>
#include <vector>

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

TEST(Sequence, NativeFunctionsRunBehindTheClosedDoor) {
    const Context context = test::makeContext();
    test::Event atTheDoor("another thread about to enter");
    test::Transcript transcript;
    std::thread other;
    test::setFunction(
        context, "meet", 0,
        [&](Scope& scope, zem::js::Local, zem::js::Arguments) -> zem::js::Result<zem::js::Local> {
            transcript.add("native function");
            other = std::thread([&] {
                atTheDoor.signal();
                context.perform([&](Scope&) { transcript.add("other thread"); });
            });
            atTheDoor.wait();
            test::letOthersIn(scope);
            return scope.string("met");
        });
    context.perform([&](Scope& scope) {
        const Sequence sequence(scope);
        EXPECT_EQ(scope.describe(scope.evaluate("meet()", "test.js").value()), "met");
        transcript.add("next step");
    });
    other.join();
    EXPECT_EQ(transcript.lines(),
              (std::vector<std::string>{"native function", "next step", "other thread"}));
}
