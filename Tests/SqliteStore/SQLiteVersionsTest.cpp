#include <zem/SqliteStore/SQLiteVersions.h>

#include <gmock/gmock.h>
#include <sqlite3.h>

namespace {

TEST(SQLiteVersions, AreThoseOfTheLinkedEngine) {
    const zem::SQLiteVersions versions = zem::sqliteVersions();
    EXPECT_THAT(versions.sqlcipher, testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+ [a-z]+"));
    EXPECT_EQ(versions.sqlite, SQLITE_VERSION);
}

} // namespace
