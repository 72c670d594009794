#include <Tessel/Bridge.h>
#include <map>
#include <optional>
#include <vector>

using ContainerCoding = test::Bridge;
using Texts = std::vector<std::string>;
using Numbers = std::vector<double>;
using Maybe = std::optional<std::string>;
using Table = std::map<std::string, double>;

TEST_F(ContainerCoding, AbsentOptionalsAreNullOrUndefined) {
    EXPECT_EQ(decoded<Maybe>("'x'").value(), Maybe("x"));
    EXPECT_EQ(decoded<Maybe>("null").value(), Maybe());
    EXPECT_EQ(decoded<Maybe>("undefined").value(), Maybe());
    EXPECT_EQ(failure<Maybe>("3"), "expected a string, found a number");
    EXPECT_EQ(failure<Maybe>("false"), "expected a string, found a boolean");
}

TEST_F(ContainerCoding, AnAbsentOptionalByItselfIsWrittenAsNull) {
    EXPECT_EQ(written(Maybe(), "value === null"), "true");
    EXPECT_EQ(written(Maybe(""), "value === ''"), "true");
    EXPECT_EQ(written(std::vector<Maybe>{"a", std::nullopt}), R"(["a",null])");
    EXPECT_EQ(written(std::map<std::string, Maybe>{{"a", std::nullopt}}), R"({"a":null})");
}

TEST_F(ContainerCoding, ArraysKeepTheirOrder) {
    EXPECT_EQ(decoded<Numbers>("[3, 1, 2]").value(), (Numbers{3, 1, 2}));
    EXPECT_EQ(decoded<Numbers>("[]").value(), Numbers());
    EXPECT_EQ(decoded<std::vector<Numbers>>("[[1], [], [2, 3]]").value(),
              (std::vector<Numbers>{{1}, {}, {2, 3}}));
    EXPECT_EQ(written(std::vector<Numbers>{{1}, {}, {2, 3}}), "[[1],[],[2,3]]");
    EXPECT_EQ(written(Numbers(), "Array.isArray(value) && value.length === 0"), "true");
    EXPECT_EQ(decoded<std::vector<bool>>("[true, false]").value(),
              (std::vector<bool>{true, false}));
    EXPECT_EQ(written(std::vector<bool>{true, false}), "[true,false]");
}

