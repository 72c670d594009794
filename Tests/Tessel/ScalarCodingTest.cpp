#include <Tessel/Bridge.h>
#include <cmath>
#include <cstdint>
#include <limits>

using ScalarCoding = test::Bridge;
using std::string_literals::operator""s;

TEST_F(ScalarCoding, BooleansAreStrict) {
    EXPECT_EQ(decoded<bool>("true"), true);
    EXPECT_EQ(decoded<bool>("false"), false);
    const struct {
        const char* script;
        const char* text;
    } table[] = {
        {"0", "expected a boolean, found a number"},
        {"1", "expected a boolean, found a number"},
        {"''", "expected a boolean, found a string"},
        {"'true'", "expected a boolean, found a string"},
        {"null", "expected a boolean, found null"},
        {"undefined", "expected a boolean, found undefined"},
        {"[]", "expected a boolean, found an array"},
        {"({})", "expected a boolean, found an object"},
        {"new Boolean(true)", "expected a boolean, found an object"},
        {"(() => true)", "expected a boolean, found a function"},
        {"Symbol()", "expected a boolean, found a symbol"},
        {"1n", "expected a boolean, found a BigInt"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(failure<bool>(row.script), row.text) << row.script;
    }
    EXPECT_EQ(written(true, "value === true"), "true");
    EXPECT_EQ(written(false, "value === false"), "true");
}

TEST_F(ScalarCoding, NumbersAreNotConverted) {
    EXPECT_EQ(decoded<double>("2.5"), 2.5);
    EXPECT_EQ(decoded<double>("-Infinity"), -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(decoded<double>("NaN").value()));
    EXPECT_TRUE(std::signbit(decoded<double>("-0").value()));
    EXPECT_EQ(failure<double>("'2'"), "expected a number, found a string");
    EXPECT_EQ(failure<double>("true"), "expected a number, found a boolean");
    EXPECT_EQ(failure<double>("null"), "expected a number, found null");
    EXPECT_EQ(failure<double>("2n"), "expected a number, found a BigInt");
    EXPECT_EQ(failure<double>("new Number(2)"), "expected a number, found an object");
    EXPECT_EQ(failure<double>("new Date(0)"), "expected a number, found an object");
}

TEST_F(ScalarCoding, NumbersAreWrittenAsTheyAre) {
    EXPECT_EQ(written(2.5, "value === 2.5"), "true");
    EXPECT_EQ(written(std::nan(""), "Number.isNaN(value)"), "true");
    EXPECT_EQ(written(std::numeric_limits<double>::infinity(), "value === Infinity"), "true");
    EXPECT_EQ(written(-0.0, "Object.is(value, -0)"), "true");
    EXPECT_EQ(written(std::numeric_limits<double>::denorm_min(), "value === Number.MIN_VALUE"),
              "true");
}

TEST_F(ScalarCoding, IntegersAreIntegralAndInRange) {
    constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
    const struct {
        const char* script;
        std::int64_t integer;
    } good[] = {
        {"0", 0},
        {"-0", 0},
        {"3", 3},
        {"3.0", 3},
        {"-1", -1},
        {"2 ** 31", 2147483648},
        {"2 ** 53", 9007199254740992},
        {"2 ** 62", 4611686018427387904},
        {"-(2 ** 63)", least},
        {"2 ** 63 - 1024", 9223372036854774784},
    };
    for (const auto& row : good) {
        EXPECT_EQ(decoded<std::int64_t>(row.script), row.integer) << row.script;
    }
    for (const char* script : {"NaN", "Infinity", "-Infinity", "2.5", "-0.5", "5e-324", "2 ** 63",
                               "-(2 ** 63) - 2048", "1e300"}) {
        EXPECT_EQ(failure<std::int64_t>(script), "expected an integer, found another number")
            << script;
    }
    EXPECT_EQ(failure<std::int64_t>("'3'"), "expected an integer, found a string");
    EXPECT_EQ(failure<std::int64_t>("3n"), "expected an integer, found a BigInt");
    EXPECT_EQ(failure<std::int64_t>("true"), "expected an integer, found a boolean");
}

TEST_F(ScalarCoding, NarrowIntegersHaveTheirOwnRange) {
    EXPECT_EQ(decoded<std::int32_t>("2147483647"), 2147483647);
    EXPECT_EQ(decoded<std::int32_t>("-2147483648"), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(failure<std::int32_t>("2147483648"),
              "expected an integer of 32 bits, found one out of range");
    EXPECT_EQ(failure<std::int32_t>("-2147483649"),
              "expected an integer of 32 bits, found one out of range");
    EXPECT_EQ(failure<std::int16_t>("32768"),
              "expected an integer of 16 bits, found one out of range");
    EXPECT_EQ(failure<std::int32_t>("0.5"), "expected an integer, found another number");
}

TEST_F(ScalarCoding, IntegersAreWrittenAsNumbers) {
    EXPECT_EQ(written(std::int64_t{9007199254740991}, "value === 9007199254740991"), "true");
    EXPECT_EQ(written(std::int32_t{-7}, "value === -7"), "true");
}

TEST_F(ScalarCoding, TextIsNotMadeOfOtherKinds) {
    EXPECT_EQ(decoded<std::string>("'key'"), "key"s);
    EXPECT_EQ(decoded<std::string>("''"), ""s);
    EXPECT_EQ(failure<std::string>("3"), "expected a string, found a number");
    EXPECT_EQ(failure<std::string>("new String('key')"), "expected a string, found an object");
    EXPECT_EQ(failure<std::string>("['key']"), "expected a string, found an array");
    EXPECT_EQ(failure<std::string>("({toString() { return 'key'; }})"),
              "expected a string, found an object");
}

TEST_F(ScalarCoding, AnyTextCrossesBothWays) {
    const struct {
        const char* name;
        const char* script;
        std::string text;
    } table[] = {
        {"empty", R"('')", ""s},
        {"NUL alone", R"('\0')", "\0"s},
        {"NUL inside", R"('a\0b')", "a\0b"s},
        {"2 bytes", R"('\u00e9')", "\xC3\xA9"s},
        {"3 bytes", R"('\u20ac')", "\xE2\x82\xAC"s},
        {"4 bytes", R"('\u{1F600}')", "\xF0\x9F\x98\x80"s},
        {"all at once", R"('a\0\u00e9\u20ac\u{1F600}z')",
         "a\0\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"s},
        {"no mark is lost", R"('\ufeffa')",
         "\xEF\xBB\xBF"
         "a"s},
        {"noncharacter", R"('\uffff')", "\xEF\xBF\xBF"s},
    };
    for (const auto& row : table) {
        EXPECT_EQ(decoded<std::string>(row.script), row.text) << row.name;
        EXPECT_EQ(written(row.text, "value === "s + row.script), "true") << row.name;
    }
}

TEST_F(ScalarCoding, InvalidTextIsReplaced) {
    EXPECT_EQ(decoded<std::string>(R"('a\ud83db')"), "a\xEF\xBF\xBD"
                                                     "b"s);
    EXPECT_EQ(decoded<std::string>(R"('a\ude00b')"), "a\xEF\xBF\xBD"
                                                     "b"s);
    EXPECT_EQ(decoded<std::string>(R"('a\ud83d')"), "a\xEF\xBF\xBD"s);
    EXPECT_EQ(decoded<std::string>(R"('\ude00\ud83d')"), "\xEF\xBF\xBD\xEF\xBF\xBD"s);
    EXPECT_EQ(written("a\xFF"
                      "b"s,
                      R"(value === 'a\ufffdb')"),
              "true");
    EXPECT_EQ(written("a\xC3"s, R"(value === 'a\ufffd')"), "true");
    EXPECT_EQ(written("a\xC3"
                      "b"s,
                      R"(value === 'a\ufffdb')"),
              "true");
    EXPECT_EQ(written("\xE2\x82x"s, R"(value === '\ufffdx')"), "true");
    EXPECT_EQ(written("\xF0\x9F\x98"s, R"(value === '\ufffd')"), "true");
    EXPECT_EQ(written("\xED\xA0\x80"s, R"(value === '\ufffd\ufffd\ufffd')"), "true");
    EXPECT_EQ(written("\xC0\x80\xF4\x90\x80\x80"s, R"(value === '\ufffd'.repeat(6))"), "true");
}

TEST_F(ScalarCoding, LongTextCrossesWhole) {
    std::string text(1 << 20, 'x');
    EXPECT_EQ(written(text, "value === 'x'.repeat(1048576)"), "true");
    text += "\xF0\x9F\x98\x80";
    EXPECT_EQ(decoded<std::string>(R"('x'.repeat(1048576) + '\u{1F600}')"), text);
}

TEST_F(ScalarCoding, RopesAndSlicesAreText) {
    EXPECT_EQ(
        decoded<std::string>("let rope = 'a'; for (let i = 0; i < 5; ++i) rope += rope; rope"),
        std::string(32, 'a'));
    EXPECT_EQ(decoded<std::string>("'0123456789'.slice(3, 5)"), "34"s);
}
