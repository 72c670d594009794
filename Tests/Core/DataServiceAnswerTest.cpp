// The results that callers get for the runtime's answers, however odd these are.

#include <gtest/gtest.h>

#include <Core/ServiceCalls.h>
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using test::Results;
using Lines = std::vector<std::string>;

class DataServiceAnswer : public test::ServiceCallTest {
  protected:
    DataServiceAnswer() {
        runtime.run(R"js(
            var cycle = (object = {}) => Object.assign(object, { self: object });
            var deep = (levels) => {
                let made = {};
                while (--levels !== 0) made = { in: made };
                return made;
            };
            var networkError = { errorType: "networkAdapterError", message: "timeout" };
        )js");
    }

    /// How many lines of the runtime begin like this.
    long count(const std::string& beginning) {
        return std::ranges::count_if(runtime.calls.lines(), [&](const std::string& line) {
            return line.starts_with(beginning + "(") || line.starts_with(beginning + ": ");
        });
    }

    /// The text that a caller hears of an answer.
    std::string heardOf(const std::string& answer) {
        runtime.run("callbacks = []");
        Results heard;
        const auto service = runtime.service();
        const int before = static_cast<int>(runtime.calls.lines().size());
        const Unsubscribe end = ask(*service, heard.callback());
        runtime.calls.wait(before + 1);
        runtime.answer(0, answer);
        const Lines lines = heard.wait(1);
        end();
        runtime.expectAllSlotsFree();
        EXPECT_EQ(heard.lines(), lines);
        return lines.front();
    }
};

TEST_P(DataServiceAnswer, WithoutDataAndErrorSaysNothing) {
    for (const char* answer :
         {"", "undefined", "null", "5", "NaN", "true", "'text'", "''", "1n", "Symbol('s')", "[]",
          "[{ data: {} }]", "() => ({ data: {} })", "new Date(0)", "({ toJSON() { return 5 } })",
          "({ toJSON() { return undefined } })", "({ toJSON() { throw new Error('no') } })",
          "new Proxy({}, { ownKeys() { throw new Error('no') } })",
          // An object, but without data and without an error that could be read.
          "({})", "({ data: 5 })", "({ data: [] })", "({ data: null, error: null })",
          "({ error: 5 })", "({ errors: false })", "({ error: undefined })",
          // An error without a text, and "errors" counts only where there is no "error".
          "({ error: { n: 1n } })", "({ error: 1n, errors: 'not asked' })",
          "({ get error() { throw new Error('no') }, errors: 'not asked' })",
          // The whole has no text, and nothing in it is read by itself.
          "({ n: 1n })", "({ n: 1n, data: 5 })", "({ n: 1n, data: [cycle()] })",
          "({ n: 1n, data: () => {} })", "({ n: 1n, data: { toJSON() { return 5 } } })",
          "({ n: 1n, data: { toJSON() {} } })", "({ n: 1n, error: { n: 1n } })",
          "({ n: 1n, error: 5 })", "({ n: 1n, error: null, errors: 'not asked' })",
          "({ n: 1n, errors: cycle() })",
          "({ n: 1n, error: { n: 1n, errorType: 'other', message: 'm' } })",
          "({ n: 1n, error: { n: 1n, errorType: 'networkAdapterError', message: 5 } })",
          "({ n: 1n, error: { n: 1n, get errorType() { throw 1 }, message: 'm' } })",
          // Inherited properties, and those that are not enumerable, are no part of an answer.
          "Object.defineProperty({ n: 1n }, 'error', { value: 'hidden' })",
          "Object.assign(Object.create({ error: 'inherited' }), { n: 1n })"}) {
        EXPECT_EQ(heardOf(answer), GetParam().nothing) << answer;
    }
}

TEST_P(DataServiceAnswer, IsReadByPartsWhereTheWholeHasNoText) {
    const std::pair<const char*, const char*> answers[] = {
        {"({ error: 'refused', request: cycle() })", "executeAdapter error - refused"},
        {"({ error: 'refused', count: 1n })", "executeAdapter error - refused"},
        {"({ error: 'refused', get request() { throw new Error('no') } })",
         "executeAdapter error - refused"},
        {"({ error: 'refused', toJSON() { throw new Error('no') } })",
         "executeAdapter error - refused"},
        {"({ error: 'refused', toJSON() {} })", "executeAdapter error - refused"},
        {"cycle({ errors: [{ code: 4 }] })", R"(executeAdapter error - [{"code":4}])"},
        {"cycle({ error: { code: 4 }, errors: 'not asked' })",
         R"(executeAdapter error - {"code":4})"},
        {"cycle({ error: networkError })", "executeAdapter error - Network error: timeout"},
        {"({ error: cycle({ ...networkError }) })",
         "executeAdapter error - Network error: timeout"},
        {"cycle({ data: { n: 2.5, s: '\\u{1F600}' }, error: 'no' })",
         "{\"n\":2.5,\"s\":\"\xF0\x9F\x98\x80\"}"},
        {"cycle({ data: [cycle()], error: 'refused' })", "executeAdapter error - refused"},
        {"cycle({ data: 1n, error: 'refused' })", "executeAdapter error - refused"},
        {"cycle({ data: undefined, error: undefined, errors: 'refused' })",
         "executeAdapter error - refused"},
    };
    for (const auto& [answer, heard] : answers) {
        EXPECT_EQ(heardOf(answer), heard) << answer;
    }
}

