// The encrypted binary store: what it keeps, for how long, and what it answers when it cannot.

#include <zem/Adapters/EncryptedBinaryStore.h>
#include <zem/Adapters/Fetcher.h>
#include <zem/SqliteStore/SQLiteConnectionError.h>
#include <zem/SqliteStore/SQLiteOpeningError.h>
#include <zem/SqliteStore/SQLiteSecretError.h>

#include <gmock/gmock.h>

#include <SqliteStore/MemoryKeyStore.h>
#include <SqliteStore/RawDatabase.h>
#include <SqliteStore/Store.h>
#include <Support/LogCapture.h>
#include <Support/TemporaryFolder.h>
#include <Support/Wait.h>
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sys/stat.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace zem;
using platform::Bytes;
using platform::URL;
using test::RawDatabase;
using testing::ElementsAre;
using testing::IsEmpty;
using Answer = std::expected<std::string, std::string>;
using Answers = std::vector<Answer>;
using Blob = EncryptedBinaryStore::Blob;
using Fetched = std::expected<FetchedContent, std::string>;
using Options = EncryptedBinaryStore::Options;
using Time = EncryptedBinaryStore::Time;

constexpr Time morning{1'800'000'000'123ms};

URL urlOf(std::string_view text) {
    return URL::parse(text).value();
}

const URL photo = urlOf("https://example.com/photo.jpg");
const URL plan = urlOf("https://example.com/plan.pdf");

Bytes bytesOf(std::size_t length, unsigned seed = 0) {
    Bytes bytes(length);
    for (std::size_t index = 0; index < length; ++index) {
        bytes[index] = static_cast<std::uint8_t>((index * 31 + seed + index / 251) % 256);
    }
    return bytes;
}

