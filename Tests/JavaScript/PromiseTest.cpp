// When promise jobs run, and who hears of rejections.

#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/Wait.h>
#include <string>
#include <vector>

namespace {

using zem::js::Arguments;
using zem::js::Context;
using zem::js::Exception;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;
using Lines = std::vector<std::string>;

class PromiseTest : public testing::Test {
  protected:
    PromiseTest() {
        test::setFunction(context, "say", 1,
                          [this](Scope& scope, Local, Arguments arguments) -> Result<Local> {
                              transcript.add(scope.describe(arguments[0]));
                              return scope.undefined();
                          });
    }

    test::Transcript transcript;
    const Context context = test::makeContext();
};

TEST_F(PromiseTest, JobsRunBeforeTheOutermostStepReturns) {
    context.perform([&](Scope& scope) {
        (void)scope.evaluate("Promise.resolve().then(() => say('job')).then(() => say('next'));"
                             "say('script')",
                             "");
        transcript.add("evaluated");
        const Local function =
            *scope.evaluate("(() => { Promise.resolve().then(() => say('job 2')) })", "");
        (void)scope.call(function);
        transcript.add("called");
        const Local object = *scope.evaluate(
            "({get value() { Promise.resolve().then(() => say('job 3')); return 1 }})", "");
        (void)scope.get(object, "value");
        transcript.add("read");
    });
    EXPECT_EQ(transcript.lines(),
              (Lines{"script", "job", "next", "evaluated", "job 2", "called", "job 3", "read"}));
}

TEST_F(PromiseTest, JobsOfANestedStepWaitForTheOutermost) {
    test::setFunction(
        context, "nested", 0, [this](Scope& scope, Local, Arguments) -> Result<Local> {
            (void)scope.evaluate("Promise.resolve().then(() => say('job'))", "");
            transcript.add("nested step returned");
            // Nor does another entry drain them.
            scope.context().perform([](Scope& inner) { (void)inner.evaluate("say('inner')", ""); });
            transcript.add("nested entry returned");
            return scope.undefined();
        });
    context.perform([&](Scope& scope) {
        (void)scope.evaluate("nested(); say('after nested')", "");
        transcript.add("outermost step returned");
    });
    EXPECT_EQ(transcript.lines(), (Lines{"nested step returned", "inner", "nested entry returned",
                                         "after nested", "job", "outermost step returned"}));
}

TEST_F(PromiseTest, RejectionsWithoutAHandlerAreHeardOnceTheJobsHaveRun) {
    ASSERT_TRUE(context.setRejectionHandler([this](Scope&, const Exception& reason) {
        transcript.add("unhandled: " + reason.text());
    }));
    test::evaluate(context, "Promise.reject(new Error('alone'));"
                            "Promise.reject('caught').catch(() => say('caught'));"
                            "const late = Promise.reject('late');"
                            "Promise.resolve().then(() => late.catch(() => say('caught late')));"
                            "(async () => { throw new TypeError('async') })();"
                            "say('script')");
    EXPECT_EQ(transcript.lines(),
              (Lines{"script", "caught", "caught late", "unhandled: Error: alone",
                     "unhandled: TypeError: async"}));
}

TEST_F(PromiseTest, TheRejectionHandlerIsReplacedAndTakenAway) {
    ASSERT_TRUE(
        context.setRejectionHandler([this](Scope&, const Exception&) { transcript.add("first"); }));
    ASSERT_TRUE(context.setRejectionHandler(
        [this](Scope&, const Exception&) { transcript.add("second"); }));
    test::evaluate(context, "Promise.reject(1); 0");
    ASSERT_TRUE(context.setRejectionHandler(nullptr));
    test::evaluate(context, "Promise.reject(1); 0");
    EXPECT_EQ(transcript.lines(), Lines{"second"});
}

TEST_F(PromiseTest, TheRejectionHandlerMayRunJavaScript) {
    ASSERT_TRUE(context.setRejectionHandler([this](Scope& scope, const Exception& reason) {
        (void)scope.evaluate("say('from the handler')", "");
        EXPECT_TRUE(context.isEntered());
        transcript.add(reason.place());
    }));
    test::evaluate(context, "\n  Promise.reject(new Error('x'))");
    EXPECT_EQ(transcript.lines(), (Lines{"from the handler", "test.js:2:27"}));
}

} // namespace
