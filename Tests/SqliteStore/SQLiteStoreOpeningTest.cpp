// Opening a store: with which secrets, on which file, and what a failure leaves.

#include <zem/SqliteStore/SQLiteConnectionError.h>
#include <zem/SqliteStore/SQLiteSecretError.h>

#include <gtest/gtest.h>

#include <SqliteStore/Expect.h>
#include <SqliteStore/MemoryKeyStore.h>
#include <SqliteStore/RawDatabase.h>
#include <SqliteStore/Store.h>
#include <Support/SecretService.h>
#include <Support/TemporaryFolder.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;
using namespace zem;
using test::RawDatabase;
using EncryptionOption = SQLiteStore::EncryptionOption;
using Rows = std::vector<std::vector<SQLiteValue>>;

const RawDatabase::Secrets rightSecrets{.key = std::string(test::storeKey),
                                        .saltHex = test::storeSaltHex};

std::string contents(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

/// How opening ends: "opened", or the error.
std::string opening(const fs::path& folder, EncryptionOption encryption) {
    try {
        SQLiteStore::create({folder, std::move(encryption)});
        return "opened";
    } catch (const SQLiteResult& result) {
        return "SQLiteResult " + std::to_string(result.rawValue);
    } catch (const SQLiteSecretError& error) {
        return error.what();
    }
}

constexpr const char* keyLabel = "com.quorvane.ZEM.SQLiteStoreKey";
constexpr const char* saltLabel = "com.quorvane.ZEM.SQLiteStoreSalt";

constexpr const char* noKey =
    "The key of the database must not be empty: expected at least 1 byte, found 0";

class SQLiteStoreOpening : public testing::Test {
  protected:
    /// A store's file with one row.
    void makeStore() {
        const auto store = SQLiteStore::create({folder.path(), test::keyAndSalt()});
        ASSERT_EQ(test::batch(*store, {test::upsert({{"kept", "{}", nullptr}})}), std::nullopt);
    }

    const test::TemporaryFolder folder;
    const fs::path file = folder / "zem.db";
};

struct FileCase {
    const char* name;
    std::function<void(const fs::path&)> make;
    const char* withWrongKey;
    const char* withRightKey;
};

TEST_F(SQLiteStoreOpening, EndsByKeyAndFileLikeThis) {
    makeStore();
    const std::string whole = contents(file);
    const auto write = [](const std::string& bytes) {
        return [bytes](const fs::path& path) {
            std::ofstream(path, std::ios::binary) << bytes;
        };
    };
    // The codes are SQLCipher's: with the header in plain text it takes a first page that it cannot
    // decrypt for a lack of memory (7).
    const std::vector<FileCase> cases{
        {"new", [](const fs::path&) {}, "opened", "opened"},
        {"existing", write(whole), "SQLiteResult 7", "opened"},
        {"plain SQLite",
         [](const fs::path& path) { RawDatabase(path).execute("create table t (x)"); },
         "SQLiteResult 1", "SQLiteResult 1"},
        {"no database", write(std::string(20000, 'x')), "SQLiteResult 26", "SQLiteResult 26"},
        {"truncated in its first page", write(whole.substr(0, 1000)), "SQLiteResult 7",
         "SQLiteResult 7"},
        {"truncated after its first page", write(whole.substr(0, 4096)), "SQLiteResult 7",
         "SQLiteResult 11"},
        {"zero-length", write(""), "opened", "opened"},
    };
    for (const FileCase& each : cases) {
        SCOPED_TRACE(each.name);
        const auto open = [&](EncryptionOption encryption, const char* expected) {
            const test::TemporaryFolder place;
            const fs::path database = place / "zem.db";
            each.make(database);
            const bool existed = fs::exists(database);
            const std::string before = contents(database);

            EXPECT_EQ(opening(place.path(), std::move(encryption)), expected);

            if (std::string(expected) != "opened") {
                EXPECT_EQ(fs::exists(database), existed);
                EXPECT_TRUE(contents(database) == before) << "the file was changed";
            }
        };
        open(test::keyAndSalt(""), noKey);
        open(test::keyAndSalt(test::anotherKey), each.withWrongKey);
        open(test::keyAndSalt(), each.withRightKey);
    }
}

TEST_F(SQLiteStoreOpening, FindsWhatWasKept) {
    makeStore();
    const auto store = SQLiteStore::create({folder.path(), test::keyAndSalt()});
    EXPECT_EQ(test::query(*store, "select key from zem_data").rows, (Rows{{"kept"}}));
}

TEST_F(SQLiteStoreOpening, KeepsTheDataWhenAWrongKeyWasTriedInBetween) {
    makeStore();
    EXPECT_EQ(opening(folder.path(), test::keyAndSalt(test::anotherKey)), "SQLiteResult 7");
    EXPECT_EQ(RawDatabase(file, rightSecrets).column("select key from zem_data"),
              std::vector<std::string>{"kept"});
}

TEST_F(SQLiteStoreOpening, NeedsTheSaltItWasMadeWith) {
    makeStore();
    EXPECT_EQ(opening(folder.path(), test::keyAndSalt(test::storeKey, "fedcba9876543210")),
              "SQLiteResult 7");
    EXPECT_EQ(opening(folder.path(), EncryptionOption::key(test::provider(test::storeKey))),
              "SQLiteResult 26");
    EXPECT_EQ(opening(folder.path(), test::keyAndSalt()), "opened");
}

TEST_F(SQLiteStoreOpening, WithAKeyAloneKeepsTheSaltInTheFile) {
    const auto keyAlone = [] {
        return EncryptionOption::key(test::provider(test::storeKey));
    };
    EXPECT_EQ(opening(folder.path(), keyAlone()), "opened");
    EXPECT_EQ(opening(folder.path(), keyAlone()), "opened");
    EXPECT_EQ(RawDatabase(file, RawDatabase::Secrets{.key = std::string(test::storeKey)})
                  .column("PRAGMA user_version"),
              std::vector<std::string>{"244000"});
    EXPECT_EQ(opening(folder.path(), EncryptionOption::key(test::provider(test::anotherKey))),
              "SQLiteResult 26");
    EXPECT_EQ(opening(folder.path(), test::keyAndSalt()), "SQLiteResult 26");
}

TEST_F(SQLiteStoreOpening, RefusesAnEmptyKeyAndLeavesNothing) {
    EXPECT_EQ(opening(folder / "store", EncryptionOption::key(test::provider(""))), noKey);
    EXPECT_TRUE(fs::is_empty(folder / "store"));
    EXPECT_EQ(opening(folder / "store", test::keyAndSalt("")), noKey);
    EXPECT_TRUE(fs::is_empty(folder / "store"));
}

TEST_F(SQLiteStoreOpening, RefusesASaltThatIsNot16BytesAndLeavesNothing) {
    for (const std::size_t length : {0u, 1u, 15u, 17u, 32u}) {
        const std::string salt(length, 's');
        EXPECT_EQ(opening(folder / "store", test::keyAndSalt(test::storeKey, salt)),
                  "The salt of the database has the wrong length: expected 16 bytes, found " +
                      std::to_string(length));
        EXPECT_TRUE(fs::is_empty(folder / "store"));
    }
}

TEST_F(SQLiteStoreOpening, PassesOnWhatAProviderThrowsAndLeavesNothing) {
    const auto refuse = []() -> platform::SecretBytes {
        throw std::domain_error("no key today");
    };
    EXPECT_THROW(opening(folder / "store", EncryptionOption::key(refuse)), std::domain_error);
    EXPECT_THROW(opening(folder / "store",
                         EncryptionOption::keyAndSalt(test::provider(test::storeKey), refuse)),
                 std::domain_error);
    EXPECT_TRUE(fs::is_empty(folder / "store"));
}

TEST_F(SQLiteStoreOpening, AsksEachProviderOnceDuringConstructionKeyFirst) {
    std::vector<std::string> asked;
    const auto noting = [&](const char* name, std::string_view bytes) {
        return [&asked, name, bytes] {
            asked.emplace_back(name);
            return test::secret(bytes);
        };
    };
    SQLiteStore::Options options(folder.path(),
                                 EncryptionOption::keyAndSalt(noting("key", test::storeKey),
                                                              noting("salt", test::storeSalt)));
    EXPECT_EQ(asked, std::vector<std::string>{});
    const auto store = SQLiteStore::create(std::move(options));
    EXPECT_EQ(asked, (std::vector<std::string>{"key", "salt"}));
    test::batch(*store, {});
    EXPECT_EQ(asked.size(), 2u);
}

TEST_F(SQLiteStoreOpening, LetsTheProvidersGoBeforeItReturns) {
    bool ended = false;
    std::shared_ptr<void> held = test::whenDestroyed([&] { ended = true; });
    SQLiteStore::Options options(SQLiteStorage::memory(), EncryptionOption::key([held] {
                                     return test::secret(test::storeKey);
                                 }));
    held.reset();
    const auto store = SQLiteStore::create(std::move(options));
    EXPECT_TRUE(ended);
}

TEST_F(SQLiteStoreOpening, UsesKeysOfAnyBytes) {
    const std::string key("\0'\"\xFF;--", 7);
    EXPECT_EQ(opening(folder.path(), test::keyAndSalt(key)), "opened");
    EXPECT_EQ(opening(folder.path(), test::keyAndSalt(key)), "opened");
    EXPECT_EQ(opening(folder.path(), test::keyAndSalt(key.substr(0, 6))), "SQLiteResult 7");
}

TEST_F(SQLiteStoreOpening, PutsAFileIntoWriteAheadLogging) {
    const auto store = SQLiteStore::create({folder.path(), test::keyAndSalt()});
    EXPECT_EQ(test::query(*store, "PRAGMA journal_mode").rows, (Rows{{"wal"}}));
    EXPECT_EQ(test::query(*store, "PRAGMA synchronous").rows, (Rows{{1}}));
}

TEST_F(SQLiteStoreOpening, LeavesAMemoryStoreOutOfWriteAheadLogging) {
    const auto store = test::memoryStore();
    EXPECT_EQ(test::query(*store, "PRAGMA journal_mode").rows, (Rows{{"memory"}}));
    EXPECT_EQ(test::query(*store, "PRAGMA user_version").rows, (Rows{{244000}}));
}

TEST_F(SQLiteStoreOpening, RefusesAnEmptyKeyInMemoryToo) {
    EXPECT_THROW(SQLiteStore::create({SQLiteStorage::memory(), test::keyAndSalt("")}),
                 SQLiteSecretError);
}

TEST_F(SQLiteStoreOpening, TakesAFileOfANewerVersionAsItIs) {
    makeStore();
    RawDatabase(file, rightSecrets).execute("PRAGMA user_version = 300000");
    const auto store = SQLiteStore::create({folder.path(), test::keyAndSalt()});
    EXPECT_EQ(test::query(*store, "PRAGMA user_version").rows, (Rows{{300000}}));
    EXPECT_EQ(test::query(*store, "select key from zem_data").rows, (Rows{{"kept"}}));
}

TEST_F(SQLiteStoreOpening, ThrowsTheFileSystemsError) {
    std::ofstream(folder / "in the way") << "text";
    EXPECT_THROW(opening(folder / "in the way", test::keyAndSalt()), fs::filesystem_error);
    EXPECT_EQ(opening("/proc/self", test::keyAndSalt()), "SQLiteResult 14");
}

TEST_F(SQLiteStoreOpening, KeepsAKeyAndASaltOfItsOwnInTheKeyStore) {
    const test::SessionBus bus;
    test::SecretService service(bus);
    const auto open = [&] {
        return opening(folder.path(), EncryptionOption::internalKeyAndSalt());
    };
    EXPECT_EQ(open(), "opened");
    EXPECT_EQ(service.itemCount(keyLabel), 1u);
    EXPECT_EQ(service.itemCount(saltLabel), 1u);
    EXPECT_EQ(service.item(keyLabel).secret.size(), 32u);
    EXPECT_EQ(service.item(saltLabel).secret.size(), 16u);
    EXPECT_EQ(contents(file).substr(0, 15), "SQLite format 3"); // the salt is not in the file
    EXPECT_EQ(open(), "opened");

    service.deleteCollection(); // a new key and a new salt do not open the file
    EXPECT_EQ(open(), "SQLiteResult 7");
}

TEST_F(SQLiteStoreOpening, KeepsItsSecretsInTheKeyStoreItIsGiven) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    EXPECT_EQ(opening(folder.path(), EncryptionOption::kept(keyStore)), "opened");
    EXPECT_EQ(keyStore->items.size(), 2u);
    EXPECT_EQ(keyStore->items.at(keyLabel).size(), 32u);
    EXPECT_EQ(keyStore->items.at(saltLabel).size(), 16u);
    EXPECT_EQ(opening(folder.path(), EncryptionOption::kept(keyStore)), "opened");
    EXPECT_EQ(opening(folder.path(), EncryptionOption::keyAndSalt(
                                         [&] { return keyStore->items.at(keyLabel).copy(); },
                                         [&] { return keyStore->items.at(saltLabel).copy(); })),
              "opened");
}

