// Values: their kinds, their texts, JSON, and the functions that make them.

#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <string>

namespace {

using zem::js::Context;
using zem::js::Kind;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;
using zem::js::Value;

TEST(Value, KindsAreTold) {
    const Context context = test::makeContext();
    test::expectEval(context, "undefined", "undefined", "undefined");
    test::expectEval(context, "null", "null", "null");
    test::expectEval(context, "true", "boolean", "true");
    test::expectEval(context, "1", "number", "1");
    test::expectEval(context, "NaN", "number", "NaN");
    test::expectEval(context, "'text'", "string", "text");
    test::expectEval(context, "new String('text')", "object", "\"text\"");
    test::expectEval(context, "Symbol('mark')", "symbol", "Symbol(mark)");
    test::expectEval(context, "Symbol()", "symbol", "Symbol()");
    test::expectEval(context, "12345678901234567890n", "BigInt", "12345678901234567890");
    test::expectEval(context, "({a: 1})", "object", "{\"a\":1}");
    test::expectEval(context, "[1, 'two', null]", "array", "[1,\"two\",null]");
    test::expectEval(context, "new Proxy([], {})", "object", "[]");
    test::expectEval(context, "(function plain() {})", "function", "function plain() {}");
    test::expectEval(context, "(class Kind {})", "function", "class Kind {}");
    test::expectEval(context, "new Proxy(function () {}, {}).name", "string", "");
    test::expectEval(context, "typeof new Proxy(() => 1, {})", "string", "function");
    test::expectEval(context, "new Date(0)", "object", "\"1970-01-01T00:00:00.000Z\"");
    test::expectEval(context, "Object.create(null)", "object", "{}");
}

TEST(Value, ARevokedProxyIsAnObject) {
    const Context context = test::makeContext();
    const Kind kind = context.perform([](Scope& scope) {
        return scope.kind(
            *scope.evaluate("const pair = Proxy.revocable([], {}); pair.revoke(); pair.proxy", ""));
    });
    EXPECT_EQ(kind, Kind::object);
}

TEST(Value, KindsAreNamedForErrorTexts) {
    std::string names;
    for (const Kind kind :
         {Kind::undefined, Kind::null, Kind::boolean, Kind::number, Kind::string, Kind::symbol,
          Kind::bigInt, Kind::object, Kind::array, Kind::function}) {
        names += zem::js::nameOf(kind);
        names += '\n';
    }
    EXPECT_EQ(names, "undefined\nnull\na boolean\na number\na string\na symbol\na BigInt\n"
                     "an object\nan array\na function\n");
}

TEST(Value, WhatNativeCodeMakesIsWhatJavaScriptSees) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        (void)scope.set(scope.global(), "nothing", scope.undefined());
        (void)scope.set(scope.global(), "none", scope.null());
        (void)scope.set(scope.global(), "yes", scope.boolean(true));
        (void)scope.set(scope.global(), "no", scope.boolean(false));
        (void)scope.set(scope.global(), "half", scope.number(0.5));
        (void)scope.set(scope.global(), "minusZero", scope.number(-0.0));
        (void)scope.set(scope.global(), "notANumber",
                        scope.number(std::numeric_limits<double>::quiet_NaN()));
        (void)scope.set(scope.global(), "endless",
                        scope.number(std::numeric_limits<double>::infinity()));
        (void)scope.set(scope.global(), "empty", scope.object());
        (void)scope.set(scope.global(), "noItems", scope.array());
        const std::array items{scope.number(1), scope.string("two"), scope.null()};
        (void)scope.set(scope.global(), "items", scope.array(items));
    });
    test::expectEval(context, "nothing", "undefined", "undefined");
    test::expectEval(context, "none", "null", "null");
    test::expectEval(context, "yes", "boolean", "true");
    test::expectEval(context, "no", "boolean", "false");
    test::expectEval(context, "half", "number", "0.5");
    test::expectEval(context, "Object.is(minusZero, -0)", "boolean", "true");
    test::expectEval(context, "Object.is(notANumber, NaN)", "boolean", "true");
    test::expectEval(context, "endless", "number", "Infinity");
    test::expectEval(context, "empty", "object", "{}");
    test::expectEval(context, "noItems", "array", "[]");
    test::expectEval(context, "items", "array", "[1,\"two\",null]");
}

