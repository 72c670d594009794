#include <zem/SqliteStore/Private/LocalizedDescription.h>
#include <zem/SqliteStore/SQLiteConnectionError.h>
#include <zem/SqliteStore/SQLiteResult.h>
#include <zem/SqliteStore/SQLiteValue.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <system_error>

namespace {

using namespace zem;

template <class Error>
std::string describe(const Error& error) {
    return localizedDescription(std::make_exception_ptr(error));
}

TEST(LocalizedDescription, NamesTypeAndCode) {
    EXPECT_EQ(describe(SQLiteResult(19)),
              "The operation couldn't be completed. (SQLiteResult error 19.)");
    EXPECT_EQ(describe(SQLiteConnectionError(SQLiteConnectionError::walJournalModeError)),
              "The operation couldn't be completed. (SQLiteConnection.ConnectionError error 1.)");
    EXPECT_EQ(describe(SQLiteValue::DecodingError()),
              "The operation couldn't be completed. (SQLiteValue.DecodingError error 1.)");
}

TEST(LocalizedDescription, NamesWhatIsNotTheStoresToo) {
    EXPECT_EQ(describe(std::system_error(ENOSPC, std::generic_category())),
              "The operation couldn't be completed. (std::system_error error 28.)");
    EXPECT_EQ(describe(std::bad_alloc()),
              "The operation couldn't be completed. (std::bad_alloc error 1.)");
    EXPECT_EQ(describe(7), "The operation couldn't be completed. (unknown error 1.)");
}

TEST(LocalizedDescription, SaysNothingOfWhatTheErrorWasAbout) {
    EXPECT_EQ(describe(std::runtime_error("a private matter")),
              "The operation couldn't be completed. (std::runtime_error error 1.)");
}

} // namespace
