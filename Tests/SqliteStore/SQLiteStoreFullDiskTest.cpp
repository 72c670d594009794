// A disk that is full: the batch fails, nothing of it is kept, nothing else is lost, and the store
// works on as soon as there is room.

#include <gtest/gtest.h>

#include <SqliteStore/Store.h>
#include <Support/TemporaryFolder.h>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/mount.h>

namespace {

using namespace zem;

/// A file system in memory of a few MiB.
class SmallDisk {
  public:
    explicit SmallDisk(std::filesystem::path where)
        : folder(std::move(where)) {
        mounted = mount("zem-test", folder.c_str(), "tmpfs", 0, "size=4m") == 0;
        reason = mounted ? "" : std::strerror(errno);
    }
    ~SmallDisk() {
        if (mounted) {
            umount2(folder.c_str(), MNT_DETACH);
        }
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    void grow() {
        ASSERT_EQ(mount("zem-test", folder.c_str(), "tmpfs", MS_REMOUNT, "size=64m"), 0);
    }

    std::filesystem::path folder;
    bool mounted = false;
    std::string reason;
};

std::vector<std::vector<SQLiteValue>> rowsOf(int batch) {
    std::vector<std::vector<SQLiteValue>> rows;
    for (int row = 0; row < 100; ++row) {
        rows.push_back({std::to_string(batch) + "/" + std::to_string(row), std::to_string(batch),
                        std::string(1000, 'x')});
    }
    return rows;
}

TEST(SQLiteStoreFullDisk, FailsTheBatchKeepsTheOthersAndWorksOnWhenThereIsRoom) {
    const test::TemporaryFolder folder;
    SmallDisk disk(folder.path());
    if (!disk.mounted) {
        GTEST_SKIP() << "this machine allows no file system of our own: " << disk.reason;
    }
    const auto store = SQLiteStore::create({disk.folder / "data", test::keyAndSalt()});
    int written = 0;
    std::optional<std::string> failure;
    for (; written < 1000 && !failure; ++written) {
        failure = test::batch(*store, {test::upsert(rowsOf(written))});
    }
    --written; // the last one failed
    EXPECT_EQ(failure, "The operation couldn't be completed. (SQLiteResult error 13.)");
    EXPECT_GT(written, 0);
    const auto count = [&] {
        return *test::query(*store, "select count(*) from zem_data").rows.at(0).at(0).number();
    };
    EXPECT_EQ(count(), written * 100);

    disk.grow();
    EXPECT_EQ(test::batch(*store, {test::upsert(rowsOf(written))}), std::nullopt);
    EXPECT_EQ(count(), (written + 1) * 100);
}

} // namespace
