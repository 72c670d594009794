#include <zem/SqliteStore/Private/DescriptionText.h>
#include <zem/SqliteStore/SQLiteResult.h>

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace {

using zem::SQLiteResult;

TEST(SQLiteResult, WrapsTheCodeThatABodyReturns) {
    EXPECT_EQ(SQLiteResult([] { return SQLITE_BUSY; }).rawValue, 5);
    EXPECT_TRUE((std::is_same_v<decltype(SQLiteResult::rawValue), std::int32_t>));
}

TEST(SQLiteResult, ThrowsItselfUnlessOk) {
    EXPECT_NO_THROW(SQLiteResult(0).expectOk());
    for (const int code : {1, 19, 100, 101, 2067}) {
        try {
            SQLiteResult(code).expectOk();
            ADD_FAILURE() << code << " was not thrown";
        } catch (const SQLiteResult& thrown) {
            EXPECT_EQ(thrown.rawValue, code);
        }
    }
}

TEST(SQLiteResult, IsDescribedInSQLitesOwnWords) {
    for (const int code : {SQLITE_OK, SQLITE_CONSTRAINT, SQLITE_NOTADB, SQLITE_DONE, 77777}) {
        EXPECT_EQ(SQLiteResult(code).description(), sqlite3_errstr(code));
        EXPECT_STREQ(SQLiteResult(code).what(), sqlite3_errstr(code));
    }
    EXPECT_EQ(SQLiteResult(19).description(), "constraint failed");
}

TEST(SQLiteResult, HasATextOfItsOwnForOneThatIsNotUTF8) {
    for (const char* valid : {"", "ascii", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
        EXPECT_STREQ(zem::descriptionText(valid), valid);
    }
    // In turn: no lead byte, cut short, overlong (2 and 3 bytes), a surrogate, above U+10FFFF.
    for (const char* invalid :
         {"\x80", "a\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
        EXPECT_STREQ(zem::descriptionText(invalid), "Unknown error");
    }
    EXPECT_STREQ(zem::descriptionText(nullptr), "Unknown error");
}

} // namespace
