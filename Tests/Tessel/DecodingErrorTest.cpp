#include <zem/Tessel/DecodingError.h>

#include <gtest/gtest.h>

using tessel::DecodingError;
using zem::js::Kind;

TEST(DecodingError, NamesTheKindsOfBothSides) {
    const struct {
        Kind found;
        const char* text;
    } table[] = {
        {Kind::undefined, "expected a string, found undefined"},
        {Kind::null, "expected a string, found null"},
        {Kind::boolean, "expected a string, found a boolean"},
        {Kind::number, "expected a string, found a number"},
        {Kind::string, "expected a string, found a string"},
        {Kind::symbol, "expected a string, found a symbol"},
        {Kind::bigInt, "expected a string, found a BigInt"},
        {Kind::object, "expected a string, found an object"},
        {Kind::array, "expected a string, found an array"},
        {Kind::function, "expected a string, found a function"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(DecodingError::mismatch("a string", row.found).description(), row.text);
    }
}

TEST(DecodingError, SaysWhereFromTheOutsideIn) {
    const DecodingError error{{}, "wrong"};
    EXPECT_EQ(error.description(), "wrong");
    EXPECT_EQ(DecodingError(error).inField("keyColumn").description(), "keyColumn: wrong");
    EXPECT_EQ(DecodingError(error).inField("keyColumn").inElement(3).description(),
              "[3].keyColumn: wrong");
    EXPECT_EQ(DecodingError(error).inElement(2).inElement(1).inField("rows").description(),
              "rows[1][2]: wrong");
    EXPECT_EQ(DecodingError(error).inField("b").inField("a").description(), "a.b: wrong");
}

TEST(DecodingError, SaysHowDeepIsTooDeep) {
    EXPECT_EQ(DecodingError::tooDeep().description(), "nested deeper than 512 levels");
}
