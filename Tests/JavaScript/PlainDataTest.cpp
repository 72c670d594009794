// Which values say everything in their JSON text.

#include <zem/JavaScript/Scope.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <string>

namespace {

using namespace zem::js;

class PlainData : public testing::Test {
  protected:
    bool isPlain(const std::string& script) {
        return context.perform([&](Scope& scope) {
            return scope.isPlainData(scope.evaluate(script, "test.js").value());
        });
    }

    Context context = test::makeContext();
};

TEST_F(PlainData, IsWhatJSONSays) {
    for (const char* script : {"null",
                               "true",
                               "false",
                               "0",
                               "-1",
                               "2.5",
                               "5e-324",
                               "9007199254740991",
                               "-9007199254740991",
                               "''",
                               "'text'",
                               "'\\ud800'",
                               "[]",
                               "({})",
                               "[1, 'a', null, [true]]",
                               "({ a: 1, b: { c: [] }, '': '', __proto__: null })",
                               "Object.create(null)",
                               "JSON.parse('{\"__proto__\":1}')",
                               "new Proxy({ a: 1 }, {})",
                               "({ get a() { return 1; } })",
                               "({ [Symbol()]: 1 })",
                               "(() => { const shared = { a: 1 }; return [shared, shared]; })()"}) {
        EXPECT_TRUE(isPlain(script)) << script;
    }
}

TEST_F(PlainData, IsNothingThatJSONLeavesOutOrChanges) {
    for (const char* value : {"undefined",
                              "() => {}",
                              "Symbol()",
                              "7n",
                              "NaN",
                              "Infinity",
                              "-Infinity",
                              "-0",
                              "new Date(0)",
                              "new String('a')",
                              "new Number(1)",
                              "new Map()",
                              "new Uint8Array(2)",
                              "/x/",
                              "{ toJSON() { return 1; } }",
                              "new (class { a = 1; })()",
                              "Object.create({ a: 1 })",
                              "new (class extends Array {})()",
                              "Object.create(Array.prototype)",
                              "Object.assign([1], { toJSON: () => 1 })",
                              "[,]",
                              "{ get a() { throw 1; } }",
                              "new Proxy({}, { getPrototypeOf() { throw 1; } })"}) {
        const std::string text = value;
        EXPECT_FALSE(isPlain("(" + text + ")")) << text;
        EXPECT_FALSE(isPlain("[1, " + text + "]")) << text;
        EXPECT_FALSE(isPlain("({ a: { b: [" + text + "] } })")) << text;
    }
}

TEST_F(PlainData, HasNoCycleAndIsNotNestedDeeply) {
    EXPECT_FALSE(isPlain("var a = { b: [] }; a.b.push(a, a); a"));
    EXPECT_FALSE(isPlain("var d = 1; for (let n = 0; n < 100000; ++n) d = [d]; d"));
    EXPECT_TRUE(isPlain("var e = 1; for (let n = 0; n < 64; ++n) e = [e]; e"));
    EXPECT_FALSE(isPlain("[e]"));
}

TEST_F(PlainData, IsToldWhateverBecameOfTheGlobals) {
    test::evaluate(context, "Object.getPrototypeOf = Array.isArray = Object.is ="
                            "    Number.isSafeInteger = () => { throw 1; };"
                            "var Object, Array, Number; Object = Array = Number = undefined;");
    EXPECT_TRUE(isPlain("[{ a: 1 }]"));
    EXPECT_FALSE(isPlain("[{ a: -0 }]"));
}

TEST_F(PlainData, MayBeAskedAboutWhileItIsAsked) {
    test::setFunction(context, "ask", 1, [](Scope& scope, Local, Arguments arguments) {
        return scope.boolean(scope.isPlainData(arguments[0]));
    });
    EXPECT_TRUE(isPlain("({ a: { get b() { return ask([[[[{}]]]]); } }, c: [[]] })"));
}

TEST_F(PlainData, LeavesNoExceptionBehind) {
    EXPECT_FALSE(isPlain("({ get a() { throw new Error('mine'); } })"));
    test::expectEval(context, "1 + 1", "number", "2");
}

} // namespace