TEST_F(SQLiteStoreOpening, MakesNoFileUnderAKeyThatIsNotKept) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    keyStore->keeps = false;
    EXPECT_EQ(opening(folder.path(), EncryptionOption::kept(keyStore)),
              "the new secret com.quorvane.ZEM.SQLiteStoreKey could not be kept by the key store");
    keyStore->items.emplace(keyLabel, test::secret("a key"));
    EXPECT_EQ(opening(folder.path(), EncryptionOption::kept(keyStore)),
              "the new secret com.quorvane.ZEM.SQLiteStoreSalt could not be kept by the key store");
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_F(SQLiteStoreOpening, KeepsItsSecretsInThePlatformsKeyStoreByDefault) {
    const test::SessionBus bus;
    {
        test::SecretService service(bus);
        EXPECT_EQ(opening(folder / "kept", EncryptionOption::kept()), "opened");
        EXPECT_EQ(service.item(keyLabel).secret.size(), 32u);
        EXPECT_EQ(service.item(saltLabel).secret.size(), 16u);
    }
    EXPECT_EQ(opening(folder / "not kept", EncryptionOption::kept()),
              "the new secret com.quorvane.ZEM.SQLiteStoreKey could not be kept by the key store");
    EXPECT_TRUE(fs::is_empty(folder / "not kept"));
}

