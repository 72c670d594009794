#include <zem/SqliteStore/Private/SQLiteConnection.h>

#include <gtest/gtest.h>

#include <SqliteStore/Expect.h>
#include <SqliteStore/RawDatabase.h>
#include <Support/TemporaryFolder.h>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace zem;
using test::RawDatabase;
using test::thrownCode;
using Rows = std::vector<std::vector<SQLiteValue>>;
using SetUpActions = std::vector<SQLiteConnection::SetUpAction>;

SQLiteConnection::Options memory(SetUpActions setUpActions = {}) {
    return {.storage = SQLiteStorage::memory(),
            .migrations = {},
            .setUpActions = std::move(setUpActions)};
}

SQLiteConnection::Options file(fs::path folder, SetUpActions setUpActions = {}) {
    return {.storage = SQLiteStorage::file(std::move(folder)),
            .migrations = {{1, {"create table t (value)"}}},
            .setUpActions = std::move(setUpActions)};
}

std::string text(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

TEST(SQLiteConnection, OpensZemDbInAFolderThatItCreates) {
    const test::TemporaryFolder folder;
    const fs::path nested = folder / "one" / "two" / "three";
    {
        const SQLiteConnection connection(file(nested));
    }
    EXPECT_EQ(RawDatabase(nested / "zem.db").column("PRAGMA user_version").at(0), "1");
    const SQLiteConnection again(file(nested)); // existing folders are fine
}

TEST(SQLiteConnection, OpensTheFileThatTheOptionsName) {
    const test::TemporaryFolder folder;
    SQLiteConnection::Options options = file(folder.path());
    options.fileName = "other.db";
    {
        const SQLiteConnection connection(options);
    }
    EXPECT_EQ(RawDatabase(folder / "other.db").column("PRAGMA user_version").at(0), "1");
    EXPECT_FALSE(fs::exists(folder / "zem.db"));
}

TEST(SQLiteConnection, OpensFoldersOfAnyName) {
    const test::TemporaryFolder folder;
    for (const char* name :
         {"with space", "100%", "%41", "what?", "a#b", "a&b=c", "\xC3\xBCml\xC3\xA4ut",
          "\xE6\x97\xA5\xE6\x9C\xAC", "quote'\"", "trailing/", "up/../beside", "./dot"}) {
        const fs::path place = folder / name;
        {
            const SQLiteConnection connection(file(place));
        }
        EXPECT_TRUE(fs::is_regular_file(place / "zem.db")) << name;
        EXPECT_EQ(RawDatabase(place / "zem.db").column("PRAGMA user_version").at(0), "1") << name;
    }
}

TEST(SQLiteConnection, OpensAFolderNamedFromTheWorkingFolder) {
    const test::TemporaryFolder folder;
    const fs::path relative = fs::relative(folder.path());
    ASSERT_TRUE(relative.is_relative());
    {
        const SQLiteConnection connection(file(relative / "beside"));
    }
    EXPECT_TRUE(fs::is_regular_file(folder / "beside" / "zem.db"));
}

TEST(SQLiteConnection, ThrowsTheFileSystemsErrorUnchanged) {
    const test::TemporaryFolder folder;
    std::ofstream(folder / "file") << "in the way";
    for (const fs::path& place : {folder / "file", folder / "file" / "below"}) {
        try {
            const SQLiteConnection connection(file(place));
            FAIL() << place << " was opened";
        } catch (const fs::filesystem_error& error) {
            EXPECT_EQ(error.code(), std::errc::not_a_directory) << place;
            EXPECT_EQ(error.path1(), place);
        }
    }
    EXPECT_EQ(text(folder / "file"), "in the way");
}

TEST(SQLiteConnection, ThrowsTheFileSystemsErrorWhereNoFolderCanBeMade) {
    const fs::path place = "/proc/zem";
    EXPECT_THROW(SQLiteConnection connection(file(place)), fs::filesystem_error);
}

TEST(SQLiteConnection, CannotOpenInAFolderThatTakesNoFiles) {
    // Not even the superuser can make a file there.
    EXPECT_EQ(thrownCode([] { SQLiteConnection connection(file("/proc/self")); }), SQLITE_CANTOPEN);
}

TEST(SQLiteConnection, CannotOpenAFolderInTheFilesPlace) {
    const test::TemporaryFolder folder;
    fs::create_directory(folder / "zem.db");
    EXPECT_EQ(thrownCode([&] { SQLiteConnection connection(file(folder.path())); }),
              SQLITE_CANTOPEN);
    EXPECT_TRUE(fs::is_directory(folder / "zem.db"));
}

TEST(SQLiteConnection, KeepsAMemoryDatabaseOffTheFileSystem) {
    const test::TemporaryFolder folder;
    const fs::path before = fs::current_path();
    fs::current_path(folder.path());
    {
        SQLiteConnection connection(memory());
        connection.query("create table t (value)", {});
        EXPECT_TRUE(fs::is_empty(folder.path()));
    }
    fs::current_path(before);
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST(SQLiteConnection, RunsTheSetUpActionsInOrderBeforeTheMigrations) {
    const test::TemporaryFolder folder;
    std::vector<std::string> ran;
    const auto version = [](SQLiteConnection& connection) {
        return *connection.query("PRAGMA user_version", {}).rows.at(0).at(0).number();
    };
    SQLiteConnection connection(
        file(folder.path(), {[&](SQLiteConnection& given) {
                                 ran.push_back("first at " + std::to_string(version(given)));
                             },
                             [&](SQLiteConnection& given) {
                                 ran.push_back("second at " + std::to_string(version(given)));
                             }}));
    EXPECT_EQ(ran, (std::vector<std::string>{"first at 0.000000", "second at 0.000000"}));
    EXPECT_EQ(version(connection), 1);
}

TEST(SQLiteConnection, StopsAtTheFirstSetUpActionThatFails) {
    const test::TemporaryFolder folder;
    int later = 0;
    EXPECT_THROW(SQLiteConnection connection(file(
                     folder.path(), {[](SQLiteConnection&) { throw std::logic_error("refused"); },
                                     [&](SQLiteConnection&) {
                                         ++later;
                                     }})),
                 std::logic_error);
    EXPECT_EQ(later, 0);
}

TEST(SQLiteConnection, LeavesNoNewEmptyFileBehind) {
    const test::TemporaryFolder folder;
    EXPECT_THROW(SQLiteConnection connection(file(folder.path(), {[&](SQLiteConnection&) {
                                                      EXPECT_TRUE(fs::exists(folder / "zem.db"));
                                                      throw std::logic_error("refused");
                                                  }})),
                 std::logic_error);
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST(SQLiteConnection, LeavesAFileThatWasThereBefore) {
    const test::TemporaryFolder folder;
    std::ofstream(folder / "zem.db").close();
    EXPECT_THROW(SQLiteConnection connection(file(folder.path(), {[](SQLiteConnection&) {
                                                      throw std::logic_error("refused");
                                                  }})),
                 std::logic_error);
    EXPECT_TRUE(fs::exists(folder / "zem.db"));
    EXPECT_EQ(fs::file_size(folder / "zem.db"), 0u);
}

TEST(SQLiteConnection, LeavesANewFileThatSomethingWasWrittenTo) {
    const test::TemporaryFolder folder;
    EXPECT_THROW(SQLiteConnection connection(file(folder.path(), {[](SQLiteConnection& given) {
                                                      given.query("create table kept (x)", {});
                                                      throw std::logic_error("refused");
                                                  }})),
                 std::logic_error);
    EXPECT_EQ(RawDatabase(folder / "zem.db").column("select name from sqlite_master"),
              std::vector<std::string>{"kept"});
}

TEST(SQLiteConnection, SwitchesToWriteAheadLogging) {
    const test::TemporaryFolder folder;
    SQLiteConnection connection(file(folder.path(), {[](SQLiteConnection& given) {
                                         given.enableWriteAheadLogging();
                                     }}));
    EXPECT_EQ(connection.query("PRAGMA journal_mode", {}).rows, (Rows{{"wal"}}));
    EXPECT_EQ(connection.query("PRAGMA synchronous", {}).rows, (Rows{{1}})); // NORMAL
    EXPECT_TRUE(fs::exists(folder / "zem.db-wal"));
}

TEST(SQLiteConnection, CannotSwitchAMemoryDatabaseToWriteAheadLogging) {
    try {
        SQLiteConnection connection(memory({[](SQLiteConnection& given) {
            given.enableWriteAheadLogging();
        }}));
        FAIL() << "a memory database took to write-ahead logging";
    } catch (const SQLiteConnection::ConnectionError& error) {
        EXPECT_EQ(error, SQLiteConnectionError(SQLiteConnectionError::walJournalModeError));
        EXPECT_STREQ(error.what(), "Unable to set journal mode to WAL");
    }
}

TEST(SQLiteConnectionError, HasItsMessagesAsRawValues) {
    EXPECT_STREQ(SQLiteConnectionError(SQLiteConnectionError::sqlcipherLinkError).rawValue(),
                 "Application appears to be linked to SQLite, not SQLCipher");
    EXPECT_STREQ(SQLiteConnectionError(SQLiteConnectionError::walJournalModeError).rawValue(),
                 "Unable to set journal mode to WAL");
    EXPECT_STREQ(SQLiteConnectionError(SQLiteConnectionError::walJournalModeError).what(),
                 "Unable to set journal mode to WAL");
}

class SQLiteConnectionEncryption : public testing::Test {
  protected:
    static constexpr std::string_view plainHeader{"SQLite format 3\0", 16};

    const test::TemporaryFolder folder;
    const fs::path database = folder / "zem.db";
    const platform::Bytes key{'s', 'e', 'c', 'r', 'e', 't'};
    const platform::Bytes salt{0x00, 0x01, 0x0A, 0x10, 0x7F, 0x80, 0x9A, 0xAB,
                               0xBC, 0xCD, 0xDE, 0xEF, 0xF0, 0xFF, 0x0F, 0x55};
    const std::string saltHex = "00010a107f809aabbccddeeff0ff0f55";
};

TEST_F(SQLiteConnectionEncryption, EncryptsWithTheKey) {
    {
        SQLiteConnection connection(file(folder.path(), {[&](SQLiteConnection& given) {
                                             given.useEncryptionKey(key);
                                         }}));
        connection.query("insert into t values ('plain words')", {});
    }
    EXPECT_EQ(text(database).find("plain words"), std::string::npos);
    EXPECT_NE(text(database).substr(0, 16), plainHeader);
    EXPECT_EQ(
        RawDatabase(database, RawDatabase::Secrets{.key = "secret"}).column("select value from t"),
        std::vector<std::string>{"plain words"});
    EXPECT_EQ(RawDatabase(database).run("select * from t"), SQLITE_NOTADB);
}

TEST_F(SQLiteConnectionEncryption, KeepsThe32ByteHeaderPlainWhenTheSaltIsGiven) {
    {
        SQLiteConnection connection(file(folder.path(), {[&](SQLiteConnection& given) {
                                             given.useEncryptionKey(key, salt);
                                         }}));
        EXPECT_EQ(connection.query("PRAGMA cipher_plaintext_header_size", {}).rows, (Rows{{"32"}}));
        EXPECT_EQ(connection.query("PRAGMA cipher_salt", {}).rows, (Rows{{saltHex}}));
        connection.query("insert into t values ('plain words')", {});
    }
    EXPECT_EQ(text(database).find("plain words"), std::string::npos);
    EXPECT_EQ(text(database).substr(0, 16), plainHeader);
    EXPECT_EQ(RawDatabase(database, RawDatabase::Secrets{.key = "secret", .saltHex = saltHex})
                  .column("select value from t"),
              std::vector<std::string>{"plain words"});
}

TEST_F(SQLiteConnectionEncryption, ThrowsWhatTheKeyCallGives) {
    EXPECT_EQ(thrownCode([&] {
                  SQLiteConnection connection(file(folder.path(), {[](SQLiteConnection& given) {
                                                       given.useEncryptionKey({});
                                                   }}));
              }),
              SQLITE_MISUSE);
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

class SQLiteConnectionTransaction : public testing::Test {
  protected:
    void SetUp() override { connection.query("create table t (value primary key)", {}); }
    Rows rows() { return connection.query("select value from t order by value", {}).rows; }
    void insert(const SQLiteValue& value) {
        connection.query("insert into t values (?)", std::span(&value, 1));
    }

    SQLiteConnection connection{memory()};
};

TEST_F(SQLiteConnectionTransaction, CommitsWhatTheBodyDid) {
    connection.withTransaction([&](SQLiteConnection& given) {
        EXPECT_EQ(&given, &connection);
        insert("a");
        insert("b");
    });
    EXPECT_EQ(rows(), (Rows{{"a"}, {"b"}}));
    EXPECT_NO_THROW(connection.withTransaction([](SQLiteConnection&) {}));
}

TEST_F(SQLiteConnectionTransaction, UndoesABodyThatThrowsAndPassesItsErrorOn) {
    try {
        connection.withTransaction([&](SQLiteConnection&) {
            insert("a");
            throw std::runtime_error("the body's own");
        });
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "the body's own");
    }
    EXPECT_EQ(rows(), Rows{});
    connection.withTransaction([&](SQLiteConnection&) { insert("b"); });
    EXPECT_EQ(rows(), (Rows{{"b"}}));
}

TEST_F(SQLiteConnectionTransaction, UndoesABodyWhoseStatementFails) {
    insert("taken");
    EXPECT_EQ(thrownCode([&] {
                  connection.withTransaction([&](SQLiteConnection&) {
                      insert("a");
                      insert("taken");
                  });
              }),
              SQLITE_CONSTRAINT);
    EXPECT_EQ(rows(), (Rows{{"taken"}}));
}

TEST_F(SQLiteConnectionTransaction, ShowsTheBodysErrorWhenRollingBackFailsToo) {
    EXPECT_EQ(thrownCode([&] {
                  connection.withTransaction([&](SQLiteConnection& given) {
                      given.query("rollback", {}); // leaves nothing to roll back
                      throw SQLiteResult(77);
                  });
              }),
              77);
}

TEST_F(SQLiteConnectionTransaction, ShowsACommitThatFails) {
    connection.query("PRAGMA foreign_keys = ON", {});
    connection.query("create table child (parent references t deferrable initially deferred)", {});
    EXPECT_EQ(thrownCode([&] {
                  connection.withTransaction([&](SQLiteConnection& given) {
                      given.query("insert into child values ('missing')", {});
                  });
              }),
              SQLITE_CONSTRAINT);
    EXPECT_EQ(connection.query("select * from child", {}).rows, Rows{});
}

TEST_F(SQLiteConnectionTransaction, ShowsABeginThatFailsAndRollsBackWhatWasOpen) {
    connection.query("begin", {});
    insert("a");
    bool ran = false;
    EXPECT_EQ(
        thrownCode([&] { connection.withTransaction([&](SQLiteConnection&) { ran = true; }); }),
        SQLITE_ERROR);
    EXPECT_FALSE(ran);
    EXPECT_EQ(rows(), Rows{});
}

} // namespace
