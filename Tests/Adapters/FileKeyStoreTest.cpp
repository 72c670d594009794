#include <zem/Adapters/FileKeyStore.h>
#include <zem/Platform/Random.h>

#include <gmock/gmock.h>

#include <Support/TemporaryFolder.h>
#include <atomic>
#include <csignal>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace zem;
using platform::SecretBytes;
using testing::HasSubstr;

namespace {

const std::string label = "com.quorvane.ZEM.SQLiteStoreKey";
const std::string secretText = "correct horse battery staple";

SecretBytes secretOf(std::string_view text) {
    return SecretBytes(
        platform::BytesView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

/// A key store in the folder "keys" of a temporary folder.
class FileKeyStoreTest : public testing::Test {
  protected:
    std::shared_ptr<FileKeyStore> create() {
        auto created = FileKeyStore::create(folder);
        if (!created) {
            throw std::runtime_error(created.error());
        }
        return *created;
    }

    /// Why the folder is refused; empty when it is not.
    std::string refusal() {
        const auto created = FileKeyStore::create(folder);
        return created ? std::string() : created.error();
    }

    static mode_t modeOf(const std::filesystem::path& path) {
        struct stat status{};
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777;
    }

    std::vector<std::string> names() {
        std::vector<std::string> result;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            result.push_back(entry.path().filename().string());
        }
        return result;
    }

    std::string errorOfReading(FileKeyStore& store) {
        try {
            store.storedItem(label);
        } catch (const FileKeyStoreError& error) {
            return error.what();
        }
        return "";
    }

    test::TemporaryFolder temporary;
    const std::filesystem::path folder = temporary / "keys";
    const std::filesystem::path file = folder / label;
};

/// No file of this process may become longer, and none may say so with a signal.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &previous);
        handler = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, previous.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &previous);
        std::signal(SIGXFSZ, handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit previous{};
    void (*handler)(int) = nullptr;
};

} // namespace

TEST_F(FileKeyStoreTest, KeepsReturnsAndDeletesAnItem) {
    const auto store = create();
    EXPECT_EQ(store->storedItem(label), std::nullopt);
    const SecretBytes secret = platform::randomKey(32);
    EXPECT_TRUE(store->store(secret, label));
    EXPECT_EQ(store->storedItem(label), secret);
    EXPECT_EQ(create()->storedItem(label), secret);
    store->removeItem(label);
    EXPECT_EQ(store->storedItem(label), std::nullopt);
    EXPECT_NO_THROW(store->removeItem(label));
    EXPECT_EQ(names(), std::vector<std::string>());
}

TEST_F(FileKeyStoreTest, ServesAKeyHandler) {
    KeyHandler first(KeyHandler::storeKeyLabel, KeyHandler::storeSaltLabel, create());
    const SecretBytes key = first.key();
    const SecretBytes salt = first.salt();
    KeyHandler second(KeyHandler::storeKeyLabel, KeyHandler::storeSaltLabel, create());
    EXPECT_EQ(second.key(), key);
    EXPECT_EQ(second.salt(), salt);
    EXPECT_THAT(names(), testing::UnorderedElementsAre("com.quorvane.ZEM.SQLiteStoreKey",
                                                       "com.quorvane.ZEM.SQLiteStoreSalt"));
}

TEST_F(FileKeyStoreTest, KeepsAnyBytes) {
    const auto store = create();
    platform::Bytes every;
    for (int byte = 0; byte < 256; ++byte) {
        every.push_back(static_cast<std::uint8_t>(byte));
    }
    EXPECT_TRUE(store->store(SecretBytes(every), "every"));
    EXPECT_EQ(store->storedItem("every"), SecretBytes(every));
    EXPECT_TRUE(store->store(SecretBytes(), "empty"));
    EXPECT_EQ(store->storedItem("empty"), SecretBytes());
}

TEST_F(FileKeyStoreTest, GivesOthersNoAccess) {
    const mode_t before = umask(0);
    const auto store = create();
    EXPECT_TRUE(store->store(secretOf("key"), label));
    umask(before);
    EXPECT_EQ(modeOf(folder), 0700U);
    EXPECT_EQ(modeOf(file), 0600U);
}

TEST_F(FileKeyStoreTest, GivesItsOwnerAccessWhateverTheMask) {
    const auto store = create();
    const mode_t before = umask(0777);
    EXPECT_TRUE(store->store(secretOf("key"), label));
    umask(before);
    EXPECT_EQ(modeOf(file), 0600U);
}

