// A first opening that is interrupted anywhere, by the end of its process, a full disk or a power
// cut, leaves a folder in which the next start works.

#include <gtest/gtest.h>

#include <SqliteStore/RawDatabase.h>
#include <SqliteStore/Store.h>
#include <Support/Process.h>
#include <Support/TemporaryFolder.h>
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using test::Process;
using test::RawDatabase;
using Result = Process::Result;

const RawDatabase::Secrets secrets{.key = std::string(test::storeKey),
                                   .saltHex = test::storeSaltHex};

constexpr const char* removedByHost =
    "zem: removed the store data/zem.db: its first opening was interrupted, and it held no row\n";

std::string contents(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void write(const fs::path& file, std::string_view text) {
    std::ofstream(file, std::ios::binary) << text;
}

/// How the program ended; of its errors, those that it printed itself: where there is no journal,
/// the log comes with them.
Result ended(Process& process) {
    Result result = process.wait();
    std::istringstream lines(std::exchange(result.errors, ""));
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("com.quorvane.ZEM/SQLiteStore error: ")) {
            result.errors += line + "\n";
        }
    }
    return result;
}

Result ended(Process&& process) {
    return ended(process);
}

/// A fault at one of the changes that a program makes in a folder; see Faults.cpp.
struct Fault {
    std::string kind;
    int at = 0;
};

/// A folder with the store in data/ and its key, known to the test, in keys/.
class Place {
  public:
    Place() {
        fs::create_directory(keys);
        fs::permissions(keys, fs::perms(0700));
        keep("com.quorvane.ZEM.SQLiteStoreKey", test::storeKey);
        keep("com.quorvane.ZEM.SQLiteStoreSalt", test::storeSalt);
        write(folder / "bundle.js", "console.log('started')");
    }

    Process::Options with(const Fault& fault) const {
        return {.folder = folder.path(),
                .environment = {{"LD_PRELOAD", ZEM_FAULTS},
                                {"ZEM_FAULT_FOLDER", data.string()},
                                {"ZEM_FAULT_KIND", fault.kind},
                                {"ZEM_FAULT_AT", std::to_string(fault.at)},
                                {"ZEM_FAULT_LOG", (folder / "log").string()},
                                {"ZEM_FAULT_IMAGE", image.string()}}};
    }

    /// The small program, in data/ and under this fault.
    Result open(const std::string& mode, const Fault& fault = {}) const {
        fs::create_directory(data);
        return ended(Process({ZEM_FIRST_OPENING, data.string(), mode}, with(fault)));
    }

    /// The host, in data/.
    Result start() const {
        return ended(Process({ZEM_HOST, "run", "bundle.js", "--data", "data", "--keys", "keys"},
                             {.folder = folder.path(), .environment = {}}));
    }

    /// The changes that were made so far.
    std::vector<std::string> changes() const {
        std::vector<std::string> lines;
        std::ifstream log(folder / "log");
        for (std::string line; std::getline(log, line);) {
            const std::size_t folderAt = line.find(data.string() + "/");
            lines.push_back(line.erase(folderAt, data.string().size() + 1));
        }
        return lines;
    }

    const test::TemporaryFolder folder;
    const fs::path data = folder / "data";
    const fs::path keys = folder / "keys";
    const fs::path image = folder / "image";

  private:
    void keep(const char* label, std::string_view secret) const {
        write(keys / label, secret);
        fs::permissions(keys / label, fs::perms(0600));
    }
};

using Changes = std::vector<std::string>;

/// The changes that a whole first opening makes: "write zem.db-wal" and the like.
const Changes& changesOfAFirstOpening() {
    static const Changes& changes = *new Changes([] {
        const Place place;
        EXPECT_EQ(place.open("open").output, "version 244000\n");
        return place.changes();
    }());
    return changes;
}

bool isSync(const std::string& change) {
    return change.starts_with("sync ");
}

bool isWrite(const std::string& change) {
    return change.starts_with("write ");
}

bool needsRoom(const std::string& change) {
    return !isSync(change) && !change.starts_with("remove ");
}

/// Starts the host, and says whether it had a half-made file to remove.
bool startHost(const Place& place) {
    const Result result = place.start();
    EXPECT_TRUE(result.errors.empty() || result.errors == removedByHost) << result.errors;
    EXPECT_EQ(result.output, "started\n");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(RawDatabase(place.data / "zem.db", secrets).column("PRAGMA user_version"),
              std::vector<std::string>{"244000"});
    return !result.errors.empty();
}

