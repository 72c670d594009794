#include <zem/SqliteStore/SQLiteValue.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <type_traits>

namespace {

using zem::SQLiteValue;

template <class Case>
bool holds(const SQLiteValue& value) {
    return std::holds_alternative<Case>(value.value);
}

TEST(SQLiteValue, KeepsItsCasesInTheirOrder) {
    using Union = decltype(SQLiteValue::value);
    EXPECT_EQ(std::variant_size_v<Union>, 4u);
    EXPECT_TRUE((std::is_same_v<std::variant_alternative_t<0, Union>, std::string>));
    EXPECT_TRUE((std::is_same_v<std::variant_alternative_t<1, Union>, double>));
    EXPECT_TRUE((std::is_same_v<std::variant_alternative_t<2, Union>, bool>));
    EXPECT_TRUE((std::is_same_v<std::variant_alternative_t<3, Union>, std::nullptr_t>));
}

TEST(SQLiteValue, IsWrittenFromLiterals) {
    const SQLiteValue text = "a";
    const SQLiteValue integer = 3;
    const SQLiteValue wide = std::int64_t{1} << 40;
    const SQLiteValue floating = 2.5;
    const SQLiteValue yes = true;
    const SQLiteValue null = nullptr;

    ASSERT_TRUE(holds<std::string>(text));
    EXPECT_EQ(*text.string(), "a");
    ASSERT_TRUE(holds<double>(integer));
    EXPECT_EQ(*integer.number(), 3.0);
    EXPECT_EQ(*wide.number(), 1099511627776.0);
    EXPECT_EQ(*floating.number(), 2.5);
    ASSERT_TRUE(holds<bool>(yes));
    EXPECT_EQ(*yes.boolean(), true);
    EXPECT_TRUE(null.isNull());
}

TEST(SQLiteValue, GivesOnlyThePayloadOfItsCase) {
    const SQLiteValue text = "a";
    EXPECT_EQ(text.number(), nullptr);
    EXPECT_EQ(text.boolean(), nullptr);
    EXPECT_FALSE(text.isNull());
    EXPECT_EQ(SQLiteValue(1).string(), nullptr);
    EXPECT_EQ(SQLiteValue(1).boolean(), nullptr);
}

TEST(SQLiteValue, EqualsOnlyTheSameCaseWithAnEqualPayload) {
    EXPECT_EQ(SQLiteValue("a"), SQLiteValue(std::string("a")));
    EXPECT_NE(SQLiteValue("a"), SQLiteValue("b"));
    EXPECT_EQ(SQLiteValue(3), SQLiteValue(3.0));
    EXPECT_NE(SQLiteValue(1), SQLiteValue(true));
    EXPECT_NE(SQLiteValue(0), SQLiteValue(false));
    EXPECT_NE(SQLiteValue("1"), SQLiteValue(1));
    EXPECT_NE(SQLiteValue(""), SQLiteValue(nullptr));
    EXPECT_EQ(SQLiteValue(nullptr), SQLiteValue());
    const double notANumber = std::numeric_limits<double>::quiet_NaN();
    EXPECT_NE(SQLiteValue(notANumber), SQLiteValue(notANumber));
}

TEST(SQLiteValue, TakesNeitherPointersNorCharacters) {
    EXPECT_FALSE((std::is_convertible_v<int*, SQLiteValue>));
    EXPECT_FALSE((std::is_convertible_v<char, SQLiteValue>));
    EXPECT_FALSE((std::is_convertible_v<char32_t, SQLiteValue>));
}

TEST(SQLiteValue, DecodingErrorHasNoFields) {
    EXPECT_EQ(SQLiteValue::DecodingError(), SQLiteValue::DecodingError());
    EXPECT_EQ(sizeof(SQLiteValue::DecodingError), sizeof(std::exception));
}

} // namespace
