// The files of a store: who may read them, which damage is noticed, and the half-made file that is
// removed.

#include <zem/SqliteStore/Migrations.h>
#include <zem/SqliteStore/Private/DatabaseFile.h>
#include <zem/SqliteStore/SQLiteOpeningError.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <SqliteStore/Expect.h>
#include <SqliteStore/RawDatabase.h>
#include <SqliteStore/Store.h>
#include <Support/TemporaryFolder.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace zem;
using test::RawDatabase;
using test::thrownCode;

const RawDatabase::Secrets secrets{.key = std::string(test::storeKey),
                                   .saltHex = test::storeSaltHex};

std::string contents(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void write(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

std::string modeOf(const fs::path& path) {
    return fmt::format("{:04o}", static_cast<unsigned>(fs::status(path).permissions()));
}

std::shared_ptr<SQLiteStore> open(const fs::path& folder) {
    return SQLiteStore::create({folder, test::keyAndSalt()});
}

class SQLiteStoreFile : public testing::Test {
  protected:
    /// A store's file with one row.
    void makeStore() {
        ASSERT_EQ(test::batch(*open(folder.path()), {test::upsert({{"kept", "{}", nullptr}})}),
                  std::nullopt);
    }

    const test::TemporaryFolder folder;
    const fs::path file = folder / "zem.db";
};

// --- Modes

class OpenUmask {
  public:
    OpenUmask() { former = umask(0); }
    ~OpenUmask() { umask(former); }
    OpenUmask(const OpenUmask&) = delete;
    OpenUmask& operator=(const OpenUmask&) = delete;

  private:
    mode_t former;
};

TEST_F(SQLiteStoreFile, AndItsFoldersAreForTheirOwnerAlone) {
    const OpenUmask everybodyMayDoEverything;
    const auto store = open(folder / "one" / "two" / "");
    ASSERT_EQ(test::batch(*store, {test::upsert({{"a", "{}", nullptr}})}), std::nullopt);
    EXPECT_EQ(modeOf(folder / "one"), "0700");
    EXPECT_EQ(modeOf(folder / "one" / "two"), "0700");
    for (const char* name : {"zem.db", "zem.db-wal", "zem.db-shm"}) {
        EXPECT_EQ(modeOf(folder / "one" / "two" / name), "0600") << name;
    }
}

TEST_F(SQLiteStoreFile, ThatExistsKeepsItsMode) {
    makeStore();
    fs::permissions(folder.path(), fs::perms(0755));
    fs::permissions(file, fs::perms(0644));
    const auto store = open(folder.path());
    EXPECT_EQ(modeOf(folder.path()), "0755");
    for (const char* name : {"zem.db", "zem.db-wal", "zem.db-shm"}) {
        EXPECT_EQ(modeOf(folder / name), "0644") << name;
    }
}

// --- Damage

TEST_F(SQLiteStoreFile, WithAnyDamagedByteInItsPlainHeaderLosesNothing) {
    makeStore();
    const std::string whole = contents(file);
    int refused = 0;
    for (std::size_t at = 0; at < 32; ++at) {
        for (const int change : {1, 4, 128, 255}) {
            SCOPED_TRACE(fmt::format("byte {} ^ {}", at, change));
            const test::TemporaryFolder place;
            std::string damaged = whole;
            damaged[at] = static_cast<char>(damaged[at] ^ change);
            write(place / "zem.db", damaged);
            std::vector<std::vector<SQLiteValue>> rows;
            for (int row = 0; row < 50; ++row) {
                rows.push_back({std::to_string(row), std::string(700, 'x'), nullptr});
            }
            std::optional<std::string> failure;
            if (thrownCode(
                    [&] { failure = test::batch(*open(place.path()), {test::upsert(rows)}); })) {
                EXPECT_TRUE(contents(place / "zem.db") == damaged) << "the file was changed";
                ++refused;
                continue;
            }
            RawDatabase after(place / "zem.db", secrets);
            EXPECT_EQ(after.column("PRAGMA integrity_check"), std::vector<std::string>{"ok"});
            EXPECT_EQ(after.column("select count(*) from zem_data"),
                      std::vector<std::string>{failure ? "1" : "51"});
        }
    }
    EXPECT_GT(refused, 80);
}

TEST_F(SQLiteStoreFile, WhosePagesKeepTooLittleOrTooMuchSpaceIsDamaged) {
    makeStore();
    const std::string whole = contents(file);
    ASSERT_EQ(whole[20], 80);
    for (int space = 0; space < 256; ++space) {
        if (space == 80) {
            continue;
        }
        std::string damaged = whole;
        damaged[20] = static_cast<char>(space);
        write(file, damaged);
        EXPECT_EQ(thrownCode([&] { open(folder.path()); }), SQLITE_CORRUPT) << space;
        EXPECT_TRUE(contents(file) == damaged) << "the file was changed";
    }
    write(file, whole);
    EXPECT_EQ(test::query(*open(folder.path()), "select key from zem_data").rows,
              (std::vector<std::vector<SQLiteValue>>{{"kept"}}));
}

// --- Texts

std::string textOf(const std::function<void()>& opening) {
    try {
        opening();
    } catch (const SQLiteOpeningError& error) {
        EXPECT_EQ(error.description(), error.what());
        EXPECT_TRUE(std::string(error.what()).ends_with(": " + error.reason()));
        return error.what();
    }
    return "";
}

TEST_F(SQLiteStoreFile, ThatCannotBeDecryptedIsNamed) {
    makeStore();
    const auto openWith = [&](SQLiteStore::EncryptionOption encryption) {
        return textOf([&] { SQLiteStore::create({folder.path(), std::move(encryption)}); });
    };
    EXPECT_EQ(openWith(test::keyAndSalt(test::anotherKey)),
              "cannot open the database " + file.string() +
                  ": its key is another one, or it is damaged (SQLite error 7)");
    EXPECT_EQ(openWith(SQLiteStore::EncryptionOption::key(test::provider(test::storeKey))),
              "cannot open the database " + file.string() +
                  ": its key is another one, or it is damaged (SQLite error 26)");
}

TEST_F(SQLiteStoreFile, ThatIsHalfMadeIsNamed) {
    RawDatabase(file, secrets)
        .execute("PRAGMA journal_mode = WAL; " + MIGRATIONS().at(240000).front());
    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(textOf([&] { open(folder.path()); }),
                  "cannot open the database " + file.string() +
                      ": its first opening was interrupted; it holds no row, and "
                      "SQLiteStore::removeHalfMade removes it (SQLite error 1)");
    }
    EXPECT_EQ(RawDatabase(file, secrets).column("select name from sqlite_master where sql > ''"),
              std::vector<std::string>{"zem_data"});
}

TEST_F(SQLiteStoreFile, ThatIsOfAnotherMakeIsNotCalledHalfMade) {
    RawDatabase(file, secrets).execute("create table zem_data (key text)");
    EXPECT_EQ(thrownCode([&] { open(folder.path()); }), SQLITE_ERROR);
    EXPECT_EQ(textOf([&] {
                  try {
                      open(folder.path());
                  } catch (const SQLiteOpeningError&) {
                      throw;
                  } catch (const SQLiteResult&) {
                  }
              }),
              "");
}

// --- Removal

struct Case {
    const char* name;
    std::function<void(const fs::path& file)> make;
    bool isHalfMade;
};

/// The first `count` statements of the first version, and what follows them.
std::function<void(const fs::path&)> statements(std::size_t count, const std::string& then = "") {
    return [count, then](const fs::path& file) {
        RawDatabase database(file, secrets);
        database.execute("PRAGMA journal_mode = WAL");
        for (std::size_t index = 0; index < count; ++index) {
            database.execute(MIGRATIONS().at(240000).at(index));
        }
        database.execute(then);
    };
}

const std::vector<Case>& cases() {
    static const auto& list = *new std::vector<Case>{
        {"no file", [](const fs::path&) {}, false},
        {"empty", [](const fs::path& file) { write(file, ""); }, false},
        {"no object", statements(0), false},
        {"one table", statements(1), true},
        {"some tables and indexes", statements(7), true},
        {"all but the version", statements(11), true},
        {"a row", statements(2, "insert into zem_data values ('k', '{}', null)"), false},
        {"a row in the last table", statements(4, "insert into zem_env_draft_id_map values (1, 2)"),
         false},
        {"another table", statements(3, "create table other (x)"), false},
        {"a view", statements(3, "create view other as select 1"), false},
        {"an index of another make", statements(3, "create index other on zem_data (data)"), false},
        {"a table of another make", statements(0, "create table zem_data (key text primary key)"),
         false},
        {"version 240000", statements(11, "PRAGMA user_version = 240000"), false},
        {"version 1", statements(11, "PRAGMA user_version = 1"), false},
        {"version -1", statements(3, "PRAGMA user_version = -1"), false},
        {"a store", [](const fs::path& file) { open(file.parent_path()); }, false},
        {"plain", [](const fs::path& file) { RawDatabase(file).execute("create table t (x)"); },
         false},
        {"no database", [](const fs::path& file) { write(file, std::string(9000, 'x')); }, false},
    };
    return list;
}

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

TEST(SQLiteStoreRemoveHalfMade, TakesTheseFiles) {
    for (const Case& each : cases()) {
        SCOPED_TRACE(each.name);
        const test::TemporaryFolder folder;
        each.make(folder / "zem.db");
        const std::string before = contents(folder / "zem.db");
        const auto names = namesIn(folder.path());

        EXPECT_EQ(SQLiteStore::removeHalfMade({folder.path(), test::keyAndSalt()}),
                  each.isHalfMade);

        if (each.isHalfMade) {
            EXPECT_TRUE(fs::is_empty(folder.path()));
            EXPECT_FALSE(SQLiteStore::removeHalfMade({folder.path(), test::keyAndSalt()}));
            open(folder.path());
        } else {
            EXPECT_TRUE(contents(folder / "zem.db") == before) << "the file was changed";
            EXPECT_EQ(namesIn(folder.path()), names);
        }
    }
}

TEST(SQLiteStoreRemoveHalfMade, NeverTakesAFileThatItCannotDecrypt) {
    const test::TemporaryFolder folder;
    statements(3)(folder / "zem.db");
    EXPECT_FALSE(SQLiteStore::removeHalfMade({folder.path(), test::keyAndSalt(test::anotherKey)}));
    EXPECT_FALSE(SQLiteStore::removeHalfMade(
        {folder.path(), SQLiteStore::EncryptionOption::key(test::provider(test::storeKey))}));
    EXPECT_TRUE(SQLiteStore::removeHalfMade({folder.path(), test::keyAndSalt()}));
}

TEST(SQLiteStoreRemoveHalfMade, TakesTheFilesBesideItToo) {
    const test::TemporaryFolder folder;
    statements(3)(folder / "zem.db");
    for (const char* name : {"zem.db-wal", "zem.db-shm", "another"}) {
        write(folder / name, "");
    }
    EXPECT_TRUE(SQLiteStore::removeHalfMade({folder.path(), test::keyAndSalt()}));
    EXPECT_EQ(namesIn(folder.path()), std::vector<std::string>{"another"});
}

TEST(SQLiteStoreRemoveHalfMade, DoesNothingInMemoryOrWithoutAFolder) {
    const test::TemporaryFolder folder;
    EXPECT_FALSE(SQLiteStore::removeHalfMade({SQLiteStorage::memory(), test::keyAndSalt()}));
    EXPECT_FALSE(SQLiteStore::removeHalfMade({folder / "none", test::keyAndSalt()}));
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST(SQLiteStoreRemoveHalfMade, PassesOnWhatAProviderThrows) {
    const test::TemporaryFolder folder;
    statements(3)(folder / "zem.db");
    EXPECT_THROW(
        SQLiteStore::removeHalfMade(
            {folder.path(), SQLiteStore::EncryptionOption::key([]() -> platform::SecretBytes {
                 throw std::domain_error("no key today");
             })}),
        std::domain_error);
    EXPECT_TRUE(fs::exists(folder / "zem.db"));
}

// --- Turns

constexpr std::chrono::milliseconds atOnce(0);

TEST(SQLiteStoreOpeningTurn, IsTakenByOneAtATime) {
    const test::TemporaryFolder folder;
    const test::TemporaryFolder another;
    {
        const OpeningTurn turn(folder.path(), atOnce);
        EXPECT_TRUE(turn.isAlone());
        EXPECT_EQ(thrownCode([&] { OpeningTurn(folder.path(), atOnce); }), SQLITE_BUSY);
        EXPECT_EQ(thrownCode([&] { OpeningTurn(another.path(), atOnce); }), std::nullopt);
    }
    EXPECT_EQ(thrownCode([&] { OpeningTurn(folder.path(), atOnce); }), std::nullopt);
    EXPECT_EQ(OpeningTurn::limit, std::chrono::seconds(30));
}

TEST(SQLiteStoreOpeningTurn, IsHeldWhileAStoreIsOpenedAndNoLonger) {
    const test::TemporaryFolder folder;
    const auto takeIt = [&] {
        return thrownCode([&] { OpeningTurn(folder.path(), atOnce); });
    };
    std::optional<std::int32_t> meanwhile;
    const auto key = [&] {
        meanwhile = takeIt();
        return test::secret(test::storeKey);
    };
    const auto store = SQLiteStore::create(
        {folder.path(),
         SQLiteStore::EncryptionOption::keyAndSalt(key, test::provider(test::storeSalt))});
    EXPECT_EQ(meanwhile, SQLITE_BUSY);
    EXPECT_EQ(takeIt(), std::nullopt);

    meanwhile.reset();
    EXPECT_FALSE(SQLiteStore::removeHalfMade(
        {folder.path(),
         SQLiteStore::EncryptionOption::keyAndSalt(key, test::provider(test::storeSalt))}));
    EXPECT_EQ(meanwhile, SQLITE_BUSY);
    EXPECT_EQ(takeIt(), std::nullopt);
}

} // namespace