TEST_P(DataServiceAnswer, IsReadByPartsWhereTheWholeIsTooDeep) {
    const std::pair<const char*, const char*> answers[] = {
        // The answer itself is the first level.
        {"({ data: deep(511), error: 'no' }).data && { data: { in: 1 }, request: deep(511) }",
         R"({"in":1})"},
        {"({ request: deep(512), error: 'refused' })", "executeAdapter error - refused"},
        {"({ 'a\"{[': '\\\\\"]}', request: deep(512), data: { s: '{[,' } })", R"({"s":"{[,"})"},
        {"({ data: 5, errors: 7, error: { code: 4 }, request: deep(512) })",
         R"(executeAdapter error - {"code":4})"},
        {"({ request: [deep(512)], error: { ...networkError, request: deep(513) } })",
         "executeAdapter error - Network error: timeout"},
        {"({ dataset: 1, request: deep(600), errors: ['refused'] })",
         R"(executeAdapter error - ["refused"])"},
    };
    for (const auto& [answer, heard] : answers) {
        EXPECT_EQ(heardOf(answer), heard) << answer;
    }
    // An error that is too deep says nothing that could be handed on.
    for (const char* answer :
         {"({ error: { in: deep(512) }, errors: 'not asked' })",
          "({ request: deep(512), data: [deep(512)], error: 5 })", "[deep(512)]"}) {
        EXPECT_EQ(heardOf(answer), GetParam().nothing) << answer;
    }
}

TEST_P(DataServiceAnswer, WithDataThatCannotBeCarriedOverIsAFailure) {
    const std::string failure = "executeAdapter error - the answer's data cannot be carried over: ";
    const std::pair<const char*, const char*> answers[] = {
        {"({ data: cycle() })", "TypeError: JSON.stringify cannot serialize cyclic structures."},
        {"({ data: { n: 1n } })", "TypeError: JSON.stringify cannot serialize BigInt."},
        {"({ data: { get inner() { throw new Error('no') } } })", "Error: no"},
        {"({ data: { toJSON() { throw new Error('no') } }, error: 'refused' })", "Error: no"},
        {"({ get data() { throw new Error('no') } })", "Error: no"},
        {"({ data: { in: deep(512) } })", "nested deeper than 512 levels"},
    };
    for (const auto& [answer, why] : answers) {
        EXPECT_EQ(heardOf(answer), failure + why) << answer;
    }
    // The deepest that is carried over.
    EXPECT_EQ(heardOf("({ data: deep(511) })").size(), 510 * 7 + 2);
    EXPECT_EQ(heardOf("({ data: deep(512) })").size(), 511 * 7 + 2);
}

TEST_P(DataServiceAnswer, IsIgnoredByACallThatHasOne) {
    const auto service = runtime.service();
    const Unsubscribe end = ask(*service, results.callback());
    runtime.calls.wait(1);
    test::evaluate(runtime.context, R"js(
        callbacks[0]({ data: { n: 1 } });
        callbacks[0]({ data: { n: 2 } });
        callbacks[0](5);
    )js");
    const Lines expected = GetParam().isSubscription
                               ? Lines{R"({"n":1})", R"({"n":2})", GetParam().nothing}
                               : Lines{R"({"n":1})"};
    EXPECT_EQ(results.wait(static_cast<int>(expected.size())), expected);
    end();
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), expected);
}

TEST_P(DataServiceAnswer, FromWithinAnAnswerIsOneOfTwo) {
    const auto service = runtime.service();
    const Unsubscribe end = ask(*service, results.callback());
    runtime.calls.wait(1);
    // The inner one is read first.
    test::evaluate(runtime.context, R"js(
        const answer = callbacks[0];
        answer({ get data() { answer({ data: { n: 1 } }); return { n: 2 }; } });
    )js");
    const Lines expected =
        GetParam().isSubscription ? Lines{R"({"n":1})", R"({"n":2})"} : Lines{R"({"n":1})"};
    EXPECT_EQ(results.wait(static_cast<int>(expected.size())), expected);
    end();
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), expected);
}

TEST_P(DataServiceAnswer, AfterTheEndIsSilence) {
    auto service = runtime.service();
    const Unsubscribe end = ask(*service, results.callback());
    runtime.calls.wait(1);
    test::evaluate(runtime.context, "var kept = callbacks[0]; kept({ data: {} });");
    results.wait(1);
    end();
    if (!GetParam().isSubscription) {
        service.reset();
    }
    test::evaluate(runtime.context, "kept({ data: { late: true } }); kept(5); kept();");
    runtime.expectAllSlotsFree();
    EXPECT_EQ(results.lines(), Lines{"{}"});
    EXPECT_EQ(ends(), GetParam().isSubscription ? 1 : 0);
}

TEST_P(DataServiceAnswer, IsNotReadWhenNobodyWillHearIt) {
    auto service = runtime.service();
    const Unsubscribe end = ask(*service, results.callback());
    runtime.calls.wait(1);
    runtime.run(R"js(
        var kept = callbacks[0];
        var watched = (name) => ({ data: { get n() { heard("read: " + name); return name; } } });
        kept(watched("first"));
    )js");
    results.wait(1);
    if (GetParam().isSubscription) {
        end();
    }
    runtime.run("kept(watched('late'))");
    const Unsubscribe other = ask(*service, results.callback());
    test::waitUntil("the second call", [&] { return count(GetParam().method) == 2; });
    test::destroy(service);
    runtime.run("callbacks[1](watched('of a service that is gone'))");
    other();
    runtime.expectAllSlotsFree();
    EXPECT_EQ(count("read"), 1);
    EXPECT_EQ(results.lines(), Lines{R"({"n":"first"})"});
}

INSTANTIATE_TEST_SUITE_P(, DataServiceAnswer, testing::ValuesIn(test::serviceCalls),
                         test::serviceCallName);

} // namespace