TEST_F(FileKeyStoreTest, MakesTheFoldersAboveItsOwn) {
    const std::filesystem::path deep = temporary / "a" / "b" / "." / "c" / "";
    const auto created = FileKeyStore::create(deep);
    ASSERT_TRUE(created) << created.error();
    EXPECT_TRUE((*created)->store(secretOf("key"), label));
    EXPECT_EQ(modeOf(temporary / "a/b/c"), 0700U);
    EXPECT_TRUE(std::filesystem::exists(temporary / "a/b/c" / label));
}

TEST_F(FileKeyStoreTest, NeverReplacesAnItem) {
    const auto store = create();
    EXPECT_TRUE(store->store(secretOf("first"), label));
    EXPECT_FALSE(store->store(secretOf("second"), label));
    EXPECT_EQ(store->storedItem(label), secretOf("first"));
    EXPECT_EQ(names(), std::vector<std::string>{label});
}

TEST_F(FileKeyStoreTest, ManyKeepingAtOnceLeaveTheOneThatSucceeded) {
    std::atomic<int> kept = 0;
    SecretBytes winner;
    {
        std::vector<std::jthread> threads;
        threads.reserve(8);
        for (int count = 0; count < 8; ++count) {
            threads.emplace_back([&] {
                const SecretBytes secret = platform::randomKey(32);
                if (create()->store(secret, label)) {
                    ++kept;
                    winner = secret.copy();
                }
            });
        }
    }
    EXPECT_EQ(kept, 1);
    EXPECT_EQ(create()->storedItem(label), winner);
    EXPECT_EQ(names(), std::vector<std::string>{label});
}

TEST_F(FileKeyStoreTest, LeavesNothingBehindThatCouldNotBeWrittenWhole) {
    const auto store = create();
    {
        const FileSizeLimit limit(7);
        EXPECT_FALSE(store->store(secretOf(secretText), label));
    }
    EXPECT_EQ(names(), std::vector<std::string>());
    EXPECT_EQ(store->storedItem(label), std::nullopt);
    EXPECT_TRUE(store->store(secretOf(secretText), label));
}

TEST_F(FileKeyStoreTest, RefusesAFolderThatOthersCanEnter) {
    const auto store = create();
    ASSERT_TRUE(store->store(secretOf(secretText), label));
    for (const mode_t mode : {0701U, 0710U, 0740U, 0704U, 0755U, 0777U}) {
        ASSERT_EQ(chmod(folder.c_str(), mode), 0);
        char found[8];
        std::snprintf(found, sizeof found, "%04o", mode);
        const std::string expected = "key store " + folder.string() +
                                     ": expected a folder of mode 0700, which others cannot read, "
                                     "found mode " +
                                     found;
        EXPECT_EQ(refusal(), expected);
        EXPECT_EQ(errorOfReading(*store), expected);
        EXPECT_FALSE(store->store(secretOf("key"), "another"));
        EXPECT_THROW(store->removeItem(label), FileKeyStoreError);
        EXPECT_EQ(modeOf(folder), mode);
    }
    ASSERT_EQ(chmod(folder.c_str(), 0700), 0);
    EXPECT_EQ(refusal(), "");
    EXPECT_EQ(names(), std::vector<std::string>{label});
}

TEST_F(FileKeyStoreTest, RefusesAFileThatOthersCanRead) {
    const auto store = create();
    ASSERT_TRUE(store->store(secretOf(secretText), label));
    for (const mode_t mode : {0604U, 0640U, 0644U, 0660U, 0666U}) {
        ASSERT_EQ(chmod(file.c_str(), mode), 0);
        char found[8];
        std::snprintf(found, sizeof found, "%04o", mode);
        const std::string expected = "key store " + file.string() +
                                     ": expected a file of mode 0600, which others cannot read, "
                                     "found mode " +
                                     found;
        EXPECT_EQ(refusal(), expected);
        EXPECT_EQ(errorOfReading(*store), expected);
        EXPECT_EQ(modeOf(file), mode);
    }
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    EXPECT_EQ(store->storedItem(label), secretOf(secretText));
}

