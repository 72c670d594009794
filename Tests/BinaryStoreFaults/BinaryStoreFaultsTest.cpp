// A change of the encrypted binary store that is interrupted anywhere, by the end of its process or
// a full disk, leaves each binary whole or absent.

#include <gmock/gmock.h>

#include <BinaryStoreFaults/Binaries.h>
#include <SqliteStore/RawDatabase.h>
#include <Support/Process.h>
#include <Support/TemporaryFolder.h>
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace zem;
using test::Process;
using testing::HasSubstr;
using testing::StartsWith;
using Lines = std::vector<std::string>;

constexpr const char* fullDisk = "failed: a binary of 3145728 bytes cannot be kept: database or "
                                 "disk is full (SQLite error 13)\n";

/// A folder with the binaries in data/, in which the keeper works.
class Place {
  public:
    Place() { fs::create_directory(data); }

    Process::Result run(const std::string& action, const std::string& fault = "",
                        std::size_t at = 0) const {
        Process keeper({ZEM_BINARY_KEEPER, data.string(), action},
                       {.folder = {},
                        .environment = {{"LD_PRELOAD", ZEM_FAULTS},
                                        {"ZEM_FAULT_FOLDER", data.string()},
                                        {"ZEM_FAULT_KIND", fault},
                                        {"ZEM_FAULT_AT", std::to_string(at)},
                                        {"ZEM_FAULT_LOG", log.string()},
                                        {"ZEM_FAULT_IMAGE", ""}}});
        return keeper.wait();
    }

    /// Runs it without a fault and gives the changes that it made, such as "write binaries.db-wal".
    Lines changesOf(const std::string& action) const {
        fs::remove(log);
        run(action);
        Lines changes;
        std::ifstream stream(log);
        for (std::string line; std::getline(stream, line);) {
            changes.push_back(line.erase(line.find(data.string()), data.string().size() + 1));
        }
        return changes;
    }

    /// Keeps a binary that no change of the test is about.
    void keepSmallOne() const {
        const auto store = EncryptedBinaryStore::create(test::binariesIn(data));
        store->store(test::smallBinary(), "text/plain", 0);
    }

    /// How many large binaries there are. Each binary is whole, the small one is there, and no
    /// piece lies about.
    std::size_t largeOnes() const {
        std::size_t count = 0;
        {
            const auto store = EncryptedBinaryStore::create(test::binariesIn(data));
            const auto blobs = store->blobs().value();
            for (const auto& blob : blobs) {
                const bool isLarge = blob.type == "image/jpeg";
                EXPECT_TRUE(store->cachedData(blob.handle) ==
                            (isLarge ? test::largeBinary() : test::smallBinary()));
                count += isLarge ? 1 : 0;
            }
            EXPECT_EQ(blobs.size(), count + 1);
        }
        test::RawDatabase database(data / "binaries.db",
                                   test::RawDatabase::Secrets{.key = std::string(test::storeKey),
                                                              .saltHex = test::storeSaltHex});
        EXPECT_EQ(database.column("select count(*) from zem_binary_pieces"),
                  Lines{std::to_string(3 * count + 1)});
        EXPECT_EQ(database.column("pragma integrity_check"), Lines{"ok"});
        return count;
    }

    const test::TemporaryFolder folder;
    const fs::path data = folder / "data";
    const fs::path log = folder / "log";
};

/// A place with the small binary, and `before` done to it.
void prepare(const Place& place, const std::string& before) {
    place.keepSmallOne();
    if (!before.empty()) {
        ASSERT_THAT(place.run(before).output, HasSubstr("kept "));
    }
}

/// Some of the changes that an action makes, and all of the last: there the transaction ends.
std::vector<std::size_t> chosenChanges(const std::string& before, const std::string& action) {
    const Place place;
    prepare(place, before);
    const std::size_t count = place.changesOf(action).size();
    EXPECT_GT(count, 1000u);
    std::vector<std::size_t> chosen;
    for (std::size_t at = 1; at <= count; at += at + 10 < count ? 127 : 1) {
        chosen.push_back(at);
    }
    return chosen;
}

/// Lets a fault happen at each of the chosen changes; `examine` is told what the keeper said.
template <class Examine>
void interrupt(const std::string& fault, const std::string& before, const std::string& action,
               Examine&& examine) {
    for (const std::size_t at : chosenChanges(before, action)) {
        SCOPED_TRACE(fault + " at change " + std::to_string(at));
        const Place place;
        prepare(place, before);
        const Process::Result result = place.run(action, fault, at);
        examine(place, result);
        if (testing::Test::HasFailure()) {
            return;
        }
    }
}