TEST_F(SQLiteStoreOpening, LeavesNoDescriptorOpenWhenItFails) {
    makeStore();
    const auto descriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = descriptors();
    EXPECT_EQ(opening(folder.path(), test::keyAndSalt(test::anotherKey)), "SQLiteResult 7");
    EXPECT_EQ(opening(folder.path(), test::keyAndSalt("")), noKey);
    EXPECT_EQ(opening(folder / "new", test::keyAndSalt("")), noKey);
    EXPECT_EQ(opening("/proc/self", test::keyAndSalt()), "SQLiteResult 14");
    EXPECT_EQ(descriptors(), before);
}

TEST(SQLiteStoreSynchronous, SyncsWithEveryBatchOnlyWhereItIsAskedTo) {
    const test::TemporaryFolder folder;
    const auto synchronous = [&](std::optional<SQLiteStore::Synchronous> asked) {
        SQLiteStore::Options options(folder.path(), test::keyAndSalt());
        if (asked) {
            options.synchronous = *asked;
        }
        const auto store = SQLiteStore::create(std::move(options));
        EXPECT_EQ(test::query(*store, "PRAGMA journal_mode").rows.at(0).at(0), SQLiteValue("wal"));
        return test::query(*store, "PRAGMA synchronous").rows.at(0).at(0);
    };
    EXPECT_EQ(synchronous(std::nullopt), SQLiteValue(1));
    EXPECT_EQ(synchronous(SQLiteStore::Synchronous::normal), SQLiteValue(1));
    EXPECT_EQ(synchronous(SQLiteStore::Synchronous::full), SQLiteValue(2));
}

} // namespace
