// Reading and writing properties, getters and proxies included.

#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <string>
#include <vector>

namespace {

using zem::js::Context;
using zem::js::Kind;
using zem::js::Local;
using zem::js::Name;
using zem::js::Result;
using zem::js::Scope;

const Name& valueName() {
    static const Name name("value");
    return name;
}

TEST(Property, IsReadWrittenAndFound) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const Local object = scope.object();
        EXPECT_EQ(scope.kind(*scope.get(object, valueName())), Kind::undefined);
        EXPECT_FALSE(*scope.has(object, valueName()));
        EXPECT_TRUE(scope.set(object, valueName(), scope.number(7)));
        EXPECT_TRUE(*scope.has(object, valueName()));
        EXPECT_EQ(scope.toNumber(*scope.get(object, "value")), 7);
        static const Name toString("toString");
        EXPECT_TRUE(*scope.has(object, toString));
    });
}

TEST(Property, OfAnArrayIsReachedByIndex) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const Local array = *scope.evaluate("['a', 'b']", "");
        EXPECT_EQ(*scope.length(array), 2u);
        EXPECT_EQ(scope.toText(*scope.getAt(array, 1)), "b");
        EXPECT_EQ(scope.kind(*scope.getAt(array, 2)), Kind::undefined);
        EXPECT_TRUE(scope.setAt(array, 3, scope.string("d")));
        EXPECT_EQ(*scope.length(array), 4u);
        EXPECT_EQ(*scope.stringify(array).value(), R"(["a","b",null,"d"])");
    });
}

TEST(Property, NamesAreTheObjectsOwnEnumerableOnes) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const auto names = [&](const char* script) {
            return scope.stringify(*scope.propertyNames(*scope.evaluate(script, ""))).value();
        };
        EXPECT_EQ(names("({})"), "[]");
        EXPECT_EQ(names("({b: 1, a: 2, [Symbol()]: 3, 1: 4, 0: 5})"), R"(["0","1","b","a"])");
        EXPECT_EQ(names("Object.create({inherited: 1}, {own: {enumerable: true, value: 2}, "
                        "hidden: {value: 3}})"),
                  R"(["own"])");
        EXPECT_EQ(names("Object.keys = null; ({a: 1})"), R"(["a"])");
    });
}

TEST(Property, IsReadByANameThatOnlyTheEngineCanHold) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const Local object = *scope.evaluate("({ '\\ud800': 1, '\\ud801': 2, '\\ufffd': 3 })", "");
        const Local names = *scope.propertyNames(object);
        for (const unsigned index : {0u, 1u, 2u}) {
            EXPECT_EQ(scope.toNumber(*scope.get(object, *scope.getAt(names, index))), index + 1);
        }
    });
}

TEST(Property, MayBeAnArrayBehindAProxy) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        for (const char* script : {"[]", "new Proxy([], {})", "new Proxy(new Proxy([], {}), {})",
                                   "Array.isArray = null; new Proxy([], {})"}) {
            EXPECT_TRUE(scope.isArray(*scope.evaluate(script, ""))) << script;
        }
        for (const char* script :
             {"1", "'a'", "({ length: 0 })", "new Proxy({}, {})", "new Uint8Array(1)",
              "Object.create([])",
              "const revocable = Proxy.revocable([], {}); revocable.revoke(); revocable.proxy"}) {
            EXPECT_FALSE(scope.isArray(*scope.evaluate(script, ""))) << script;
        }
    });
}

TEST(Property, IsDefinedWhateverItsName) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const Local object = scope.object();
        EXPECT_TRUE(scope.define(object, "__proto__", scope.number(1)));
        EXPECT_TRUE(scope.define(object, "toString", scope.number(2)));
        EXPECT_EQ(scope.stringify(*scope.propertyNames(object)).value(),
                  R"(["__proto__","toString"])");
        EXPECT_EQ(*scope.stringify(object).value(), R"({"__proto__":1,"toString":2})");
        (void)scope.set(scope.global(), "object", object);
        EXPECT_TRUE(scope.toBoolean(
            *scope.evaluate("Object.getPrototypeOf(object) === Object.prototype", "")));
    });
}

TEST(Property, IsDefinedWhateverThePrototypesHold) {
    for (const char* kind : {"set() { throw 'set' }", "value: 'inherited', writable: false",
                             "get() { throw 'get' }"}) {
        const Context context = test::makeContext();
        context.perform([&](Scope& scope) {
            ASSERT_TRUE(scope.evaluate("['value', 'other', '3'].forEach((name) => "
                                       "Object.defineProperty(Object.prototype, name, {" +
                                           std::string(kind) + "}))",
                                       ""));
            const Local object = scope.object();
            EXPECT_TRUE(scope.define(object, valueName(), scope.number(1)));
            EXPECT_TRUE(scope.define(object, "other", scope.number(2)));
            EXPECT_TRUE(scope.define(object, "3", scope.number(3)));
            EXPECT_TRUE(scope.define(object, "other", scope.number(4)));
            EXPECT_EQ(*scope.stringify(object).value(), R"({"3":3,"value":1,"other":4})") << kind;
        });
    }
}

