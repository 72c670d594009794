// A binary store in memory, and one that is closed while others hold it.

#include <zem/Adapters/EncryptedBinaryStore.h>
#include <zem/Adapters/Fetcher.h>

#include <gmock/gmock.h>

#include <SqliteStore/Store.h>
#include <Support/TemporaryFolder.h>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace zem;
using Answer = std::expected<std::string, std::string>;

const platform::URL page = platform::URL::parse("https://example.com/page").value();

/// Never answers.
class SilentFetcher final : public Fetcher {
  public:
    void fetch(const platform::URL&, Completion) override {}
};

TEST(EncryptedBinaryStoreInMemory, KeepsBinariesAsAFileDoes) {
    const auto store = EncryptedBinaryStore::create({SQLiteStorage::memory(), test::keyAndSalt()});
    const platform::Bytes bytes(3 << 20, 7);
    const std::string handle = store->store(bytes, "image/png", 0);
    EXPECT_EQ(store->cachedData(handle), bytes);
    EXPECT_EQ(store->blobs().value().size(), 1U);
    EXPECT_TRUE(store->remove(handle));
    EXPECT_EQ(store->cachedData(handle), std::nullopt);
}

TEST(EncryptedBinaryStoreClosing, ClosesItsFileAndAnswersWhoWaits) {
    const test::TemporaryFolder folder;
    EncryptedBinaryStore::Options options(folder / "data", test::keyAndSalt());
    options.fetcher = std::make_shared<SilentFetcher>();
    const auto store = EncryptedBinaryStore::create(options);
    const std::string handle = store->store({1, 2, 3}, "image/png", 0);
    std::vector<Answer> answers;
    const auto note = [&](Answer answer) {
        answers.push_back(std::move(answer));
    };
    store->cache(page, 10, note);

    store->close();
    EXPECT_FALSE(fs::exists(folder / "data/binaries.db-wal"));
    EXPECT_THAT(answers, testing::ElementsAre(Answer(std::unexpected("the binary store is gone"))));

    store->close();
    EXPECT_EQ(store->cachedData(handle), std::nullopt);
    EXPECT_FALSE(store->remove(handle));
    EXPECT_EQ(store->blobs(), std::unexpected("the binary store is gone"));
    EXPECT_THROW(store->store({1}, "image/png", 0), std::runtime_error);
    store->cache(page, 10, note);
    EXPECT_EQ(answers.back(),
              Answer(std::unexpected("the binaries cannot be read: the binary store is gone")));
    EXPECT_EQ(EncryptedBinaryStore::create(options)->cachedData(handle),
              platform::Bytes({1, 2, 3}));
}

TEST(EncryptedBinaryStoreClosing, MayBeDestroyedByAnAnswer) {
    const test::TemporaryFolder folder;
    EncryptedBinaryStore::Options options(folder / "data", test::keyAndSalt());
    options.fetcher = std::make_shared<SilentFetcher>();
    auto store = EncryptedBinaryStore::create(options);
    store->cache(page, 10, [&](const Answer&) { store.reset(); });
    store->close();
    EXPECT_EQ(store, nullptr);
}

} // namespace
