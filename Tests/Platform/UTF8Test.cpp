#include <zem/Platform/UTF8.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::string_view_literals;
using zem::platform::isUTF8;

TEST(UTF8, TakesTextOfAnyLengthOfCharacter) {
    EXPECT_TRUE(isUTF8(""));
    EXPECT_TRUE(isUTF8("plain"));
    EXPECT_TRUE(isUTF8("\u00fc \u20ac \U0001F642"));
    EXPECT_TRUE(isUTF8("\xEF\xBB\xBF{}")); // a byte order mark
}

TEST(UTF8, TakesNULAnywhere) {
    EXPECT_TRUE(isUTF8("\0"sv));
    EXPECT_TRUE(isUTF8("a\0\0\u00fc\0"sv));
    EXPECT_FALSE(isUTF8("a\0\xFF"sv));
    EXPECT_FALSE(isUTF8("\xFF\0a"sv));
}

TEST(UTF8, RefusesOtherBytes) {
    EXPECT_FALSE(isUTF8("\x80"));         // no character begins so
    EXPECT_FALSE(isUTF8("caf\xE9"));      // Latin-1
    EXPECT_FALSE(isUTF8("cut \xE2\x82")); // half a character at the end
    EXPECT_FALSE(isUTF8("\xC0\xAF"));     // two bytes for what one says
    EXPECT_FALSE(isUTF8("\xED\xA0\x80")); // half a surrogate pair
    EXPECT_FALSE(isUTF8("\xF4\x90\x80\x80"));
    EXPECT_FALSE(isUTF8("\x89PNG\r\n\x1A\n"));
}

} // namespace