TEST_F(ContainerCoding, OnlyArraysAreArrays) {
    const struct {
        const char* script;
        const char* text;
    } table[] = {
        {"({length: 1, 0: 'a'})", "expected an array, found an object"},
        {"'abc'", "expected an array, found a string"},
        {"new Set(['a'])", "expected an array, found an object"},
        {"new Float64Array(2)", "expected an array, found an object"},
        {"(function () { return arguments; })('a')", "expected an array, found an object"},
        {"null", "expected an array, found null"},
        {"undefined", "expected an array, found undefined"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(failure<Texts>(row.script), row.text) << row.script;
    }
    EXPECT_EQ(decoded<Texts>("class Mine extends Array {}; Mine.of('a', 'b')").value(),
              (Texts{"a", "b"}));
}

TEST_F(ContainerCoding, HolesAreUndefined) {
    EXPECT_EQ(failure<Numbers>("[1, , 3]"), "[1]: expected a number, found undefined");
    EXPECT_EQ(decoded<std::vector<Maybe>>("['a', , 'c']").value(),
              (std::vector<Maybe>{"a", std::nullopt, "c"}));
}

TEST_F(ContainerCoding, AClaimedLengthReservesNothing) {
    EXPECT_EQ(failure<std::vector<Texts>>("const hollow = []; hollow.length = 4294967295; hollow"),
              "[0]: expected an array, found undefined");
}

TEST_F(ContainerCoding, AProxyOfAnArrayIsAnArray) {
    EXPECT_EQ(decoded<Texts>("new Proxy(['a', 'b'], {})").value(), (Texts{"a", "b"}));
    EXPECT_EQ(failure<Texts>("new Proxy({ 0: 'a', length: 1 }, {})"),
              "expected an array, found an object");
}

TEST_F(ContainerCoding, ALengthThatLiesIsAFailure) {
    const auto lying = [](const std::string& length) {
        return "new Proxy(['a'], { get: (t, k) => k === 'length' ? " + length + " : t[k] })";
    };
    EXPECT_EQ(failure<Texts>(lying("1e9")), "[1]: expected a string, found undefined");
    for (const char* length : {"-1", "1.5", "NaN", "Infinity", "4294967296", "'one'", "{}"}) {
        EXPECT_EQ(failure<Texts>(lying(length)), "reading it threw an exception") << length;
    }
    EXPECT_EQ(failure<Texts>(lying("(() => { throw 1; })()")), "reading it threw an exception");
}

TEST_F(ContainerCoding, AnArrayThatShrinksWhileItIsReadLosesItsEnd) {
    EXPECT_EQ(failure<Texts>(R"(
                  const shrinking = ['a', 'b', 'c'];
                  Object.defineProperty(shrinking, 0, {get() { shrinking.length = 1; return 'a'; }});
                  shrinking)"),
              "[1]: expected a string, found undefined");
}

TEST_F(ContainerCoding, AThrowingElementIsAFailureOfItsPlace) {
    EXPECT_EQ(failure<Texts>(R"(
                  const trap = ['a', 'b'];
                  Object.defineProperty(trap, 1, {get() { throw new Error('private'); }});
                  trap)"),
              "[1]: reading it threw an exception");
}

TEST_F(ContainerCoding, MapsHaveTheObjectsOwnKeys) {
    EXPECT_EQ(decoded<Table>("({b: 2, a: 1})").value(), (Table{{"a", 1}, {"b", 2}}));
    EXPECT_EQ(decoded<Table>("({})").value(), Table());
    EXPECT_EQ(decoded<Table>("({7: 1, '': 2, 'a\\0b': 3, '\\u{1F600}': 4})").value(),
              (Table{{"7", 1}, {"", 2}, {std::string("a\0b", 3), 3}, {"\xF0\x9F\x98\x80", 4}}));
    EXPECT_EQ(decoded<Table>("Object.create({inherited: 1}, {own: {value: 2, enumerable: true}})")
                  .value(),
              (Table{{"own", 2}}));
    EXPECT_EQ(decoded<Table>("({[Symbol('s')]: 1, a: 2})").value(), (Table{{"a", 2}}));
    EXPECT_EQ(decoded<Table>("Object.assign(Object.create(null), {a: 1})").value(),
              (Table{{"a", 1}}));
}

TEST_F(ContainerCoding, AMapsFailureNamesItsKey) {
    EXPECT_EQ(failure<Table>("({a: 1, b: 'x'})"), "b: expected a number, found a string");
    EXPECT_EQ(failure<std::vector<Table>>("[{}, {b: null}]"),
              "[1].b: expected a number, found null");
    EXPECT_EQ(failure<Table>("({get a() { throw 1; }})"), "a: reading it threw an exception");
    EXPECT_EQ(failure<Table>("[1]"), "expected an object, found an array");
    EXPECT_EQ(failure<Table>("(() => 1)"), "expected an object, found a function");
    EXPECT_EQ(failure<Table>("null"), "expected an object, found null");
}

TEST_F(ContainerCoding, MapsThatHideTheirKeysFail) {
    EXPECT_EQ(failure<Table>("new Proxy({}, {ownKeys() { throw new Error('private'); }})"),
              "reading it threw an exception");
    EXPECT_EQ(eval("1 + 1"), "2") << "the exception stayed behind in the engine";
    EXPECT_EQ(failure<Table>("const {proxy, revoke} = Proxy.revocable({}, {}); revoke(); proxy"),
              "reading it threw an exception");
    EXPECT_EQ(decoded<Table>("new Proxy({a: 1}, {})").value(), (Table{{"a", 1}}));
}

TEST_F(ContainerCoding, MapsAreWrittenAsObjects) {
    EXPECT_EQ(written(Table{{"b", 2}, {"a", 1}}), R"({"a":1,"b":2})");
    EXPECT_EQ(written(Table{}), "{}");
    EXPECT_EQ(written(std::map<std::string, std::string>{{std::string("a\0b", 3), "x"}},
                      "value['a\\0b']"),
              "x");
}

TEST_F(ContainerCoding, NoKeyIsSpecial) {
    EXPECT_EQ(decoded<Table>(R"(JSON.parse('{"__proto__": 1, "constructor": 2}'))").value(),
              (Table{{"__proto__", 1}, {"constructor", 2}}));
    EXPECT_EQ(written(Table{{"__proto__", 1}, {"constructor", 2}},
                      "Object.keys(value).join() + Object.getOwnPropertyDescriptor(value, "
                      "'__proto__').value"),
              "__proto__,constructor1");
    EXPECT_EQ(written(std::map<std::string, Table>{{"__proto__", {{"polluted", 1}}}},
                      "[Object.keys(value), value.polluted].join()"),
              "__proto__,");
}
