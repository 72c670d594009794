#include <zem/Tessel/JSON.h>

#include <Tessel/Bridge.h>
#include <cmath>
#include <limits>
#include <map>
#include <vector>

using AnyCoding = test::Bridge;
using tessel::Any;

TEST_F(AnyCoding, ReadsWhatJSONHasAFormFor) {
    const struct {
        const char* script;
        Any value;
    } table[] = {
        {"null", nullptr},
        {"true", true},
        {"3", 3},
        {"-3", -3},
        {"2.5", 2.5},
        {"'x'", "x"},
        {"[]", boost::json::array()},
        {"({})", boost::json::object()},
        {"[1, [2, 'x'], {a: null}]", {1, {2, "x"}, boost::json::object{{"a", nullptr}}}},
    };
    for (const auto& row : table) {
        EXPECT_EQ(decoded<Any>(row.script).value(), row.value) << row.script;
    }
    EXPECT_TRUE(decoded<Any>("3").value().is_int64());
    EXPECT_TRUE(decoded<Any>("9007199254740993").value().is_int64());
    EXPECT_TRUE(decoded<Any>("2.5").value().is_double());
    EXPECT_TRUE(decoded<Any>("1e21").value().is_double());
}

TEST_F(AnyCoding, KeepsTheOrderOfKeys) {
    EXPECT_EQ(tessel::toText(decoded<Any>("({b: 1, a: {z: 1, y: 2}, c: 3})").value()),
              R"({"b":1,"a":{"z":1,"y":2},"c":3})");
}

TEST_F(AnyCoding, ReadsEachNumberExactly) {
    EXPECT_EQ(decoded<Any>("3725035257.9319997").value(), Any(3725035257.9319997));
    EXPECT_EQ(decoded<Any>("[5e-324]").value(),
              Any(boost::json::array{std::numeric_limits<double>::denorm_min()}));
    EXPECT_EQ(decoded<Any>("Number.MAX_VALUE").value(), Any(std::numeric_limits<double>::max()));
}

TEST_F(AnyCoding, FollowsTheRulesOfJSONTexts) {
    const struct {
        const char* script;
        const char* text;
    } table[] = {
        {"NaN", "null"},
        {"[Infinity, -Infinity]", "[null,null]"},
        {"-0", "0"},
        {"[undefined, () => 1, Symbol()]", "[null,null,null]"},
        {"[1, , 3]", "[1,null,3]"},
        {"({a: undefined, b() {}, c: 1})", R"({"c":1})"},
        {"new Date(0)", R"("1970-01-01T00:00:00.000Z")"},
        {"({toJSON() { return {a: 1}; }})", R"({"a":1})"},
        {"({a: {toJSON: (key) => key}})", R"({"a":"a"})"},
        {"new Map([[1, 2]])", "{}"},
        {"new Number(3)", "3"},
        {"new String('x')", R"("x")"},
        {"new Proxy([1, 2], {})", "[1,2]"},
        {"Object.create({inherited: 1})", "{}"},
        {"new Uint8Array([1, 2])", R"({"0":1,"1":2})"},
    };
    for (const auto& row : table) {
        const tessel::Decoded<Any> value = decoded<Any>(row.script);
        ASSERT_TRUE(value) << row.script << value.error().description();
        EXPECT_EQ(tessel::toText(*value), row.text) << row.script;
    }
}