TEST(Value, WhatJavaScriptMakesIsWhatNativeCodeSees) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        EXPECT_TRUE(scope.toBoolean(*scope.evaluate("true", "")));
        EXPECT_FALSE(scope.toBoolean(*scope.evaluate("false", "")));
        EXPECT_EQ(scope.toNumber(*scope.evaluate("2 ** 53 + 2", "")), 9007199254740994.0);
        EXPECT_TRUE(std::signbit(scope.toNumber(*scope.evaluate("-0", ""))));
        EXPECT_TRUE(std::isnan(scope.toNumber(*scope.evaluate("NaN", ""))));
        EXPECT_EQ(scope.toText(*scope.evaluate("'a' + 1", "")), "a1");
    });
}

TEST(Value, SamenessIsThatOfTheStrictOperator) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const auto same = [&](const char* left, const char* right) {
            const Local first = *scope.evaluate(left, "");
            return scope.isSame(first, *scope.evaluate(right, ""));
        };
        EXPECT_TRUE(same("1", "1"));
        EXPECT_TRUE(same("'ab'", "'a' + 'b'"));
        EXPECT_TRUE(same("var one = {}; one", "one"));
        EXPECT_FALSE(same("({})", "({})"));
        EXPECT_FALSE(same("1", "'1'"));
        EXPECT_FALSE(same("NaN", "NaN"));
        EXPECT_FALSE(same("null", "undefined"));
    });
}

TEST(Value, JSONIsWrittenAndRead) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const auto json = [&](const char* script) {
            const Result<std::optional<std::string>> text =
                scope.stringify(*scope.evaluate(script, ""));
            return !text ? "throws " + text.error().text() : text->value_or("(absent)");
        };
        EXPECT_EQ(json("({b: 1, a: [true, null, 'x'], u: undefined})"),
                  R"({"b":1,"a":[true,null,"x"]})");
        EXPECT_EQ(json("undefined"), "(absent)");
        EXPECT_EQ(json("(function () {})"), "(absent)");
        EXPECT_EQ(json("null"), "null");
        EXPECT_EQ(json("'\\ud83d'"), R"("\ud83d")");
        EXPECT_EQ(json("const ring = {}; ring.ring = ring; ring").substr(0, 18),
                  "throws TypeError: ");
        EXPECT_EQ(json("({toJSON() { throw new Error('no') }})"), "throws Error: no");
        EXPECT_EQ(json("1n").substr(0, 18), "throws TypeError: ");

        const auto parsed = [&](std::string_view text) {
            const Result<Local> value = scope.parseJSON(text);
            return value ? *scope.stringify(*value).value() : "throws " + value.error().text();
        };
        EXPECT_EQ(parsed(R"({"b":1,"a":[1.5,null]})"), R"({"b":1,"a":[1.5,null]})");
        EXPECT_EQ(parsed("null"), "null");
        EXPECT_EQ(parsed("\"\xC3\xA9\xF0\x9F\x98\x80\""), "\"\xC3\xA9\xF0\x9F\x98\x80\"");
        EXPECT_EQ(parsed("{"), "throws Error: the text is not valid JSON");
        EXPECT_EQ(parsed(""), "throws Error: the text is not valid JSON");
        EXPECT_EQ(parsed(std::string_view("1\0", 2)), "throws Error: the text is not valid JSON");
    });
}

