#include <zem/Core/DataService.h>

#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <functional>
#include <string>
#include <vector>

namespace {

using namespace zem;
using test::ServiceRuntime;
using Lines = std::vector<std::string>;

/// Both setters, with the runtime's function of the same name.
struct Setter {
    const char* name;
    void (DataService::*set)(std::int64_t, std::function<void()>);
};

class DataServiceTTL : public testing::TestWithParam<Setter> {
  protected:
    void set(DataService& service, std::int64_t ttl) {
        (service.*GetParam().set)(ttl, [this] { transcript.add("completed"); });
        transcript.add("returned");
    }
    std::string name() const { return GetParam().name; }

    test::Transcript transcript;
    ServiceRuntime runtime;
};

TEST_P(DataServiceTTL, CallsTheRuntimeBeforeItReturnsAndCompletesWithoutAPromise) {
    const auto service = runtime.service();
    set(*service, 86400);
    EXPECT_EQ(runtime.calls.lines(), Lines{name() + "(86400)"});
    EXPECT_EQ(transcript.lines(), (Lines{"completed", "returned"}));
}

TEST_P(DataServiceTTL, CompletesWhenTheRuntimesPromiseIsFulfilled) {
    test::evaluate(runtime.context,
                   "on." + name() + " = () => new Promise((resolve) => { finish = resolve; });");
    const auto service = runtime.service();
    set(*service, -1);
    EXPECT_EQ(runtime.calls.lines(), Lines{name() + "(-1)"});
    EXPECT_EQ(transcript.lines(), Lines{"returned"});
    test::evaluate(runtime.context, "finish(5)");
    EXPECT_EQ(transcript.lines(), (Lines{"returned", "completed"}));
}

TEST_P(DataServiceTTL, GivesThenItsFunctionAndNothingElse) {
    test::evaluate(runtime.context, "on." + name() +
                                        " = () => ({ then(...values) {"
                                        "heard('then ' + values.map(show).join()); values[0]();"
                                        "values[0](); } });");
    const auto service = runtime.service();
    set(*service, 1);
    EXPECT_EQ(runtime.calls.lines(), (Lines{name() + "(1)", "then callback"}));
    EXPECT_EQ(transcript.lines(), (Lines{"completed", "returned"}));
}

TEST_P(DataServiceTTL, CompletesAtOnceForWhatIsNoPromise) {
    for (const char* answer :
         {"undefined", "null", "5", "'text'", "({})", "({ then: undefined })", "() => {}"}) {
        test::evaluate(runtime.context, "on." + name() + " = () => " + answer + ";");
        const auto service = runtime.service();
        set(*service, 1);
        EXPECT_EQ(transcript.lines(), (Lines{"completed", "returned"})) << answer;
        transcript.clear();
    }
}

TEST_P(DataServiceTTL, CompletesForWhateverHasAThen) {
    for (const char* answer :
         {"Object.assign(() => {}, { then(done) { done(); } })",
          "Object.assign([], { then(done) { done(); } })", "new (class { then(done) { done(); } })",
          "({ then(done) { done(); throw 'late'; } })"}) {
        test::evaluate(runtime.context, "on." + name() + " = () => (" + answer + ");");
        const auto service = runtime.service();
        set(*service, 1);
        EXPECT_EQ(transcript.lines(), (Lines{"completed", "returned"})) << answer;
        transcript.clear();
    }
    EXPECT_EQ(runtime.uncaught.lines(), Lines{"late"});
}

TEST_P(DataServiceTTL, NeverCompletesForAThenThatCannotBeCalled) {
    for (const char* answer : {"({ then: 1 })", "({ get then() { throw 'mine'; } })",
                               "({ then() { throw 'before'; } })"}) {
        test::evaluate(runtime.context, "on." + name() + " = () => " + answer + ";");
        const auto service = runtime.service();
        set(*service, 1);
    }
    EXPECT_EQ(transcript.lines(), Lines(3, "returned"));
    EXPECT_EQ(runtime.uncaught.lines(),
              (Lines{"TypeError: then: expected a function, found a number", "mine", "before"}));
}

TEST_P(DataServiceTTL, CompletesAtOnceForAProxyThatThrowsWhenAskedForAThen) {
    test::evaluate(runtime.context,
                   "on." + name() + " = () => new Proxy({}, { has() { throw 'mine'; } });");
    const auto service = runtime.service();
    set(*service, 1);
    EXPECT_EQ(transcript.lines(), (Lines{"completed", "returned"}));
    EXPECT_EQ(runtime.uncaught.lines(), Lines{"mine"});
}

TEST_P(DataServiceTTL, CompletesAtOnceWhenTheRuntimeThrows) {
    test::evaluate(runtime.context, "on." + name() + " = () => { throw new Error('no'); };");
    const auto service = runtime.service();
    set(*service, 1);
    EXPECT_EQ(transcript.lines(), (Lines{"completed", "returned"}));
    EXPECT_EQ(runtime.uncaught.lines(), Lines{"Error: no"});
}

TEST_P(DataServiceTTL, NeverCompletesForARejectedPromise) {
    test::evaluate(runtime.context, "on." + name() + " = () => Promise.reject(new Error('no'));");
    const auto service = runtime.service();
    set(*service, 1);
    EXPECT_EQ(transcript.lines(), Lines{"returned"});
}

INSTANTIATE_TEST_SUITE_P(
    , DataServiceTTL,
    testing::Values(Setter{"setRimvoRecordTTL", &DataService::setRimvoRecordTTL},
                    Setter{"setMetadataTTL", &DataService::setMetadataTTL}),
    [](const testing::TestParamInfo<Setter>& setter) { return setter.param.name; });

} // namespace
