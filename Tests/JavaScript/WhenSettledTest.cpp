// Promises: the values that count as one, and hearing of its end.

#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Promise.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/Wait.h>
#include <string>
#include <vector>

namespace {

using namespace zem::js;
using Lines = std::vector<std::string>;

class WhenSettled : public testing::Test {
  protected:
    WhenSettled() {
        test::setFunction(context, "heard", 1, [this](Scope& scope, Local, Arguments arguments) {
            transcript.add(scope.describe(arguments[0]));
            return scope.undefined();
        });
    }

    SettledFunction adds(const std::string& name) {
        return [this, name](Scope& scope, Local value) {
            transcript.add(name + " " + scope.describe(value));
        };
    }

    /// The answer of `isPromise` for a script's value: "true", "false" or the exception's text.
    std::string isPromise(const std::string& script) {
        return context.perform([&](Scope& scope) {
            return textOf(zem::js::isPromise(scope, *scope.evaluate("(" + script + ")", "")));
        });
    }

    /// The answer of `whenSettled` for a script's value, in the same words.
    std::string follow(const std::string& script, SettledFunction rejected) {
        return context.perform([&](Scope& scope) {
            return textOf(whenSettled(scope, *scope.evaluate("(" + script + ")", ""),
                                      adds("fulfilled"), std::move(rejected)));
        });
    }
    std::string follow(const std::string& script) { return follow(script, adds("rejected")); }

    static std::string textOf(const Result<bool>& result) {
        return !result ? result.error().text() : *result ? "true" : "false";
    }

    test::Transcript transcript;
    const Context context = test::makeContext();
};

TEST_F(WhenSettled, TakesForAPromiseWhatHasAThen) {
    for (const char* value :
         {"Promise.resolve()", "{ then: 1 }", "{ then: undefined }", "{ get then() { throw 1; } }",
          "Object.assign(() => {}, { then: 1 })", "Object.assign([], { then: 1 })",
          "Object.create({ then: 1 })", "new Proxy({}, { has() { return true; } })"}) {
        EXPECT_EQ(isPromise(value), "true") << value;
    }
    for (const char* value : {"undefined", "null", "7", "'then'", "7n", "Symbol()", "{}", "[]",
                              "() => {}", "new Proxy({ then: 1 }, { has() { return false; } })"}) {
        EXPECT_EQ(isPromise(value), "false") << value;
    }
    EXPECT_EQ(isPromise("new Proxy({}, { has() { throw 'mine'; } })"), "mine");
}

TEST_F(WhenSettled, HearsOfTheEndOfAPromise) {
    EXPECT_EQ(follow("Promise.resolve('a')"), "true");
    EXPECT_EQ(follow("Promise.reject('b')"), "true");
    EXPECT_EQ(transcript.lines(), (Lines{"fulfilled a", "rejected b"}));
}

TEST_F(WhenSettled, ReadsThenOnceAndCallsItOnItsObjectWithOneArgumentFunctions) {
    EXPECT_EQ(follow("{ it: 'self', get then() { heard('read'); return function (...given) {"
                     "    heard(this.it + given.map((one) => ` ${one.name}/${one.length}`));"
                     "    given[0](); given[1]('x'); }; } }"),
              "true");
    EXPECT_EQ(follow("{ then(...given) { heard(given.length); } }", {}), "true");
    EXPECT_EQ(transcript.lines(), (Lines{"read", "self fulfilled/1, rejected/1",
                                         "fulfilled undefined", "rejected x", "1"}));
}

TEST_F(WhenSettled, CallsNothingWhereThereIsNoThen) {
    for (const char* value :
         {"undefined", "7", "'then'", "{}", "() => {}", "{ then: undefined }"}) {
        EXPECT_EQ(follow(value), "false") << value;
    }
    EXPECT_EQ(transcript.lines(), Lines{});
}

TEST_F(WhenSettled, FailsWithWhatGoesWrong) {
    EXPECT_EQ(follow("{ then: 1 }"), "TypeError: then: expected a function, found a number");
    EXPECT_EQ(follow("{ then: null }"), "TypeError: then: expected a function, found null");
    EXPECT_EQ(follow("{ get then() { throw 'read'; } }"), "read");
    EXPECT_EQ(follow("{ then(fulfilled) { fulfilled(1); throw 'called'; } }"), "called");
    EXPECT_EQ(transcript.lines(), Lines{"fulfilled 1"});
}

} // namespace