TEST(BinaryStoreFaults, AKillLeavesABinaryThatIsStoredWholeOrAbsent) {
    for (const char* fault : {"kill", "tear"}) {
        int absent = 0;
        int whole = 0;
        interrupt(fault, "", "store", [&](const Place& place, const Process::Result& result) {
            const std::size_t count = place.largeOnes();
            (count == 0 ? absent : whole) += 1;
            if (result.output.find("kept ") != std::string::npos) {
                EXPECT_EQ(count, 1u) << "it was kept and is gone";
            }
        });
        EXPECT_GT(absent, 5);
        EXPECT_GT(whole, 5);
    }
}

TEST(BinaryStoreFaults, AKillLeavesABinaryThatIsRemovedWholeOrAbsent) {
    int absent = 0;
    int whole = 0;
    interrupt("kill", "store", "remove", [&](const Place& place, const Process::Result& result) {
        const std::size_t count = place.largeOnes();
        (count == 0 ? absent : whole) += 1;
        if (result.output.find("removed") != std::string::npos) {
            EXPECT_EQ(count, 0u) << "it was removed and is there";
        }
    });
    EXPECT_GT(absent, 0);
    EXPECT_GT(whole, 0);
}

TEST(BinaryStoreFaults, AFullDiskLeavesNothingByHalfAndGivesOneError) {
    for (const char* action : {"store", "cache", "js-store", "js-cache"}) {
        int failed = 0;
        interrupt("full", "", action, [&](const Place& place, const Process::Result& result) {
            if (result.output == std::string("opened\n") + fullDisk) {
                ++failed;
                EXPECT_EQ(result.code, 0);
                EXPECT_EQ(place.largeOnes(), 0u);
            } else if (result.output.empty()) {
                EXPECT_EQ(result.code, 1); // it was not even opened
                EXPECT_EQ(place.largeOnes(), 0u);
            } else {
                EXPECT_THAT(result.output, StartsWith("opened\nkept "));
                EXPECT_EQ(place.largeOnes(), 1u);
            }
        });
        EXPECT_GT(failed, 5) << action;
    }
}

TEST(BinaryStoreFaults, AStoreGoesOnWhenThereIsRoomAgain) {
    int failed = 0;
    interrupt("refuse", "", "again", [&](const Place& place, const Process::Result& result) {
        if (result.output.starts_with(std::string("opened\n") + fullDisk)) {
            ++failed;
            EXPECT_THAT(result.output, HasSubstr("\nkept "));
        }
        if (!result.output.empty()) {
            EXPECT_EQ(place.largeOnes(), 1u);
        }
    });
    EXPECT_GT(failed, 5);
}

TEST(BinaryStoreFaults, AnOpeningThatIsInterruptedIsCompletedByTheNext) {
    const Place counted;
    const std::size_t changes = counted.changesOf("open").size();
    ASSERT_GT(changes, 20u);
    for (const char* fault : {"kill", "tear", "full"}) {
        for (std::size_t at = 1; at <= changes; ++at) {
            SCOPED_TRACE(std::string(fault) + " at change " + std::to_string(at));
            const Place place;
            place.run("open", fault, at);
            place.keepSmallOne();
            EXPECT_EQ(place.largeOnes(), 0u);
        }
    }
}

TEST(BinaryStoreFaults, AFullDiskDoesNotPreventTheOpeningWhereBinariesHaveExpired) {
    int opened = 0;
    interrupt("full", "cache", "later", [&](const Place& place, const Process::Result& result) {
        const std::size_t left = place.largeOnes();
        if (result.output == "opened\n" && left == 1) {
            ++opened;
            EXPECT_EQ(result.code, 0);
        }
    });
    EXPECT_GT(opened, 3);
}

TEST(BinaryStoreFaults, AChangeIsSyncedWhereTheOptionSaysSo) {
    for (const auto& [action, isSynced] : {std::pair{"small", false}, std::pair{"sync", true}}) {
        const Place place;
        place.keepSmallOne();
        const Lines changes = place.changesOf(action);
        // The process is killed when it has been told of the end. What is written to the log last
        // is the end of the transaction.
        ASSERT_FALSE(changes.empty());
        EXPECT_EQ(changes.back(), isSynced ? "sync binaries.db-wal" : "write binaries.db-wal");
    }
}

} // namespace