Bytes contents(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// A clock that stands until it is set.
class ManualClock {
  public:
    Time now() const { return time; }
    void advance(std::chrono::milliseconds by) { time = time.load() + by; }
    EncryptedBinaryStore::Clock clock() {
        return [this] {
            return now();
        };
    }

  private:
    std::atomic<Time> time = morning;
};

/// Notes what is asked for; the test answers.
class ManualFetcher final : public Fetcher {
  public:
    void fetch(const URL& url, Completion completion) override {
        if (answersAtOnce) {
            completion(*answersAtOnce);
            return;
        }
        const std::scoped_lock lock(mutex);
        asked.push_back(url.absoluteString());
        completions.push_back(std::move(completion));
        arrived.signal();
    }

    /// Answers the fetch of this number, from 0, which has come or comes soon.
    void answer(std::size_t number, const Fetched& fetched) {
        arrived.wait(static_cast<int>(number) + 1);
        std::unique_lock lock(mutex);
        const Completion completion = completions.at(number);
        lock.unlock();
        completion(fetched);
    }

    std::vector<std::string> urls() {
        const std::scoped_lock lock(mutex);
        return asked;
    }

    std::optional<Fetched> answersAtOnce;

  private:
    std::mutex mutex;
    std::vector<std::string> asked;
    std::vector<Completion> completions;
    test::Event arrived{"a fetch"};
};

/// A fetcher that cannot even begin.
class ThrowingFetcher final : public Fetcher {
  public:
    void fetch(const URL&, Completion) override { throw std::runtime_error("no thread left"); }
};

Fetched content(Bytes bytes, std::string type = "image/jpeg") {
    return FetchedContent{std::move(bytes), std::move(type)};
}

class EncryptedBinaryStoreTest : public testing::Test {
  protected:
    Options options(SQLiteStore::EncryptionOption encryption = test::keyAndSalt()) {
        Options result(folder.path(), std::move(encryption));
        result.clock = clock.clock();
        result.fetcher = fetcher;
        return result;
    }

    void open() { store = EncryptedBinaryStore::create(options()); }
    void openWithQuota(std::uint64_t bytes) {
        Options chosen = options();
        chosen.quota = bytes;
        store = EncryptedBinaryStore::create(chosen);
    }
    void reopen() {
        store.reset();
        open();
    }

    /// Where the answers to these calls go, in the order in which they come.
    auto into(const std::shared_ptr<Answers>& answers) {
        return [answers](Answer answer) {
            answers->push_back(std::move(answer));
        };
    }

    /// The answer of a call that is answered before it returns.
    Answer cached(const URL& url, std::int64_t ttlSeconds = 60) {
        const auto answers = std::make_shared<Answers>();
        store->cache(url, ttlSeconds, into(answers));
        return answers->size() == 1 ? answers->front()
                                    : std::unexpected(std::to_string(answers->size()) + " answers");
    }

    /// Caches these bytes and gives the handle.
    std::string fetch(const URL& url, const Bytes& bytes, std::int64_t ttlSeconds = 60) {
        fetcher->answersAtOnce = content(bytes);
        const Answer handle = cached(url, ttlSeconds);
        fetcher->answersAtOnce.reset();
        return handle.value();
    }

    std::string keep(const Bytes& bytes) {
        return store->store(bytes, "application/pdf", bytes.size());
    }

    std::vector<std::string> handles() {
        std::vector<std::string> result;
        const std::vector<Blob> blobs = store->blobs().value();
        for (const Blob& blob : blobs) {
            result.push_back(blob.handle);
        }
        return result;
    }

    /// Closes the store and counts the rows of its file, table by table.
    std::vector<std::string> counts() {
        store.reset();
        RawDatabase database(file, RawDatabase::Secrets{.key = std::string(test::storeKey),
                                                        .saltHex = test::storeSaltHex});
        return database
            .rows("select (select count(*) from zem_binaries), "
                  "(select count(*) from zem_binary_pieces), "
                  "(select count(*) from zem_binary_names)")
            .at(0);
    }

    const test::TemporaryFolder folder;
    const fs::path file = folder / "binaries.db";
    ManualClock clock;
    const std::shared_ptr<ManualFetcher> fetcher = std::make_shared<ManualFetcher>();
    std::shared_ptr<EncryptedBinaryStore> store;
};

// --- Storing

TEST_F(EncryptedBinaryStoreTest, GivesBackTheBytesOfAnyLength) {
    open();
    constexpr std::size_t piece = 1 << 20;
    std::vector<std::string> kept;
    const std::vector<std::size_t> lengths{0, 1, 4096, piece - 1, piece, piece + 1, 3 * piece + 7};
    for (const std::size_t length : lengths) {
        kept.push_back(keep(bytesOf(length)));
    }
    for (const bool again : {false, true}) {
        SCOPED_TRACE(again);
        for (std::size_t index = 0; index < lengths.size(); ++index) {
            const std::optional<Bytes> found = store->cachedData(kept[index]);
            ASSERT_TRUE(found) << lengths[index];
            EXPECT_TRUE(*found == bytesOf(lengths[index])) << lengths[index];
        }
        reopen();
    }
}

TEST_F(EncryptedBinaryStoreTest, GivesEachBlobAFreshUUID) {
    open();
    const std::string one = keep(bytesOf(3));
    const std::string other = keep(bytesOf(3));
    EXPECT_NE(one, other);
    EXPECT_THAT(one, testing::MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
}

TEST_F(EncryptedBinaryStoreTest, GoesByTheSizeOfTheBytes) {
    open();
    store->store(bytesOf(5), "text/plain", 7);
    EXPECT_EQ(store->blobs().value().at(0).size, 5u);
}

TEST_F(EncryptedBinaryStoreTest, HasNoBlobUnderAnotherHandle) {
    open();
    keep(bytesOf(3));
    EXPECT_EQ(store->cachedData("another"), std::nullopt);
    EXPECT_EQ(store->cachedData(""), std::nullopt);
    EXPECT_FALSE(store->remove("another"));
}

TEST_F(EncryptedBinaryStoreTest, RemovesABlobOnceWithAllThatBelongsToIt) {
    open();
    const std::string gone = keep(bytesOf(3 << 20));
    const std::string left = keep(bytesOf(10));
    store->setCanonicalUrl(gone, "https://example.com/a", 60);
    EXPECT_TRUE(store->remove(gone));
    EXPECT_FALSE(store->remove(gone));
    EXPECT_EQ(store->cachedData(gone), std::nullopt);
    EXPECT_EQ(handles(), std::vector{left});
    EXPECT_THAT(counts(), ElementsAre("1", "1", "0"));
}

TEST_F(EncryptedBinaryStoreTest, ListsWhatIsThere) {
    open();
    const std::string stored = keep(bytesOf(10));
    clock.advance(1s);
    const std::string cachedOne = fetch(photo, bytesOf(20), 60);
    store->setCanonicalUrl(cachedOne, "https://example.com/a", 30);
    const std::vector<Blob> expected{
        {.handle = stored,
         .type = "application/pdf",
         .size = 10,
         .canonicalUrls = {},
         .expiry = std::nullopt,
         .kind = Blob::Kind::stored},
        {.handle = cachedOne,
         .type = "image/jpeg",
         .size = 20,
         .canonicalUrls = {"https://example.com/a", "https://example.com/photo.jpg"},
         .expiry = morning + 61s,
         .kind = Blob::Kind::cached}};
    EXPECT_EQ(store->blobs(), expected);
    reopen();
    EXPECT_EQ(store->blobs(), expected);
    clock.advance(30s);
    EXPECT_THAT(store->blobs().value().at(1).canonicalUrls,
                ElementsAre("https://example.com/photo.jpg"));
    clock.advance(30s);
    EXPECT_EQ(handles(), std::vector{stored});
}

// --- The file

TEST_F(EncryptedBinaryStoreTest, WritesNothingInClear) {
    open();
    const std::string secret = "a secret that stands in no file";
    const Bytes bytes(secret.begin(), secret.end());
    const std::string handle = store->store(bytes, "x-type/of-the-secret", bytes.size());
    store->setCanonicalUrl(handle, "https://example.com/secret", 60);
    store.reset();
    const Bytes whole = contents(file);
    ASSERT_GT(whole.size(), 4096u);
    for (const std::string& text : {secret, handle, std::string("of-the-secret"),
                                    std::string("example.com"), std::string("zem_binaries")}) {
        EXPECT_TRUE(std::ranges::search(whole, text).empty()) << text;
    }
}

TEST_F(EncryptedBinaryStoreTest, LiesBesideAStoreOfTheSameOption) {
    const auto keys = std::make_shared<test::MemoryKeyStore>();
    const auto encryption = SQLiteStore::EncryptionOption::kept(keys);
    const auto records = SQLiteStore::create({folder.path(), encryption});
    std::string handle;
    {
        const auto binaries = EncryptedBinaryStore::create(options(encryption));
        handle = binaries->store(bytesOf(100), "image/png", 100);
    }
    const auto binaries = EncryptedBinaryStore::create(options(encryption));
    EXPECT_EQ(binaries->cachedData(handle), bytesOf(100));
    EXPECT_EQ(keys->items.size(), 2u);
    EXPECT_TRUE(fs::exists(folder / "zem.db"));
    struct stat status{};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
}

struct OpeningCase {
    const char* name;
    std::function<void(const fs::path&)> make;
    const char* withWrongKey;
    const char* withRightKey;
};

TEST_F(EncryptedBinaryStoreTest, OpensByKeyAndFileLikeThis) {
    open();
    keep(bytesOf(20'000));
    store.reset();
    const Bytes whole = contents(file);
    const auto write = [](Bytes bytes) {
        return [bytes = std::move(bytes)](const fs::path& path) {
            std::ofstream stream(path, std::ios::binary);
            std::ranges::copy(bytes, std::ostreambuf_iterator<char>(stream));
        };
    };
    const auto opening = [this](const fs::path& place, SQLiteStore::EncryptionOption encryption) {
        Options chosen(place, std::move(encryption));
        chosen.clock = clock.clock();
        try {
            EncryptedBinaryStore::create(chosen);
            return std::string("opened");
        } catch (const SQLiteOpeningError& error) {
            EXPECT_EQ(error.what(), "cannot open the database " + (place / "binaries.db").string() +
                                        ": " + error.reason());
            return error.reason();
        } catch (const std::exception& error) {
            return std::string(error.what());
        }
    };
    constexpr const char* undecrypted7 =
        "its key is another one, or it is damaged (SQLite error 7)";
    constexpr const char* undecrypted26 =
        "its key is another one, or it is damaged (SQLite error 26)";
    const std::vector<OpeningCase> cases{
        {"new", [](const fs::path&) {}, "opened", "opened"},
        {"existing", write(whole), undecrypted7, "opened"},
        {"plain SQLite",
         [](const fs::path& path) { RawDatabase(path).execute("create table t (x)"); },
         "SQL logic error", "SQL logic error"},
        {"no database", write(Bytes(20'000, 'x')), undecrypted26, undecrypted26},
        {"truncated in its first page", write(Bytes(whole.begin(), whole.begin() + 1000)),
         undecrypted7, undecrypted7},
        {"zero-length", write({}), "opened", "opened"},
    };
    for (const OpeningCase& each : cases) {
        SCOPED_TRACE(each.name);
        for (const auto& [key, expected] :
             {std::pair{test::storeKey, each.withRightKey},
              std::pair{test::anotherKey, each.withWrongKey},
              std::pair{std::string_view(), "The key of the database must not be empty: expected "
                                            "at least 1 byte, found 0"}}) {
            const test::TemporaryFolder place;
            const fs::path database = place / "binaries.db";
            each.make(database);
            const bool existed = fs::exists(database);
            const Bytes before = contents(database);
            EXPECT_EQ(opening(place.path(), test::keyAndSalt(key)), expected);
            if (std::string(expected) != "opened") {
                EXPECT_EQ(fs::exists(database), existed);
                EXPECT_TRUE(contents(database) == before) << "the file was changed";
            }
        }
    }
}

TEST_F(EncryptedBinaryStoreTest, LogsADamagedBlobAndDoesNotGiveItOut) {
    open();
    const std::string handle = keep(bytesOf(1 << 20));
    const std::string other = keep(bytesOf(10));
    store.reset();
    RawDatabase(file, RawDatabase::Secrets{.key = std::string(test::storeKey),
                                           .saltHex = test::storeSaltHex})
        .execute("update zem_binary_pieces set bytes = x'00' where binary_id = 1");
    open();
    test::LogCapture log;
    EXPECT_EQ(store->cachedData(handle), std::nullopt);
    EXPECT_THAT(log.lines(), ElementsAre("reading a binary failed: database disk image is "
                                         "malformed (SQLite error 11)"));
    EXPECT_EQ(store->cachedData(other), bytesOf(10));
}

TEST_F(EncryptedBinaryStoreTest, SaysWhatIsWrongWithItsFile) {
    open();
    const std::string handle = keep(bytesOf(10));
    store.reset();
    RawDatabase(file, RawDatabase::Secrets{.key = std::string(test::storeKey),
                                           .saltHex = test::storeSaltHex})
        .execute("alter table zem_binaries rename column handle to name");
    open();
    test::LogCapture log;
    const std::string reason = "SQL logic error (SQLite error 1)";
    EXPECT_EQ(cached(photo), Answer(std::unexpected("the binaries cannot be read: " + reason)));
    EXPECT_EQ(store->blobs().error(), reason);
    try {
        keep(bytesOf(10));
        ADD_FAILURE() << "it was kept";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "a binary of 10 bytes cannot be kept: " + reason);
    }
    EXPECT_EQ(store->cachedData(handle), std::nullopt);
    store->setCanonicalUrl(handle, photo.absoluteString(), 60);
    EXPECT_FALSE(store->remove(handle));
    EXPECT_THAT(log.lines(), ElementsAre("reading a binary failed: " + reason,
                                         "naming a binary failed: " + reason,
                                         "removing a binary failed: " + reason));
}

TEST_F(EncryptedBinaryStoreTest, UsesFreedSpaceAgain) {
    openWithQuota(0);
    std::uintmax_t size = 0;
    for (int round = 0; round < 5; ++round) {
        const std::string handle = keep(bytesOf(4 << 20));
        EXPECT_TRUE(store->remove(handle));
        store.reset(); // takes the log into the file
        size = round == 0 ? fs::file_size(file) : size;
        EXPECT_LT(fs::file_size(file), size + size / 10);
        openWithQuota(0);
    }
}

TEST_F(EncryptedBinaryStoreTest, DoesNotLetItsLogStayLong) {
    open();
    keep(bytesOf(16 << 20));
    const fs::path log = folder / "binaries.db-wal";
    EXPECT_GT(fs::file_size(log), 16u << 20);
    keep(bytesOf(1));
    EXPECT_EQ(fs::file_size(log), 4'194'304u);
}

// --- Caching

TEST_F(EncryptedBinaryStoreTest, FetchesOnceAndAnswersTheHandleWhileItIsFresh) {
    open();
    const auto answers = std::make_shared<Answers>();
    store->cache(photo, 60, into(answers));
    EXPECT_THAT(*answers, IsEmpty());
    clock.advance(5s);
    fetcher->answer(0, content(bytesOf(100)));
    ASSERT_EQ(answers->size(), 1u);
    const std::string handle = answers->front().value();
    EXPECT_EQ(store->cachedData(handle), bytesOf(100));
    EXPECT_EQ(store->blobs().value().at(0).expiry, morning + 65s);

    clock.advance(60s - 1ms);
    EXPECT_EQ(cached(photo), handle);
    reopen();
    EXPECT_EQ(cached(photo), handle);
    EXPECT_EQ(store->cachedData(handle), bytesOf(100));
    clock.advance(1ms);
    EXPECT_EQ(store->cachedData(handle), std::nullopt);
    const auto later = std::make_shared<Answers>();
    store->cache(photo, 60, into(later));
    fetcher->answer(1, content(bytesOf(50)));
    EXPECT_NE(later->at(0).value(), handle);
    EXPECT_THAT(fetcher->urls(), ElementsAre(photo.absoluteString(), photo.absoluteString()));
    EXPECT_EQ(answers->size(), 1u);
}

TEST_F(EncryptedBinaryStoreTest, KeepsTheTypeThatTheFetcherTells) {
    open();
    fetcher->answersAtOnce = content(bytesOf(1), "application/x-plan");
    ASSERT_TRUE(cached(plan));
    EXPECT_EQ(store->blobs().value().at(0).type, "application/x-plan");
}

TEST_F(EncryptedBinaryStoreTest, RemovesAnExpiredBlobWhenItIsFound) {
    open();
    const std::string handle = fetch(photo, bytesOf(3 << 20));
    clock.advance(60s);
    EXPECT_EQ(store->cachedData(handle), std::nullopt);
    EXPECT_THAT(counts(), ElementsAre("0", "0", "0"));
}

TEST_F(EncryptedBinaryStoreTest, RemovesExpiredBlobsWhenItIsOpened) {
    open();
    fetch(photo, bytesOf(3 << 20), 60);
    const std::string left = fetch(plan, bytesOf(10), 61);
    const std::string stored = keep(bytesOf(10));
    store->setCanonicalUrl(stored, "https://example.com/a", 60);
    clock.advance(60s);
    reopen();
    EXPECT_THAT(handles(), ElementsAre(left, stored));
    EXPECT_THAT(counts(), ElementsAre("2", "2", "1"));
}

TEST_F(EncryptedBinaryStoreTest, RemovesExpiredBlobsWhenItKeepsAnother) {
    open();
    fetch(photo, bytesOf(10));
    clock.advance(60s);
    keep(bytesOf(10));
    EXPECT_THAT(counts(), ElementsAre("1", "1", "0"));
}

TEST_F(EncryptedBinaryStoreTest, DoesNotCallAnExpiredBlobRemoved) {
    open();
    const std::string handle = fetch(photo, bytesOf(10));
    clock.advance(60s);
    EXPECT_FALSE(store->remove(handle));
}

TEST_F(EncryptedBinaryStoreTest, SharesAFetchAndItsLongestTime) {
    open();
    const auto answers = std::make_shared<Answers>();
    for (const std::int64_t ttlSeconds : {30, 90, 60}) {
        store->cache(photo, ttlSeconds, into(answers));
    }
    store->cache(plan, 10, into(answers));
    EXPECT_THAT(fetcher->urls(), ElementsAre(photo.absoluteString(), plan.absoluteString()));
    fetcher->answer(0, content(bytesOf(100)));
    ASSERT_EQ(answers->size(), 3u);
    EXPECT_EQ(answers->at(0), answers->at(1));
    EXPECT_EQ(answers->at(0), answers->at(2));
    EXPECT_EQ(store->blobs().value().at(0).expiry, morning + 90s);
    fetcher->answer(1, content(bytesOf(100)));
    EXPECT_EQ(answers->size(), 4u);
}

TEST_F(EncryptedBinaryStoreTest, DropsASecondAnswerOfTheFetcher) {
    open();
    const auto answers = std::make_shared<Answers>();
    store->cache(photo, 60, into(answers));
    fetcher->answer(0, std::unexpected("no network"));
    store->cache(photo, 60, into(answers));
    fetcher->answer(0, content(bytesOf(100)));
    EXPECT_THAT(*answers, ElementsAre(Answer(std::unexpected("no network"))));
    EXPECT_THAT(handles(), IsEmpty());
    fetcher->answer(1, content(bytesOf(5)));
    EXPECT_EQ(store->cachedData(answers->at(1).value()), bytesOf(5));
}

TEST_F(EncryptedBinaryStoreTest, PassesTheFetchersErrorOnAndFetchesAgain) {
    open();
    const auto answers = std::make_shared<Answers>();
    store->cache(photo, 60, into(answers));
    store->cache(photo, 60, into(answers));
    fetcher->answer(0, std::unexpected("no network"));
    EXPECT_THAT(*answers, ElementsAre(Answer(std::unexpected("no network")),
                                      Answer(std::unexpected("no network"))));
    EXPECT_THAT(handles(), IsEmpty());
    EXPECT_NE(fetch(photo, bytesOf(3)), "");
}

TEST_F(EncryptedBinaryStoreTest, AnswersWhenTheFetcherThrows) {
    Options chosen = options();
    chosen.fetcher = std::make_shared<ThrowingFetcher>();
    store = EncryptedBinaryStore::create(chosen);
    EXPECT_EQ(cached(photo), Answer(std::unexpected("no thread left")));
    EXPECT_EQ(cached(photo), Answer(std::unexpected("no thread left")));
}

TEST_F(EncryptedBinaryStoreTest, WithoutAFetcherAnswersOnlyWithWhatIsThere) {
    open();
    const std::string handle = fetch(photo, bytesOf(3));
    store.reset();
    Options chosen = options();
    chosen.fetcher = nullptr;
    store = EncryptedBinaryStore::create(chosen);
    EXPECT_EQ(cached(photo), handle);
    EXPECT_EQ(cached(plan),
              Answer(std::unexpected("the binary store has no fetcher: it caches nothing new")));
}

TEST_F(EncryptedBinaryStoreTest, RefusesATimeOfLessThanASecond) {
    open();
    EXPECT_EQ(cached(photo, 0),
              Answer(std::unexpected("expected a time to live of at least 1 second, found 0")));
    EXPECT_EQ(cached(photo, -5),
              Answer(std::unexpected("expected a time to live of at least 1 second, found -5")));
    EXPECT_THAT(fetcher->urls(), IsEmpty());
    fetch(photo, bytesOf(3), 1);
    EXPECT_EQ(store->blobs().value().at(0).expiry, morning + 1s);
}

TEST_F(EncryptedBinaryStoreTest, KeepsForAnyLengthOfTime) {
    open();
    const std::string handle = fetch(photo, bytesOf(3), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(store->blobs().value().at(0).expiry, Time(9'007'199'254'740'992ms));
    clock.advance(std::chrono::hours(24 * 365 * 1000));
    EXPECT_EQ(cached(photo), handle);
}

// --- Names

TEST_F(EncryptedBinaryStoreTest, KnowsABlobByItsCanonicalUrlWhileThatIsFresh) {
    open();
    const std::string handle = keep(bytesOf(10));
    store->setCanonicalUrl(handle, photo.absoluteString(), 60);
    reopen();
    EXPECT_EQ(cached(photo), handle);
    EXPECT_EQ(store->cachedData(photo.absoluteString()), bytesOf(10));
    clock.advance(60s - 1ms);
    EXPECT_EQ(cached(photo), handle);
    clock.advance(1ms);
    EXPECT_EQ(store->cachedData(photo.absoluteString()), std::nullopt);
    EXPECT_EQ(store->cachedData(handle), bytesOf(10));
    const auto answers = std::make_shared<Answers>();
    store->cache(photo, 60, into(answers));
    EXPECT_THAT(fetcher->urls(), ElementsAre(photo.absoluteString()));
}

TEST_F(EncryptedBinaryStoreTest, KnowsABlobByEachOfItsNames) {
    open();
    const std::string handle = fetch(photo, bytesOf(10));
    store->setCanonicalUrl(photo.absoluteString(), plan.absoluteString(), 60);
    EXPECT_EQ(cached(photo), handle);
    EXPECT_EQ(cached(plan), handle);
    EXPECT_TRUE(store->remove(plan.absoluteString()));
    EXPECT_EQ(store->cachedData(handle), std::nullopt);
}

TEST_F(EncryptedBinaryStoreTest, KeepsACachedBlobAsLongAsItsName) {
    open();
    const std::string handle = fetch(photo, bytesOf(10), 60);
    store->setCanonicalUrl(handle, plan.absoluteString(), 30);
    EXPECT_EQ(store->blobs().value().at(0).expiry, morning + 60s);
    store->setCanonicalUrl(handle, plan.absoluteString(), 90);
    EXPECT_EQ(store->blobs().value().at(0).expiry, morning + 90s);
    clock.advance(60s);
    EXPECT_EQ(cached(plan), handle);
    EXPECT_EQ(store->cachedData(photo.absoluteString()), std::nullopt);
}

TEST_F(EncryptedBinaryStoreTest, GivesANameToOneBlobOnly) {
    open();
    const std::string before = fetch(photo, bytesOf(10));
    const std::string now = keep(bytesOf(20));
    store->setCanonicalUrl(now, photo.absoluteString(), 60);
    EXPECT_EQ(cached(photo), now);
    EXPECT_EQ(store->cachedData(before), bytesOf(10));
    EXPECT_TRUE(store->remove(before));
    EXPECT_EQ(cached(photo), now);
}

TEST_F(EncryptedBinaryStoreTest, TakesANameAwayThatExpiresAtOnce) {
    open();
    const std::string handle = keep(bytesOf(10));
    for (const std::int64_t ttlSeconds :
         {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::min()}) {
        store->setCanonicalUrl(handle, photo.absoluteString(), 60);
        store->setCanonicalUrl(handle, photo.absoluteString(), ttlSeconds);
        EXPECT_EQ(store->cachedData(photo.absoluteString()), std::nullopt);
    }
    EXPECT_EQ(store->cachedData(handle), bytesOf(10));
    EXPECT_THAT(counts(), ElementsAre("1", "1", "0"));
}

TEST_F(EncryptedBinaryStoreTest, NamesNothingThatIsNotThere) {
    open();
    store->setCanonicalUrl("another", photo.absoluteString(), 60);
    EXPECT_EQ(store->cachedData(photo.absoluteString()), std::nullopt);
    EXPECT_THAT(counts(), ElementsAre("0", "0", "0"));
}

// --- Quota

TEST_F(EncryptedBinaryStoreTest, HasAQuotaOfOneGibibyteByDefault) {
    EXPECT_EQ(options().quota, 1'073'741'824u);
}

TEST_F(EncryptedBinaryStoreTest, RemovesTheCachedBlobWhoseLastUseIsTheLongestAgo) {
    openWithQuota(400);
    std::vector<std::string> cachedOnes;
    for (const char* name : {"a", "b", "c"}) {
        cachedOnes.push_back(
            fetch(urlOf(std::string("https://example.com/") + name), bytesOf(100)));
    }
    const std::string stored = keep(bytesOf(100));
    EXPECT_EQ(handles().size(), 4u); // the quota is full, and not exceeded

    (void)store->cachedData(cachedOnes[0]);             // a use
    (void)cached(urlOf("https://example.com/b"));       // another
    const std::string first = fetch(photo, bytesOf(1)); // c goes
    EXPECT_THAT(handles(), ElementsAre(cachedOnes[0], cachedOnes[1], stored, first));
    store.reset();
    openWithQuota(400);                            // the order survives
    const std::string second = keep(bytesOf(100)); // a goes, for a stored one
    EXPECT_THAT(handles(), ElementsAre(cachedOnes[1], stored, first, second));
    const std::string third = fetch(plan, bytesOf(200)); // b and the photo go
    EXPECT_THAT(handles(), ElementsAre(stored, second, third));
}

TEST_F(EncryptedBinaryStoreTest, NeverRemovesStoredBlobsForTheQuota) {
    openWithQuota(100);
    std::vector<std::string> stored;
    const std::string cachedOne = fetch(photo, bytesOf(50));
    for (int count = 0; count < 3; ++count) {
        stored.push_back(keep(bytesOf(100)));
    }
    EXPECT_EQ(handles(), stored);
    EXPECT_EQ(store->cachedData(cachedOne), std::nullopt);
    fetcher->answersAtOnce = content(bytesOf(1));
    EXPECT_EQ(cached(photo),
              Answer(std::unexpected("a binary of 1 bytes cannot be kept: the quota is 100 bytes, "
                                     "stored blobs have 300 of them, found 1 bytes more")));
    EXPECT_EQ(handles(), stored);
}

TEST_F(EncryptedBinaryStoreTest, RemovesNothingForContentThatCannotFit) {
    openWithQuota(100);
    const std::string small = fetch(photo, bytesOf(60));
    fetcher->answersAtOnce = content(bytesOf(101));
    EXPECT_EQ(cached(plan),
              Answer(std::unexpected("a binary of 101 bytes cannot be kept: the quota is 100 "
                                     "bytes, stored blobs have 0 of them, found 101 bytes more")));
    EXPECT_EQ(handles(), std::vector{small});
    const std::string whole = fetch(plan, bytesOf(100));
    EXPECT_EQ(handles(), std::vector{whole});
}

TEST_F(EncryptedBinaryStoreTest, CountsExpiredBlobsNoMore) {
    openWithQuota(100);
    fetch(photo, bytesOf(50), 30);
    const std::string left = fetch(plan, bytesOf(50), 60);
    (void)store->cachedData(photo.absoluteString()); // the plan's use is the older one
    clock.advance(30s);
    const std::string added = fetch(urlOf("https://example.com/a"), bytesOf(50));
    EXPECT_THAT(handles(), ElementsAre(left, added));
}

// --- Calling back, and the end

TEST_F(EncryptedBinaryStoreTest, AnswersCallsThatAreOutWhenItIsDestroyed) {
    open();
    const auto answers = std::make_shared<Answers>();
    store->cache(photo, 60, into(answers));
    store->cache(plan, 60, into(answers));
    store->cache(photo, 60, into(answers));
    store.reset();
    const Answer gone = std::unexpected("the binary store is gone");
    EXPECT_THAT(*answers, ElementsAre(gone, gone, gone));
    fetcher->answer(0, content(bytesOf(100)));
    fetcher->answer(1, std::unexpected("no network"));
    EXPECT_EQ(answers->size(), 3u);
    open();
    EXPECT_THAT(handles(), IsEmpty());
}

TEST_F(EncryptedBinaryStoreTest, MayBeDestroyedByACompletion) {
    for (const bool atOnce : {false, true}) {
        SCOPED_TRACE(atOnce);
        open();
        if (atOnce) {
            fetcher->answersAtOnce = content(bytesOf(10));
        }
        const std::weak_ptr<EncryptedBinaryStore> weak = store;
        std::optional<Answer> heard;
        store->cache(atOnce ? plan : photo, 60, [&](Answer answer) {
            store.reset();
            heard = std::move(answer);
        });
        if (!atOnce) {
            fetcher->answer(0, content(bytesOf(10)));
        }
        ASSERT_TRUE(heard && *heard);
        EXPECT_TRUE(weak.expired());
        open(); // the file is closed
        EXPECT_EQ(store->cachedData(**heard), bytesOf(10));
    }
}

TEST_F(EncryptedBinaryStoreTest, MayBeCalledByACompletion) {
    open();
    std::optional<Bytes> read;
    store->cache(photo, 60, [&](const Answer& handle) {
        read = store->cachedData(handle.value());
        EXPECT_EQ(cached(photo), handle);
    });
    fetcher->answer(0, content(bytesOf(10)));
    EXPECT_EQ(read, bytesOf(10));
}

TEST_F(EncryptedBinaryStoreTest, AnswersTheOthersWhenACompletionThrows) {
    open();
    test::LogCapture log;
    const auto answers = std::make_shared<Answers>();
    store->cache(photo, 60, [](const Answer&) { throw std::runtime_error("private"); });
    store->cache(photo, 60, into(answers));
    fetcher->answer(0, content(bytesOf(10)));
    ASSERT_EQ(answers->size(), 1u);
    EXPECT_TRUE(answers->front());
    EXPECT_THAT(log.lines(),
                ElementsAre(testing::HasSubstr("the completion of a cached binary threw: ")));
    EXPECT_THAT(log.lines().at(0), testing::Not(testing::HasSubstr("private")));
}

TEST_F(EncryptedBinaryStoreTest, ServesManyThreadsAtOnce) {
    constexpr int threadCount = 8;
    constexpr int rounds = 25;
    open();
    std::atomic<int> answered = 0;
    {
        std::vector<std::jthread> threads;
        for (int number = 0; number < threadCount; ++number) {
            threads.emplace_back([this, number, &answered] {
                for (int round = 0; round < rounds; ++round) {
                    const Bytes bytes = bytesOf(static_cast<std::size_t>(1000 + round),
                                                static_cast<unsigned>(number));
                    const std::string handle = keep(bytes);
                    store->cache(photo, 60, [&answered](const Answer& answer) {
                        EXPECT_TRUE(answer);
                        ++answered;
                    });
                    store->setCanonicalUrl(handle, "https://example.com/" + handle, 60);
                    EXPECT_EQ(store->cachedData("https://example.com/" + handle), bytes);
                    EXPECT_TRUE(store->blobs());
                    EXPECT_TRUE(round % 2 == 0 || store->remove(handle));
                }
            });
        }
        threads.emplace_back([this] { fetcher->answer(0, content(bytesOf(100))); });
    }
    EXPECT_EQ(answered, threadCount * rounds);
    EXPECT_THAT(fetcher->urls(), ElementsAre(photo.absoluteString()));
    EXPECT_EQ(handles().size(), static_cast<std::size_t>(threadCount * (rounds / 2 + 1) + 1));
}

TEST_F(EncryptedBinaryStoreTest, AnswersOnceWhenDestroyedWhileContentArrives) {
    for (int round = 0; round < 50; ++round) {
        open();
        std::atomic<int> answers = 0;
        const URL url = urlOf("https://example.com/" + std::to_string(round));
        store->cache(url, 60, [&answers](const Answer&) { ++answers; });
        {
            const std::jthread arriving([this, round] {
                fetcher->answer(static_cast<std::size_t>(round), content(bytesOf(100)));
            });
            store.reset();
        }
        EXPECT_EQ(answers, 1);
    }
}

} // namespace
