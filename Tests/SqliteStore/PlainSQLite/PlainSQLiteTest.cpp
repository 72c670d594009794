// The store's own sources, linked to a SQLite that cannot encrypt.

#include <zem/SqliteStore/Private/SQLiteConnection.h>

#include <gtest/gtest.h>

#include <Support/TemporaryFolder.h>
#include <filesystem>

// The one entry that a plain library does not have. Opening must have stopped before it is called.
extern "C" int sqlite3_key(sqlite3*, const void*, int) {
    ADD_FAILURE() << "a key was given to a library that ignores it";
    return SQLITE_OK;
}

namespace {

using namespace zem;

TEST(SQLiteConnectionOnPlainSQLite, RefusesToOpenBeforeAnythingIsSetUp) {
    const test::TemporaryFolder folder;
    const auto open = [](SQLiteStorage storage) {
        SQLiteConnection connection({.storage = std::move(storage),
                                     .migrations = {{1, {"create table t (value)"}}},
                                     .setUpActions = {[](SQLiteConnection&) {
                                         ADD_FAILURE() << "was set up";
                                     }}});
    };
    for (const SQLiteStorage& storage :
         {SQLiteStorage::memory(), SQLiteStorage::file(folder.path())}) {
        const sqlite3_int64 memory = sqlite3_memory_used();
        try {
            open(storage);
            FAIL() << "an unencrypted database was opened";
        } catch (const SQLiteConnection::ConnectionError& error) {
            EXPECT_STREQ(error.rawValue(),
                         "Application appears to be linked to SQLite, not SQLCipher");
        }
        EXPECT_EQ(sqlite3_memory_used(), memory);
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(SQLiteConnectionOnPlainSQLite, KeepsNothingOfAHandleThatCannotBeOpened) {
    sqlite3_initialize();
    const sqlite3_int64 before = sqlite3_memory_used();
    // No file can be made there.
    EXPECT_THROW(
        SQLiteConnection(
            {.storage = SQLiteStorage::file("/proc/self"), .migrations = {}, .setUpActions = {}}),
        SQLiteResult);
    EXPECT_EQ(sqlite3_memory_used(), before);
}

} // namespace
