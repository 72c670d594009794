#include <Tessel/Bridge.h>
#include <array>
#include <utility>

namespace {

enum class Weekday { monday, tuesday_, wednesday };

constexpr std::array<std::pair<Weekday, std::string_view>, 3> weekdayTexts{{
    {Weekday::monday, "monday"},
    {Weekday::tuesday_, "tue"},
    {Weekday::wednesday, "WED"},
}};

} // namespace

template <>
struct tessel::RawTexts<Weekday> {
    static constexpr auto& table = weekdayTexts;
};

using EnumerationCoding = test::Bridge;

TEST_F(EnumerationCoding, CrossesAsItsRawText) {
    for (const auto& [value, text] : weekdayTexts) {
        EXPECT_EQ(decoded<Weekday>("'" + std::string(text) + "'"), value);
        EXPECT_EQ(written(value, "value"), text);
    }
}

TEST_F(EnumerationCoding, NamesTheChoicesButNotWhatWasFound) {
    for (const char* script : {"'tuesday_'", "'Monday'", "''", "'private'"}) {
        EXPECT_EQ(failure<Weekday>(script),
                  R"(expected one of "monday", "tue", "WED", found another string)")
            << script;
    }
    EXPECT_EQ(failure<Weekday>("0"), "expected a string, found a number");
    EXPECT_EQ(failure<Weekday>("null"), "expected a string, found null");
}

TEST_F(EnumerationCoding, RawTextsAreFoundBothWays) {
    EXPECT_EQ(tessel::rawText(Weekday::wednesday), "WED");
    EXPECT_EQ(tessel::fromRawText<Weekday>("tue"), Weekday::tuesday_);
    EXPECT_EQ(tessel::fromRawText<Weekday>("sunday"), std::nullopt);
}