TEST(Value, TheStringFormIsWhatStringGives) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const auto formOf = [&](const char* script) {
            return scope.stringForm(scope.evaluate(script, "test.js").value());
        };
        EXPECT_EQ(formOf("undefined"), "undefined");
        EXPECT_EQ(formOf("null"), "null");
        EXPECT_EQ(formOf("1.5"), "1.5");
        EXPECT_EQ(formOf("''"), "");
        EXPECT_EQ(formOf("Symbol('mark')"), "Symbol(mark)");
        EXPECT_EQ(formOf("new Error('no')"), "Error: no");
        EXPECT_EQ(formOf("({toString() { return 'mine' }})"), "mine");
        EXPECT_EQ(formOf("({toString() { throw new Error('no') }})"), std::nullopt);
        EXPECT_EQ(formOf("Object.create(null)"), std::nullopt);
    });
}

TEST(Value, ObjectsArraysAndFunctionsHaveProperties) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        for (const char* script : {"({})", "[]", "(() => {})", "new Proxy({}, {})", "new Date()"}) {
            EXPECT_TRUE(scope.isObject(scope.evaluate(script, "test.js").value())) << script;
        }
        for (const char* script : {"undefined", "null", "true", "1", "''", "Symbol()", "1n"}) {
            EXPECT_FALSE(scope.isObject(scope.evaluate(script, "test.js").value())) << script;
        }
    });
}

TEST(Value, ANameHasItsText) {
    static const zem::js::Name name("gr\u00f6\u00dfe");
    EXPECT_EQ(name.text(), "gr\u00f6\u00dfe");
}

TEST(Value, AValueThatCannotBeMadeTextIsDescribedByItsKind) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        EXPECT_EQ(scope.describe(*scope.evaluate("({toString() { throw new Error('no') }})", "")),
                  "an object");
        EXPECT_EQ(scope.describe(*scope.evaluate("Object.create(null)", "")), "an object");
        EXPECT_EQ(scope.describe(*scope.evaluate("({toString() { return 'so' }})", "")), "so");
        // A failed step leaves no exception behind for the next one.
        EXPECT_EQ(scope.toNumber(*scope.evaluate("1 + 1", "")), 2);
    });
}

TEST(Value, AnEmptyOneHoldsNothing) {
    const Value empty;
    EXPECT_FALSE(empty);
    EXPECT_FALSE(empty.context());
    const zem::js::Function function;
    EXPECT_FALSE(function);
    EXPECT_FALSE(function.context());
}

TEST(Value, CopiesShareAHandle) {
    const Context context = test::makeContext();
    const Value one = context.perform([](Scope& scope) { return scope.keep(scope.string("a")); });
    const Value same = one;
    EXPECT_TRUE(one.isSameHandle(same));
    EXPECT_EQ(context.handleCount(), 1u);
    const Value other = context.perform([&](Scope& scope) { return scope.keep(scope.local(one)); });
    EXPECT_FALSE(one.isSameHandle(other));
    EXPECT_EQ(context.handleCount(), 2u);
    EXPECT_EQ(one.context(), context);
}

TEST(Value, AFunctionIsMadeOnlyOfSomethingThatCanBeCalled) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        for (const char* script : {"undefined", "null", "1", "'f'", "({})", "[]", "Symbol()"}) {
            EXPECT_FALSE(zem::js::Function::from(scope, *scope.evaluate(script, ""))) << script;
        }
        const auto add = zem::js::Function::from(scope, *scope.evaluate("(a, b) => a + b", ""));
        ASSERT_TRUE(add);
        const std::array arguments{scope.number(1), scope.number(2)};
        EXPECT_EQ(scope.toNumber(*add->call(scope, arguments)), 3);
        EXPECT_TRUE(zem::js::Function::from(scope, *scope.evaluate("class A {}; A", "")));
    });
}

TEST(Value, TheEnginesVersionIsNumbered) {
    const std::string version = Context::engineVersion();
    EXPECT_GE(std::stoi(version), 2);
    EXPECT_EQ(std::count(version.begin(), version.end(), '.'), 2);
}

} // namespace