TEST(ArrayMaker, MakesArraysOfAnyLength) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const Local sameAs = *scope.evaluate(
            "(array, length) => Array.isArray(array) && array.length === length &&"
            "    Object.getPrototypeOf(array) === Array.prototype &&"
            "    Object.keys(array).length === length && array.every((each, at) => each === at)",
            "");
        for (const unsigned length : {0u, 1u, 31u, 32u, 33u, 34u, 1000u}) {
            zem::js::ArrayMaker maker(scope);
            for (unsigned index = 0; index < length; ++index) {
                maker.add(scope.number(index));
            }
            EXPECT_TRUE(
                scope.toBoolean(*scope.call(sameAs, {maker.finish(), scope.number(length)})))
                << length;
        }
    });
}

TEST(ArrayMaker, MakesElementsOfItsOwnWhateverThePrototypesHold) {
    for (const char* kind : {"set() { throw 'set' }", "value: 'inherited', writable: false",
                             "get() { throw 'get' }"}) {
        for (const char* prototype : {"Array.prototype", "Object.prototype"}) {
            const Context context = test::makeContext();
            context.perform([&](Scope& scope) {
                ASSERT_TRUE(scope.evaluate(
                    "[0, 1, 31, 32, 33, 90].forEach((index) => Object.defineProperty(" +
                        std::string(prototype) + ", index, {" + kind + "}))",
                    ""));
                for (const unsigned length : {2u, 33u, 100u}) {
                    zem::js::ArrayMaker maker(scope);
                    std::string expected;
                    for (unsigned index = 0; index < length; ++index) {
                        maker.add(scope.number(index));
                        expected += (index == 0 ? "" : ",") + std::to_string(index);
                    }
                    EXPECT_EQ(*scope.stringify(maker.finish()).value(), "[" + expected + "]")
                        << prototype << ": " << kind;
                }
            });
        }
    }
}

// Each failure comes out of the step that it belongs to, and of no other.
TEST(Property, WhatGettersSettersAndTrapsThrowComesOutOfTheStep) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const Local object = *scope.evaluate(
            "({get value() { throw new Error('get') }, set value(to) { throw new Error('set') }, "
            "get 0() { throw new Error('get 0') }, set 0(to) { throw new Error('set 0') }, "
            "get length() { throw new Error('length') }})",
            "");
        const Local proxy = *scope.evaluate("new Proxy({}, {"
                                            "has() { throw new Error('has') },"
                                            "ownKeys() { throw new Error('ownKeys') },"
                                            "get() { throw new Error('trap') }})",
                                            "");
        const auto expectThrown = [&](const auto& result, const char* text) {
            ASSERT_FALSE(result) << text;
            EXPECT_EQ(result.error().text(), text);
            EXPECT_EQ(scope.toNumber(*scope.evaluate("1 + 1", "")), 2) << text;
        };
        expectThrown(scope.get(object, valueName()), "Error: get");
        expectThrown(scope.set(object, valueName(), scope.null()), "Error: set");
        expectThrown(scope.getAt(object, 0), "Error: get 0");
        expectThrown(scope.setAt(object, 0, scope.null()), "Error: set 0");
        expectThrown(scope.length(object), "Error: length");
        expectThrown(scope.has(proxy, valueName()), "Error: has");
        expectThrown(scope.propertyNames(proxy), "Error: ownKeys");
        expectThrown(scope.get(proxy, valueName()), "Error: trap");
        expectThrown(scope.callMethod(object, valueName(), {}), "Error: get");
    });
}

TEST(Property, AMethodIsCalledOnItsObject) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const Local object =
            *scope.evaluate("({value(a, b) { return [this === object, a, b] }, other: 1})", "");
        (void)scope.set(scope.global(), "object", object);
        const Result<Local> answer =
            scope.callMethod(object, valueName(), {scope.number(1), scope.string("b")});
        EXPECT_EQ(*scope.stringify(*answer).value(), R"([true,1,"b"])");
        static const Name other("other");
        const Result<Local> wrong = scope.callMethod(object, other, {});
        ASSERT_FALSE(wrong);
        EXPECT_EQ(wrong.error().text(), "TypeError: other: expected a function, found a number");
    });
}

TEST(Property, OnlyAFunctionCanBeCalled) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const auto call = [&](const char* script) {
            const Result<Local> answer = scope.call(*scope.evaluate(script, ""));
            return answer ? "called" : answer.error().text();
        };
        EXPECT_EQ(call("undefined"), "TypeError: expected a function, found undefined");
        EXPECT_EQ(call("5"), "TypeError: expected a function, found a number");
        EXPECT_EQ(call("({})"), "TypeError: expected a function, found an object");
        EXPECT_EQ(call("() => 1"), "called");
    });
}

TEST(Property, AFunctionIsCalledOnTheGlobalObjectUnlessOnAnother) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const Local self = *scope.evaluate("(function () { return this })", "");
        const Local object = scope.object();
        EXPECT_TRUE(scope.isSame(*scope.call(self), scope.global()));
        EXPECT_TRUE(scope.isSame(*scope.call(self, {}, object), object));
        EXPECT_TRUE(scope.isSame(*scope.call(self, {}, scope.undefined()), scope.global()));
        EXPECT_TRUE(scope.isSame(*scope.call(self, {}, scope.number(1)), scope.global()));
    });
}

} // namespace
