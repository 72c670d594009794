// Rows of values that the engine reads at once.

#include <zem/JavaScript/Packed.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace zem::js;
using Lines = std::vector<std::string>;

const Name& valueShape() {
    static const Name shape("0");
    return shape;
}

const Name& fieldsShape() {
    static const Name shape(
        R"([{"name":"a","of":0},{"name":"b","of":{"of":0}},{"name":"c","of":[{"name":"d","of":0}]}])");
    return shape;
}

class PackedTest : public testing::Test {
  protected:
    /// The elements of the array that a script gives, each as the texts of its values.
    Lines read(std::string_view script, const Name& shape, std::size_t first = 0) {
        return context.perform([&](Scope& scope) {
            Packed row(scope, *scope.evaluate(script, "test.js"), first, shape);
            Lines lines;
            while (lines.size() < row.count()) {
                std::string line;
                if (&shape == &valueShape()) {
                    line = value(row, [](Packed&) { return std::string("{}"); });
                } else {
                    line = value(row, [](Packed& fields) {
                        const std::string a = value(fields, unread);
                        const std::string b = value(fields, all);
                        return a + ", " + b + ", " + value(fields, [](Packed& inner) {
                                   return "{" + value(inner, unread) + "}";
                               });
                    });
                }
                lines.push_back(line);
            }
            return lines;
        });
    }
    Lines readValues(std::string_view script) { return read(script, valueShape()); }

    using Fields = std::string (*)(Packed&);
    static std::string value(Packed& row, Fields fields) {
        switch (const Kind kind = row.takeKind()) {
        case Kind::boolean:
            return row.takeNumber() == 0 ? "false" : "true";
        case Kind::number: {
            const double number = row.takeNumber();
            return std::to_string(number);
        }
        case Kind::string:
            return "'" + row.takeText() + "'";
        case Kind::object:
            return fields(row);
        default:
            return nameOf(kind);
        }
    }
    static std::string unread(Packed&) { return "{}"; }
    static std::string all(Packed& row) {
        std::string text = "{";
        for (double left = row.takeNumber(); left > 0; --left) {
            text += " " + row.takeText();
            text += ": " + value(row, unread);
        }
        return text + " }";
    }

    Context context = test::makeContext();
};

TEST_F(PackedTest, HasAValueOfEachKind) {
    EXPECT_EQ(readValues("[undefined, null, true, false, 1.5, -2, 'text', Symbol(), 7n, {},"
                         " () => {}, , new Date(0)]"),
              (Lines{"undefined", "null", "true", "false", "1.500000", "-2.000000", "'text'",
                     "a symbol", "a BigInt", "{}", "a function", "undefined", "{}"}));
    EXPECT_EQ(readValues("[-0, NaN, -Infinity, 2 ** 62]"),
              (Lines{"-0.000000", "nan", "-inf", "4611686018427387904.000000"}));
}

TEST_F(PackedTest, KeepsTextsApart) {
    EXPECT_EQ(readValues("['', 'a\\u0000b', 'é', '\\ud83d', '\\ude00', '\\ud83d\\ude00', '']"),
              (Lines{"''", std::string("'a\0b'", 5), "'é'", "'\xEF\xBF\xBD'", "'\xEF\xBF\xBD'",
                     "'\xF0\x9F\x98\x80'", "''"}));
}

TEST_F(PackedTest, TakesTheFieldsOfItsShapeAndNoOthers) {
    EXPECT_EQ(
        read("[{ b: { x: 1, y: 'z' }, other: 7, a: 'a', c: { d: true, e: 1 } }, 7, {},"
             " { a: {}, b: null, c: 'c' }, { a: 1, b: {}, c: {} }]",
             fieldsShape()),
        (Lines{"'a', { x: 1.000000 y: 'z' }, {true}", "7.000000", "undefined, undefined, undefined",
               "{}, null, 'c'", "1.000000, { }, {undefined}"}));
}

