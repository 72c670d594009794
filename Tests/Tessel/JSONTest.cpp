#include <zem/Tessel/JSON.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using std::string_literals::operator""s;
using tessel::Any;
using tessel::parse;
using tessel::toText;

TEST(JSONText, DoublesAreShortestAndAsJavaScriptPrintsThem) {
    const struct {
        double number;
        const char* text;
    } table[] = {
        {2.5, "2.5"},
        {3.0, "3"},
        {-3.0, "-3"},
        {0.0, "0"},
        {-0.0, "-0"},
        {0.1, "0.1"},
        {100.0, "100"},
        {123.456, "123.456"},
        {-123.456, "-123.456"},
        {1e20, "100000000000000000000"},
        {1e21, "1e+21"},
        {1.5e21, "1.5e+21"},
        {123456789012345680000.0, "123456789012345680000"},
        {0.000001, "0.000001"},
        {0.0000015, "0.0000015"},
        {1e-7, "1e-7"},
        {-1.25e-7, "-1.25e-7"},
        {1e300, "1e+300"},
        {5e-324, "5e-324"},
        {1.7976931348623157e308, "1.7976931348623157e+308"},
        {9007199254740993.0, "9007199254740992"},
        {0.1 + 0.2, "0.30000000000000004"},
        {std::nan(""), "null"},
        {std::numeric_limits<double>::infinity(), "null"},
        {-std::numeric_limits<double>::infinity(), "null"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(toText(row.number), row.text);
    }
}

TEST(JSONText, IntegersStayApartFromDoubles) {
    EXPECT_EQ(toText(std::int64_t{9007199254740993}), "9007199254740993");
    EXPECT_EQ(toText(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(toText(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_TRUE(parse("3").value().is_int64());
    EXPECT_TRUE(parse("-3").value().is_int64());
    EXPECT_TRUE(parse("9223372036854775807").value().is_int64());
    EXPECT_TRUE(parse("9223372036854775808").value().is_uint64());
    EXPECT_EQ(parse("18446744073709551616").value(), Any(18446744073709551616.0));
    EXPECT_EQ(parse("-9223372036854775809").value(), Any(-9223372036854775809.0));
    EXPECT_TRUE(parse("3.0").value().is_double());
    EXPECT_TRUE(parse("3e0").value().is_double());
    EXPECT_TRUE(parse("2.5").value().is_double());
    EXPECT_TRUE(parse("-0").value().is_double());
    EXPECT_TRUE(std::signbit(parse("-0").value().get_double()));
    EXPECT_TRUE(parse("0").value().is_int64());
}

TEST(JSONText, EachDoubleReadsBackAsItself) {
    std::mt19937_64 random(20240229);
    for (int round = 0; round < 20000; ++round) {
        double number = 0;
        const std::uint64_t bits = random();
        std::memcpy(&number, &bits, sizeof number);
        if (round % 2 == 0) {
            number = static_cast<double>(static_cast<std::int64_t>(bits >> 20)) / 1000;
        }
        if (!std::isfinite(number)) {
            continue;
        }
        const std::string text = toText(number);
        ASSERT_EQ(parse(text).value().to_number<double>(), number) << text;
    }
}

TEST(JSONText, NumbersOutOfRange) {
    EXPECT_EQ(parse("1e-400").value(), Any(0.0));
    EXPECT_EQ(parse("[1, 1e400]").error().description(),
              "expected JSON, found a mistake at byte 9: exponent overflow");
    EXPECT_EQ(parse("1"s + std::string(400, '0')).error().description(),
              "expected JSON, found a mistake at byte 401: exponent overflow");
}

TEST(JSONText, KeysKeepTheirOrderAndThereAreNoSpaces) {
    const Any value = parse(" { \"b\" : [ 1 , 2 ] ,\n\t\"a\" : { } , \"\" : [ ] } ").value();
    EXPECT_EQ(toText(value), R"({"b":[1,2],"a":{},"":[]})");
}

TEST(JSONText, OfEqualKeysTheLastValueCountsAtTheFirstPlace) {
    EXPECT_EQ(toText(parse(R"({"a":1,"b":2,"a":3})").value()), R"({"a":3,"b":2})");
}

TEST(JSONText, EscapesWhatHasToBe) {
    EXPECT_EQ(
        toText(Any(boost::json::string(std::string_view("\"\\/\b\f\n\r\t\0\x01\x1f\x7f", 12)))),
        R"("\"\\/\b\f\n\r\t\u0000\u0001\u001f)"
        "\x7f\"");
    EXPECT_EQ(toText("\xC3\xA9\xE2\x80\xA8\xF0\x9F\x98\x80"),
              "\"\xC3\xA9\xE2\x80\xA8\xF0\x9F\x98\x80\"");
    EXPECT_EQ(toText(Any(boost::json::object{{"a\"\n", 1}})), R"({"a\"\n":1})");
    EXPECT_EQ(toText(""), R"("")");
    EXPECT_EQ(toText(nullptr), "null");
    EXPECT_EQ(toText(true), "true");
    EXPECT_EQ(toText(false), "false");
}

TEST(JSONText, ReadsEscapes) {
    EXPECT_EQ(parse(R"("\"\\\/\b\f\n\r\t\u0000\u00e9\u20AC\ud83d\ude00")").value(),
              Any(boost::json::string(
                  std::string_view("\"\\/\b\f\n\r\t\0\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", 18))));
}

TEST(JSONText, EscapedSurrogatesWithoutAPartnerAreReplaced) {
    EXPECT_EQ(parse(R"("\ud83d")").value(), Any("\xEF\xBF\xBD"));
    EXPECT_EQ(parse(R"("\ude00")").value(), Any("\xEF\xBF\xBD"));
    EXPECT_EQ(parse(R"("\ud83d\ud83d\ude00\ude00")").value(),
              Any("\xEF\xBF\xBD\xF0\x9F\x98\x80\xEF\xBF\xBD"));
    EXPECT_EQ(parse(R"({"\uD83D":"\\ud83d\uDE00x"})").value(),
              Any(boost::json::object{{"\xEF\xBF\xBD", "\\ud83d\xEF\xBF\xBDx"}}));
    EXPECT_EQ(parse(R"(["\ud83d",])").error().description(),
              "expected JSON, found a mistake at byte 10: syntax error");
}

TEST(JSONText, MistakesAreSaidWithTheirPlace) {
    const struct {
        std::string text;
        const char* mistake;
    } table[] = {
        {"", "at byte 0: incomplete JSON"},
        {" ", "at byte 1: incomplete JSON"},
        {"[1,", "at byte 3: incomplete JSON"},
        {"{\"a\"", "at byte 4: incomplete JSON"},
        {"\"abc", "at byte 4: incomplete JSON"},
        {"nul", "at byte 3: incomplete JSON"},
        {"[1,]", "at byte 3: syntax error"},
        {"{a:1}", "at byte 1: syntax error"},
        {"'a'", "at byte 0: syntax error"},
        {"NaN", "at byte 0: syntax error"},
        {"// a\n1", "at byte 0: syntax error"},
        {"[1] x", "at byte 4: extra data"},
        {"[1] [2]", "at byte 4: extra data"},
        {"01", "at byte 1: extra data"},
        {"1.", "at byte 2: syntax error"},
        {"[1.]", "at byte 3: syntax error"},
        {".5", "at byte 0: syntax error"},
        {"+1", "at byte 0: syntax error"},
        {"\"\x01\"", "at byte 1: syntax error"},
        {"[\"a\nb\"]", "at byte 3: syntax error"},
        {"[\"\xFF\"]", "at byte 2: syntax error"},
        {"[\"a\\x\"]", "at byte 4: syntax error"},
        {"\xEF\xBB\xBF[]", "at byte 0: syntax error"},
        {"[1]\0"s, "at byte 3: extra data"},
    };
    for (const auto& row : table) {
        const auto outcome = parse(row.text);
        ASSERT_FALSE(outcome) << row.text;
        EXPECT_EQ(outcome.error().description(), "expected JSON, found a mistake "s + row.mistake)
            << row.text;
    }
}

TEST(JSONText, SpaceAroundIsNoMistake) {
    EXPECT_EQ(parse(" \t\r\n[1]\n\r\t ").value(), Any(boost::json::array{1}));
}

TEST(JSONText, NestingIsBounded) {
    EXPECT_EQ(toText(parse(std::string(512, '[') + std::string(512, ']')).value()),
              std::string(512, '[') + std::string(512, ']'));
    EXPECT_EQ(parse(std::string(513, '[')).error().description(), "nested deeper than 512 levels");
    EXPECT_EQ(parse(std::string(1 << 20, '[')).error().description(),
              "nested deeper than 512 levels");
}