TEST_F(FileKeyStoreTest, RefusesWhatBelongsToAnotherUser) {
    if (geteuid() != 0) {
        // Only root can give files away; what another user's folder looks like stands everywhere.
        EXPECT_THAT(
            FileKeyStore::create("/").error(),
            HasSubstr("belongs to user " + std::to_string(geteuid()) + ", found one of user 0"));
        return;
    }
    const auto store = create();
    ASSERT_TRUE(store->store(secretOf(secretText), label));
    ASSERT_EQ(chown(file.c_str(), 12345, 12345), 0);
    EXPECT_EQ(refusal(), "key store " + file.string() +
                             ": expected a file that belongs to user 0, found one of user 12345");
    ASSERT_EQ(chown(file.c_str(), 0, 0), 0);
    ASSERT_EQ(chown(folder.c_str(), 12345, 12345), 0);
    EXPECT_EQ(refusal(), "key store " + folder.string() +
                             ": expected a folder that belongs to user 0, found one of user 12345");
}

TEST_F(FileKeyStoreTest, RefusesWhatIsNoFile) {
    const auto store = create();
    ASSERT_EQ(mkdir(file.c_str(), 0700), 0);
    EXPECT_EQ(refusal(), "key store " + file.string() + ": expected a file, found something else");
    EXPECT_EQ(errorOfReading(*store), refusal());
    ASSERT_EQ(rmdir(file.c_str()), 0);

    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(errorOfReading(*store),
              "key store " + file.string() + ": expected a file, found something else");
    ASSERT_EQ(unlink(file.c_str()), 0);

    std::filesystem::create_symlink(temporary / "elsewhere", file);
    EXPECT_THAT(errorOfReading(*store), HasSubstr(file.string() + ": the file cannot be opened: "));
    EXPECT_FALSE(store->store(secretOf("key"), label));
    EXPECT_FALSE(std::filesystem::exists(temporary / "elsewhere"));
}

TEST_F(FileKeyStoreTest, RefusesAFolderThatIsNone) {
    std::ofstream(folder) << "a file";
    EXPECT_THAT(refusal(), HasSubstr(folder.string() + ": the folder cannot be opened: "));
    EXPECT_THAT(FileKeyStore::create(folder / "below").error(),
                HasSubstr((folder / "below").string() + ": the folder cannot be made: "));
}

TEST_F(FileKeyStoreTest, DoesNotTakeAVanishedFolderForAnEmptyOne) {
    const auto store = create();
    std::filesystem::remove(folder);
    EXPECT_THAT(errorOfReading(*store),
                HasSubstr(folder.string() + ": the folder cannot be opened"));
    EXPECT_FALSE(store->store(secretOf("key"), label));
    KeyHandler handler(label, "salt", store);
    EXPECT_THROW(handler.key(), FileKeyStoreError);
}

TEST_F(FileKeyStoreTest, RefusesLabelsThatNameNoFileOfItsOwn) {
    const auto store = create();
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string("../key"),
          std::string("/etc/key"), std::string("a/b"), std::string("a\0b", 3),
          std::string(".hidden")}) {
        EXPECT_FALSE(store->store(secretOf("key"), name));
        EXPECT_THROW(store->storedItem(name), FileKeyStoreError);
        EXPECT_THROW(store->removeItem(name), FileKeyStoreError);
    }
    EXPECT_FALSE(store->store(secretOf("key"), std::string(300, 'a')));
    EXPECT_EQ(names(), std::vector<std::string>());
}

TEST_F(FileKeyStoreTest, KeepsNothingThatItWouldNotRead) {
    const auto store = create();
    EXPECT_TRUE(store->store(SecretBytes::ofLength(65536), "longest"));
    EXPECT_FALSE(store->store(SecretBytes::ofLength(65537), label));
    EXPECT_EQ(store->storedItem("longest"), SecretBytes::ofLength(65536));
    std::filesystem::resize_file(folder / "longest", 65537);
    std::filesystem::rename(folder / "longest", file);
    EXPECT_EQ(errorOfReading(*store),
              "key store " + file.string() + ": expected at most 65536 bytes, found 65537");
}

TEST_F(FileKeyStoreTest, SaysNoSecretInItsErrors) {
    const auto store = create();
    ASSERT_TRUE(store->store(secretOf(secretText), label));
    ASSERT_EQ(chmod(file.c_str(), 0644), 0);
    EXPECT_THAT(refusal(), testing::Not(HasSubstr("horse")));
    EXPECT_THAT(errorOfReading(*store), testing::Not(HasSubstr("horse")));
}