/// Interrupts a first opening at each of its changes of a kind. `next` runs after each, and says
/// whether it found a half-made file. Returns how often it did.
template <class Next>
int interruptAtEachChange(const std::string& kind, bool (*isChosen)(const std::string&),
                          Next&& next) {
    int halfMade = 0;
    const Changes& changes = changesOfAFirstOpening();
    for (std::size_t at = 0; at < changes.size() && !testing::Test::HasFailure(); ++at) {
        if (isChosen(changes[at])) {
            const Place place;
            SCOPED_TRACE(kind + " at change " + std::to_string(at + 1) + ", " + changes[at]);
            place.open("open", {kind, static_cast<int>(at) + 1});
            halfMade += next(place) ? 1 : 0;
        }
    }
    return halfMade;
}

/// Opens as a program that mends, and says whether there was something to mend.
bool mend(const Place& place) {
    const Result result = place.open("mend");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
    return result.output.starts_with("removed\n");
}

// Killing the process before a sync leaves the same files as killing it after the sync.
bool isNoSync(const std::string& change) {
    return !isSync(change);
}

TEST(FirstOpening, ThatIsKilledAtAnyChangeLetsTheHostStart) {
    EXPECT_GT(interruptAtEachChange("kill", isNoSync, startHost), 20);
}

TEST(FirstOpening, ThatIsKilledInTheMiddleOfAnyWriteIsMended) {
    EXPECT_GT(interruptAtEachChange("tear", isWrite, mend), 20);
}

TEST(FirstOpening, OnADiskThatFillsUpAtAnyWriteIsMended) {
    EXPECT_GT(interruptAtEachChange("full", needsRoom, mend), 20);
}

TEST(FirstOpening, WithAnyOneWriteRefusedIsMended) {
    EXPECT_GT(interruptAtEachChange("refuse", needsRoom, mend), 20);
}

TEST(FirstOpening, ThatAPowerCutInterruptsIsMended) {
    // A power cut leaves the same files anywhere between two syncs.
    interruptAtEachChange("kill", isSync, [](const Place& place) {
        fs::remove_all(place.data);
        if (fs::exists(place.image)) {
            fs::rename(place.image, place.data);
        }
        return mend(place);
    });
}

TEST(FirstOpening, IsNotUndoneByAPowerCutAfterItsEnd) {
    const Place place;
    ASSERT_EQ(place.open("die").code, -SIGKILL);
    ASSERT_TRUE(fs::exists(place.image / "zem.db"));
    EXPECT_EQ(RawDatabase(place.image / "zem.db", secrets).column("PRAGMA user_version"),
              std::vector<std::string>{"244000"});
}

TEST(FirstOpening, IsNotUndoneByALogOfAnyLength) {
    const Place place;
    ASSERT_EQ(place.open("write").code, -SIGKILL);
    const std::string log = contents(place.data / "zem.db-wal");
    ASSERT_GT(log.size(), 4096u);
    for (std::size_t length = 0; length <= log.size(); length += 1031) {
        const test::TemporaryFolder copy;
        fs::copy(place.data / "zem.db", copy / "zem.db");
        write(copy / "zem.db-wal", log.substr(0, length));
        EXPECT_EQ(RawDatabase(copy / "zem.db", secrets).column("PRAGMA user_version"),
                  std::vector<std::string>{"244000"})
            << length << " bytes";
    }
}

TEST(FirstOpening, ThatIsKilledBeforeTheLastSyncIsSyncedByTheNext) {
    // The versions are all in the log by then, and the next opening has none to run.
    const Changes& changes = changesOfAFirstOpening();
    const auto last = std::find(changes.rbegin(), changes.rend(), "sync zem.db-wal");
    ASSERT_NE(last, changes.rend());
    const Place place;
    place.open("open", {"kill", static_cast<int>(changes.rend() - last)});
    ASSERT_NE(RawDatabase(place.image / "zem.db", secrets).column("PRAGMA user_version"),
              std::vector<std::string>{"244000"});
    ASSERT_EQ(place.open("die").code, -SIGKILL);
    EXPECT_EQ(RawDatabase(place.image / "zem.db", secrets).column("PRAGMA user_version"),
              std::vector<std::string>{"244000"});
}

/// A change at which killing leaves a half-made file, in the middle of the first version.
Fault halfMaking() {
    return {"kill", static_cast<int>(changesOfAFirstOpening().size()) / 2};
}

