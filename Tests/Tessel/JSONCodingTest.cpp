#include <zem/Tessel/JSON.h>

#include <boost/describe.hpp>
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace {

enum class Level { low, high };

constexpr std::array<std::pair<Level, std::string_view>, 2> levelTexts{{
    {Level::low, "low"},
    {Level::high, "high"},
}};

struct Reading {
    std::string delete_;
    bool good = false;
    std::int32_t count = 0;
    double value = 0;
    std::optional<std::string> note;
    Level level = Level::low;
    std::vector<double> history;
    std::map<std::string, tessel::Any> extra;
    bool operator==(const Reading&) const = default;
};
BOOST_DESCRIBE_STRUCT(Reading, (), (delete_, good, count, value, note, level, history, extra))

template <class T>
std::string failure(std::string_view text) {
    const auto outcome = tessel::fromAny<T>(tessel::parse(text).value());
    return outcome ? "it was decoded" : outcome.error().description();
}

} // namespace

template <>
struct tessel::RawTexts<Level> {
    static constexpr auto& table = levelTexts;
};

TEST(JSONCoding, RecordsCrossAsTheyDoToTheEngine) {
    const Reading reading{"x", true, 3, 2.5, std::nullopt, Level::high, {1, 2.5}, {{"a", {1}}}};
    const std::string text = R"({"delete":"x","good":true,"count":3,"value":2.5,"level":"high",)"
                             R"("history":[1,2.5],"extra":{"a":[1]}})";
    EXPECT_EQ(tessel::toText(tessel::toAny(reading)), text);
    EXPECT_EQ(tessel::fromAny<Reading>(tessel::parse(text).value()), reading);
}

TEST(JSONCoding, AbsentOptionalsAreLeftOutAndReadFromNull) {
    Reading reading;
    EXPECT_FALSE(tessel::toAny(reading).as_object().contains("note"));
    reading.note = "n";
    EXPECT_EQ(tessel::toAny(reading).at("note"), "n");
    using Maybe = std::optional<std::string>;
    EXPECT_EQ(tessel::fromAny<Maybe>(nullptr).value(), std::nullopt);
    EXPECT_EQ(tessel::fromAny<Maybe>("x").value(), "x");
}

TEST(JSONCoding, FailuresNamePlaceAndKinds) {
    EXPECT_EQ(failure<Reading>("[]"), "expected an object, found an array");
    EXPECT_EQ(failure<Reading>("{}"), "delete: expected a string, found undefined");
    EXPECT_EQ(failure<Reading>(R"({"delete":"x","good":1})"),
              "good: expected a boolean, found a number");
    EXPECT_EQ(failure<Reading>(R"({"delete":"x","good":true,"count":2.5})"),
              "count: expected an integer, found another number");
    EXPECT_EQ(failure<Reading>(R"({"delete":"x","good":true,"count":2147483648})"),
              "count: expected an integer of 32 bits, found one out of range");
    EXPECT_EQ(
        failure<Reading>(
            R"({"delete":"x","good":true,"count":1,"value":1,"level":"high","history":[1,{}]})"),
        "history[1]: expected a number, found an object");
    EXPECT_EQ(failure<std::int64_t>("9223372036854775808"),
              "expected an integer, found another number");
    using Flags = std::map<std::string, bool>;
    EXPECT_EQ(failure<Flags>(R"({"a":true,"b":null})"), "b: expected a boolean, found null");
    EXPECT_EQ(failure<Level>(R"("private")"),
              R"(expected one of "low", "high", found another string)");
}

TEST(JSONCoding, NumbersOfEveryFormAreNumbers) {
    EXPECT_EQ(tessel::fromAny<double>(3), 3.0);
    EXPECT_EQ(tessel::fromAny<double>(std::uint64_t{1} << 63), 9223372036854775808.0);
    EXPECT_EQ(tessel::fromAny<std::int64_t>(3.0), 3);
    EXPECT_EQ(tessel::fromAny<std::int64_t>(-3), -3);
}