TEST_F(AnyCoding, ReadsAnyText) {
    EXPECT_EQ(decoded<Any>(R"('a\0\u{1F600}"\\\n')").value(),
              Any(boost::json::string(std::string_view("a\0\xF0\x9F\x98\x80\"\\\n", 9))));
    EXPECT_EQ(decoded<Any>(R"(['\ud83d', '\ude00\ud83d', '\ud83d\ude00'])").value(),
              Any({"\xEF\xBF\xBD", "\xEF\xBF\xBD\xEF\xBF\xBD", "\xF0\x9F\x98\x80"}));
    EXPECT_EQ(decoded<Any>(R"('\\ud83d \ud83d')").value(), Any("\\ud83d \xEF\xBF\xBD"));
}

TEST_F(AnyCoding, WhatHasNoFormFails) {
    const struct {
        const char* script;
        const char* text;
    } table[] = {
        {"undefined", "expected a JSON value, found undefined"},
        {"(() => 1)", "expected a JSON value, found a function"},
        {"Symbol('private')", "expected a JSON value, found a symbol"},
        {"({toJSON() {}})", "expected a JSON value, found an object"},
        {"1n", "it cannot be written as JSON"},
        {"({a: [1n]})", "it cannot be written as JSON"},
        {"const circle = {}; circle.a = circle; circle", "it cannot be written as JSON"},
        {"({get a() { throw new Error('private'); }})", "it cannot be written as JSON"},
        {"({toJSON() { throw new Error('private'); }})", "it cannot be written as JSON"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(failure<Any>(row.script), row.text) << row.script;
    }
    EXPECT_EQ(eval("1 + 1"), "2");
}

TEST_F(AnyCoding, NestingIsBounded) {
    const std::string nest = "(levels) => { let v = 1; while (levels--) v = [v]; return v; }";
    EXPECT_TRUE(decoded<Any>("(" + nest + ")(512)"));
    EXPECT_EQ(failure<Any>("(" + nest + ")(513)"), "nested deeper than 512 levels");
    EXPECT_EQ(failure<std::vector<Any>>("[1, (" + nest + ")(513)]"),
              "[1]: nested deeper than 512 levels");
    EXPECT_EQ(failure<Any>("let objects = {}; for (let i = 0; i < 512; ++i) objects = {a: objects};"
                           "objects"),
              "nested deeper than 512 levels");
    const std::string stackful = failure<Any>("(" + nest + ")(100000)");
    EXPECT_TRUE(stackful == "nested deeper than 512 levels" ||
                stackful == "it cannot be written as JSON")
        << stackful;
}

TEST_F(AnyCoding, IsWrittenAsTheValueItHolds) {
    EXPECT_EQ(written(Any(nullptr), "value === null"), "true");
    EXPECT_EQ(written(Any(true), "value === true"), "true");
    EXPECT_EQ(written(Any(3), "value === 3"), "true");
    EXPECT_EQ(written(Any(2.5), "value === 2.5"), "true");
    EXPECT_EQ(written(Any("x"), "value === 'x'"), "true");
    EXPECT_EQ(written(Any(std::uint64_t{18446744073709551615u}), "value === 2 ** 64"), "true");
    EXPECT_EQ(written(Any({1, 2.5, boost::json::object{{"b", "x"}, {"a", nullptr}}})),
              R"([1,2.5,{"b":"x","a":null}])");
    EXPECT_EQ(written(Any(boost::json::array{-0.0}), "Object.is(value[0], -0)"), "true");
    EXPECT_EQ(written(Any(boost::json::array{"a\0\x01\xF0\x9F\x98\x80\"\\"}), "value[0].length"),
              "1");
    EXPECT_EQ(
        written(Any(boost::json::array{std::string_view("a\0\x01\xF0\x9F\x98\x80\"\\\n", 10)}),
                R"(value[0] === 'a\0\x01\u{1F600}"\\\n')"),
        "true");
}

TEST_F(AnyCoding, NumbersWithoutAFormAreWrittenAsNull) {
    EXPECT_EQ(written(Any(std::nan("")), "value === null"), "true");
    EXPECT_EQ(written(Any(boost::json::array{std::numeric_limits<double>::infinity()})), "[null]");
}

TEST_F(AnyCoding, DeepValuesAreWritten) {
    Any deep = 1;
    for (int level = 0; level < 512; ++level) {
        deep = boost::json::array{std::move(deep)};
    }
    EXPECT_EQ(written(deep, "let levels = 0; while (Array.isArray(value)) { value = value[0]; "
                            "++levels; } levels"),
              "512");
}

TEST_F(AnyCoding, LiesInRecordsAndMaps) {
    using Dictionary = std::map<std::string, Any>;
    EXPECT_EQ(decoded<Dictionary>("({a: [1], b: null})").value(),
              (Dictionary{{"a", {1}}, {"b", nullptr}}));
    EXPECT_EQ(written(Dictionary{{"a", {1, "x"}}, {"b", nullptr}}), R"({"a":[1,"x"],"b":null})");
    EXPECT_EQ(failure<Dictionary>("({a: undefined})"), "a: expected a JSON value, found undefined");
    EXPECT_EQ(decoded<std::optional<Any>>("undefined").value(), std::nullopt);
}