TEST_F(PackedTest, ReadsEachPropertyOnceAndWhateverKindOfPropertyItIs) {
    test::evaluate(context, R"js(
        var reads = [];
        var watched = new Proxy({ a: 1, b: { x: 1 } }, {
            get(target, name) { reads.push(name); return target[name]; },
        });
        var hidden = Object.defineProperty({}, "a", { value: "hidden" });
        var own = (prototype, value) => Object.assign(Object.create(prototype), value);
    )js");
    EXPECT_EQ(read("[watched, hidden, Object.create({ a: 'inherited' }),"
                   " new (class { get a() { return 'computed'; } }), new Proxy([watched], {})[0]]",
                   fieldsShape()),
              (Lines{"1.000000, { x: 1.000000 }, undefined", "'hidden', undefined, undefined",
                     "'inherited', undefined, undefined", "'computed', undefined, undefined",
                     "1.000000, { x: 1.000000 }, undefined"}));
    test::expectEval(context, "reads", "array", R"(["a","b","c","a","b","c"])");
    EXPECT_EQ(read("[{ b: own({ inherited: 1 }, { x: 1, [Symbol()]: 2 }) }]", fieldsShape()),
              Lines{"undefined, { x: 1.000000 }, undefined"});
}

TEST_F(PackedTest, BeginsWhereItIsTold) {
    EXPECT_EQ(read("[1, 2, 3]", valueShape(), 1), (Lines{"2.000000", "3.000000"}));
    EXPECT_EQ(read("[1]", valueShape(), 1), Lines{});
    EXPECT_EQ(read("[1]", valueShape(), 7), Lines{});
}

TEST_F(PackedTest, EndsBeforeWhatItCannotRead) {
    for (const char* element :
         {"[]", "new Proxy([], {})", "{ a: [] }", "{ b: { x: [] } }", "{ get a() { throw 1; } }",
          "new Proxy({}, { get() { throw 1; } })",
          "{ b: new Proxy({}, { ownKeys() { throw 1; } }) }",
          "{ a: 'x', b: Object.fromEntries([...Array(9000).keys()].map((n) => [n, n])) }"}) {
        EXPECT_EQ(read("[1, 2, " + std::string(element) + ", 4]", fieldsShape()),
                  (Lines{"1.000000", "2.000000"}))
            << element;
    }
    EXPECT_EQ(read("new Proxy([], { get() { throw 1; } })", valueShape()), Lines{});
}

TEST_F(PackedTest, GoesOnInSeveralSteps) {
    test::evaluate(context, "var many = Array.from({ length: 10000 }, (_, n) => `${n}`);"
                            "var long = Array(4).fill('x'.repeat(1 << 19));");
    std::size_t first = 0;
    int steps = 0;
    while (first < 10000) {
        const Lines some = read("many", valueShape(), first);
        ASSERT_FALSE(some.empty());
        EXPECT_EQ(some.front(), "'" + std::to_string(first) + "'");
        first += some.size();
        ++steps;
    }
    EXPECT_EQ(first, 10000u);
    EXPECT_GT(steps, 1);
    EXPECT_EQ(read("long", valueShape()).size(), 2u);
}

TEST_F(PackedTest, IsMadeWhateverBecameOfTheGlobals) {
    test::evaluate(context, R"js(
        Object.keys = Array.isArray = JSON.parse = Reflect.apply = () => { throw 1; };
        for (const prototype of [Object.prototype, Array.prototype, String.prototype]) {
            for (const name of ["0", "1", "name", "of", "a", "toJSON"]) {
                Object.defineProperty(prototype, name, { set() { throw 1; }, get() { return 1; } });
            }
        }
        delete Object.prototype.a;
        Array.prototype[Symbol.iterator] = () => { throw 1; };
        var Object, Array, JSON, Float64Array; Object = Array = JSON = Float64Array = undefined;
    )js");
    EXPECT_EQ(read("[{ a: 'a', b: { x: 1 }, c: { d: 2 } }]", fieldsShape()),
              Lines{"'a', { x: 1.000000 }, {2.000000}"});
}

TEST_F(PackedTest, MayBeMadeWhileAnotherIs) {
    test::setFunction(context, "again", 0, [](Scope& scope, Local, Arguments) {
        Packed row(scope, *scope.evaluate("['inner', 'other']", ""), 0, valueShape());
        return scope.string(std::to_string(row.count()) + value(row, unread));
    });
    EXPECT_EQ(
        read("[{ a: 'before' }, { get a() { return again(); } }, { a: 'after' }]", fieldsShape()),
        (Lines{"'before', undefined, undefined", "'2'inner'', undefined, undefined",
               "'after', undefined, undefined"}));
}

TEST_F(PackedTest, LeavesNoExceptionBehind) {
    EXPECT_EQ(read("[{ get a() { throw new Error('mine'); } }]", fieldsShape()), Lines{});
    test::expectEval(context, "1 + 1", "number", "2");
}

} // namespace
