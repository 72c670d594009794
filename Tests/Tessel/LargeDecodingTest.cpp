// Large values decode to the same whichever way they come.

#include <zem/Tessel/JSValueCoder.h>

#include <boost/describe.hpp>
#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace zem;

struct Part {
    std::string name;
    std::optional<std::int64_t> count;
    std::optional<double> share;
    std::optional<bool> whole;
    std::optional<std::map<std::string, std::string>> words;
    bool operator==(const Part&) const = default;
};
BOOST_DESCRIBE_STRUCT(Part, (), (name, count, share, whole, words))

} // namespace

template <>
inline constexpr bool tessel::isPacked<Part> = true;

namespace {

struct Whole {
    std::vector<Part> parts;
    bool operator==(const Whole&) const = default;
};
BOOST_DESCRIBE_STRUCT(Whole, (), (parts))

class LargeDecoding : public testing::TestWithParam<const char*> {
  protected:
    js::Context context = test::makeContext();
};

TEST_P(LargeDecoding, IsTheSameAsDecoding) {
    context.perform([](js::Scope& scope) {
        const js::Local value =
            scope
                .evaluate("({ parts: [{ name: 'first' }, " + std::string(GetParam()) + "] })",
                          "test.js")
                .value();
        const auto walked = tessel::decodeValue<Whole>(scope, value);
        const auto large = tessel::decodeLarge<Whole>(scope, value);
        EXPECT_EQ(large, walked);
    });
}

const char* const parts[] = {
    "{ name: 'a', count: 1, share: 2.5, whole: true, words: { a: 'b' } }",
    "{ name: 'a', count: null, share: null, whole: null, words: null }",
    "{ name: 'a', count: undefined, words: undefined }",
    "{ name: 'a', other: [undefined, () => {}, 7n] }",
    "{ name: '\\ud800 \\u0000 \\ud83d\\ude00' }",
    "{ name: 'a', count: 9007199254740993 }",
    "{ name: 'a', count: 9223372036854775807 }",
    "{ name: 'a', count: -9223372036854775808 }",
    "{ name: 'a', count: 2 ** 62 }",
    "{ name: 'a', share: 2 ** 62 }",
    "{ name: 'a', count: 1e3 }",
    "{ name: 'a', count: 1.5 }",
    "{ name: 'a', count: 1e300 }",
    "{ name: 'a', count: NaN }",
    "{ name: 'a', count: -0, share: -0 }",
    "{ name: 'a', share: 0.1 }",
    "{ name: 'a', share: 5e-324 }",
    "{ name: 'a', share: 1.7976931348623157e308 }",
    "{ name: 'a', share: Infinity }",
    "{ name: 'a', share: 'text' }",
    "{ name: 'a', count: () => {} }",
    "{ name: 'a', count: Symbol() }",
    "{ name: 'a', count: 7n }",
    "{ name: 'a', whole: 1 }",
    "{ name: 'a', words: { a: undefined } }",
    "{ name: 'a', words: { a: 1 } }",
    "{ name: 'a', words: [] }",
    "{ name: 'a', words: JSON.parse('{\"__proto__\":\"b\"}') }",
    "{ name: 'a', words: { '\\ud800': 'b' } }",
    "{ name: 'a', words: { '\\ufffd': 'a', '\\ud800': 'b', '\\udfff': 'c' } }",
    "{ name: 'a', words: { '\\ud800': 7 } }",
    "{ name: 'a', words: Object.defineProperty({}, 'b', { value: 'c' }) }",
    "{ name: 'a', words: new Proxy({ b: 'c' }, {}) }",
    "{ name: 'a', words: new Proxy(['c'], {}) }",
    "{ name: 'a', words: Object.fromEntries([...Array(9000).keys()].map((n) => [n, `${n}`])) }",
    "{ name: 'a', words: { toJSON: 'text' } }",
    "{ name: 'a', words: { toJSON() { return { a: 'b' }; } } }",
    "{ name: new String('a') }",
    "{ name: new Date(0) }",
    "{ toJSON() { return { name: 'a' }; } }",
    "new (class { get name() { return 'a'; } })()",
    "Object.create({ name: 'a' })",
    "Object.defineProperty({}, 'name', { value: 'a' })",
    "Object.assign(Object.create(null), { name: 'a' })",
    "new Proxy({ name: 'a' }, {})",
    "new Proxy({}, { get: (part, name) => name === 'name' ? 'a' : undefined })",
    "new Proxy({ name: 'a', count: 5 }, { ownKeys: () => [] })",
    "Object.assign(new Proxy([], {}), { name: 'a' })",
    "Object.defineProperty({ name: 'a' }, 'count', { value: 7 })",
    "{ name: 'a', record: { wide: [undefined, () => {}, 7n] } }",
    "{ name: 'a', toJSON() { throw 1; } }",
    "{ get name() { throw 1; } }",
    "{}",
    "null",
    "7",
    "[]",
};
INSTANTIATE_TEST_SUITE_P(Parts, LargeDecoding, testing::ValuesIn(parts));

// The rest of an array in either lane: before, between and after what the other lane reads.
TEST(LargeDecodingOfLists, KeepsTheOrderWhicheverWayEachElementComes) {
    const js::Context context = test::makeContext();
    context.perform([](js::Scope& scope) {
        for (const char* script :
             {"[plain('a'), odd('b'), odd('c'), plain('d'), plain('e'), odd('f')]",
              "[odd('a'), plain('b')]", "[]",
              "Array.from({ length: 3000 }, (_, n) => plain(`${n}`))",
              "new Proxy([plain('a'), odd('b'), plain('c')], {})", "[plain('a'), , plain('c')]",
              "new Array(2 ** 32 - 1)", "({ length: 1, 0: plain('a') })", "'text'", "null"}) {
            const js::Local value =
                scope
                    .evaluate("var plain = (name) => ({ name, count: 1 });"
                              "var odd = (name) => Object.assign(new Proxy([], {}), { name });"
                              "({ parts: " +
                                  std::string(script) + " })",
                              "test.js")
                    .value();
            EXPECT_EQ(tessel::decodeLarge<Whole>(scope, value),
                      tessel::decodeValue<Whole>(scope, value))
                << script;
        }
    });
}

TEST(LargeDecodingOfLists, TakesAProxyOfAListForOne) {
    const js::Context context = test::makeContext();
    context.perform([](js::Scope& scope) {
        const js::Local value =
            scope.evaluate("({ parts: new Proxy([{ name: 'a' }], {}) })", "test.js").value();
        EXPECT_EQ(tessel::decodeLarge<Whole>(scope, value).value().parts.at(0).name, "a");
        EXPECT_EQ(tessel::decodeValue<Whole>(scope, value).value().parts.at(0).name, "a");
    });
}

TEST(LargeDecodingOfLists, NamesThePlaceOfAMistake) {
    const js::Context context = test::makeContext();
    context.perform([](js::Scope& scope) {
        const js::Local value =
            scope.evaluate("({ parts: [{ name: 'a' }, { name: 7 }] })", "test.js").value();
        EXPECT_EQ(tessel::decodeLarge<Whole>(scope, value).error().description(),
                  "parts[1].name: expected a string, found a number");
    });
}

TEST(LargeDecodingOfLists, ReadsOfEachRecordItsFieldsOnceAndNothingElse) {
    const js::Context context = test::makeContext();
    context.perform([](js::Scope& scope) {
        const js::Local value =
            scope
                .evaluate("var reads = [];"
                          "({ parts: [new Proxy({ name: 'a', other: 1 }, {"
                          "    get(part, name) { reads.push(name); return part[name]; },"
                          "    ownKeys() { reads.push('all'); return []; } })] })",
                          "test.js")
                .value();
        EXPECT_EQ(tessel::decodeLarge<Whole>(scope, value)->parts.size(), 1u);
        EXPECT_EQ(scope.toText(scope.evaluate("`${reads}`", "test.js").value()),
                  "name,count,share,whole,words");
    });
}

TEST(LargeDecodingOfLists, RunsNoPromiseJobsInBetween) {
    const js::Context context = test::makeContext();
    context.perform([](js::Scope& scope) {
        const js::Local value =
            scope
                .evaluate("var jobs = 0;"
                          "var part = { get name() { Promise.resolve().then(() => ++jobs);"
                          "                          return `${jobs}`; } };"
                          "var odd = Object.assign(new Proxy([], {}), { name: 'odd' });"
                          "({ parts: [part, odd, part] })",
                          "test.js")
                .value();
        EXPECT_EQ(tessel::decodeLarge<Whole>(scope, value).value().parts.at(2).name, "0");
        EXPECT_EQ(scope.toNumber(scope.evaluate("jobs", "test.js").value()), 2);
    });
}

} // namespace