TEST(FirstOpening, WhoseRemovalIsInterruptedIsMendedToo) {
    const auto prepare = [](const Place& place) {
        place.open("open", halfMaking());
        fs::remove(place.folder / "log");
    };
    Changes changes;
    {
        const Place place;
        prepare(place);
        ASSERT_EQ(place.open("mend").output, "removed\nversion 244000\n");
        changes = place.changes();
    }
    const auto removal = std::find(changes.begin(), changes.end(), "remove zem.db");
    ASSERT_NE(removal, changes.end());
    // Changes after the file is made again are those of a first opening.
    changes.erase(std::find(removal, changes.end(), "create zem.db"), changes.end());
    for (const std::string kind : {"kill", "full"}) {
        for (std::size_t at = 0; at < changes.size() && !HasFailure(); ++at) {
            SCOPED_TRACE(kind + " at change " + std::to_string(at + 1) + ", " + changes[at]);
            const Place place;
            prepare(place);
            place.open("mend", {kind, static_cast<int>(at) + 1});
            mend(place);
        }
    }
}

TEST(FirstOpening, ThatWasInterruptedIsNamedByTheNext) {
    const Place place;
    place.open("open", halfMaking());
    const Result next = place.open("open");
    EXPECT_EQ(next.errors, "cannot open the database " + (place.data / "zem.db").string() +
                               ": its first opening was interrupted; it holds no row, and "
                               "SQLiteStore::removeHalfMade removes it (SQLite error 1)\n");
    EXPECT_EQ(next.code, 1);
    const Result host = place.start();
    EXPECT_EQ(host.errors, removedByHost);
    EXPECT_EQ(host.output, "started\n");
    EXPECT_EQ(host.code, 0);
}

TEST(FirstOpening, OfTheHostThatCannotKeepAKeyIsRefused) {
    // For every user: no mode stops the superuser, a full disk does.
    for (int at = 1; at <= 2; ++at) {
        const Place place;
        fs::remove_all(place.keys);
        fs::create_directory(place.keys);
        fs::permissions(place.keys, fs::perms(0700));
        Process::Options options = place.with({"full", at});
        options.environment["ZEM_FAULT_FOLDER"] = place.keys.string();
        const Result result = ended(
            Process({ZEM_HOST, "run", "bundle.js", "--data", "data", "--keys", "keys"}, options));
        EXPECT_EQ(result.errors, "zem: cannot open the store data/zem.db: the new secret "
                                 "com.quorvane.ZEM.SQLiteStoreKey could not be kept by the key "
                                 "store\n");
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.code, 3);
        EXPECT_FALSE(fs::exists(place.data / "zem.db"));
        EXPECT_TRUE(fs::is_empty(place.keys));
    }
}

// --- Two at once

struct Ends {
    Result first;
    Result second;
};

Ends race(const Place& place, const std::string& first, const std::string& second) {
    const auto start = [&](const std::string& mode) {
        return std::make_unique<Process>(
            std::vector<std::string>{ZEM_FIRST_OPENING, place.data.string(), mode, "wait"},
            Process::Options{.folder = {}, .environment = {}, .hasInput = true});
    };
    const auto one = start(first);
    const auto other = start(second);
    one->write("x");
    other->write("x");
    Result end = ended(*one);
    return {std::move(end), ended(*other)};
}

/// One that opens the file while the other closes it may find it locked; nothing else goes wrong.
bool isOpenedOrLocked(const Result& result) {
    return (result.output == "version 244000\n" && result.errors.empty()) ||
           (result.output.empty() && result.errors == "database is locked\n");
}

TEST(FirstOpening, OfTwoProcessesAtOnceSucceedsInOneOrBoth) {
    for (int round = 0; round < 200 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const Place place;
        const Ends ends = race(place, "open", "open");
        for (const Result& each : {ends.first, ends.second}) {
            EXPECT_TRUE(isOpenedOrLocked(each)) << each.output << each.errors;
        }
        EXPECT_TRUE(ends.first.code == 0 || ends.second.code == 0);
        EXPECT_EQ(place.open("open").output, "version 244000\n");
    }
}

TEST(FirstOpening, IsNotDisturbedByAnotherThatFails) {
    for (int round = 0; round < 200 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const Place place;
        const Ends ends =
            round % 2 == 0 ? race(place, "refuse", "write") : race(place, "write", "refuse");
        const Result& refused = round % 2 == 0 ? ends.first : ends.second;
        const Result& opened = round % 2 == 0 ? ends.second : ends.first;
        EXPECT_EQ(refused.errors, "no key today\n");
        EXPECT_EQ(opened.errors, "");
        EXPECT_EQ(opened.output, "version 244000\n");
        EXPECT_EQ(RawDatabase(place.data / "zem.db", secrets).column("select key from zem_data"),
                  std::vector<std::string>{"kept"});
    }
}

} // namespace
