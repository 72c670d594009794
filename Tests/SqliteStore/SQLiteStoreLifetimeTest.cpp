// Dropping the store: from anywhere, at any time.

#include <gtest/gtest.h>

#include <SqliteStore/RawDatabase.h>
#include <SqliteStore/Store.h>
#include <Support/TemporaryFolder.h>
#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace {

using namespace zem;
using Lines = std::vector<std::string>;

std::shared_ptr<SQLiteStore> fileStore(const test::TemporaryFolder& folder) {
    return SQLiteStore::create({folder.path(), test::keyAndSalt()});
}

std::vector<std::string> keysIn(const test::TemporaryFolder& folder) {
    return test::RawDatabase(folder / "zem.db",
                             test::RawDatabase::Secrets{.key = std::string(test::storeKey),
                                                        .saltHex = test::storeSaltHex})
        .column("select key from zem_data order by key");
}

TEST(SQLiteStoreLifetime, DropsQueuedWorkWithoutACallWhenTheStoreGoes) {
    const test::TemporaryFolder folder;
    std::shared_ptr<SQLiteStore> store = fileStore(folder);
    test::Transcript transcript;
    const test::Registration listener([&](const auto&) { transcript.add("listener"); });
    test::Event dropped("the queued work to be dropped");
    test::Gate gate;

    gate.enter(*store);
    store->batchOperations({test::upsert({{"a", "1", nullptr}})},
                           [&, end = test::whenDestroyed([&] { dropped.signal(); })](
                               std::optional<std::string>) { transcript.add("completion"); });
    store->query(
        "insert into zem_data values ('b', '2', null)", {},
        [&](SQLiteResultSet) { transcript.add("result"); },
        [&, end = test::whenDestroyed([&] { dropped.signal(); })](std::string) {
            transcript.add("error");
        });
    const std::weak_ptr<SQLiteStore> weak = store;
    store.reset();
    EXPECT_FALSE(weak.expired()); // what has begun goes on
    gate.open();
    gate.wait(); // and is answered
    dropped.wait(2);

    EXPECT_EQ(transcript.lines(), Lines{});
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(keysIn(folder), Lines{});
}

TEST(SQLiteStoreLifetime, ClosesTheFileWithTheLastReference) {
    const test::TemporaryFolder folder;
    for (const std::string key : {"a", "b", "c"}) {
        const std::shared_ptr<SQLiteStore> store = fileStore(folder);
        EXPECT_EQ(test::batch(*store, {test::upsert({{key, "{}", nullptr}})}), std::nullopt);
    }
    // The last connection takes the log into the file when it closes.
    EXPECT_FALSE(std::filesystem::exists(folder / "zem.db-wal"));
    EXPECT_EQ(keysIn(folder), (Lines{"a", "b", "c"}));
}

TEST(SQLiteStoreLifetime, WorkThatItsCallerHearsOfHoldsTheStoreNoMore) {
    const test::TemporaryFolder folder;
    for (int round = 0; round < 20; ++round) {
        std::shared_ptr<SQLiteStore> store = fileStore(folder);
        const std::weak_ptr<SQLiteStore> weak = store;
        test::Arrival<bool> goneAtOnce("the completion");
        store->batchOperations({}, [&](std::optional<std::string>) {
            store.reset();
            goneAtOnce.put(weak.expired());
        });
        ASSERT_TRUE(goneAtOnce.get()) << "in round " << round;
        EXPECT_FALSE(std::filesystem::exists(folder / "zem.db-wal"));
    }
}

TEST(SQLiteStoreLifetime, MayBeDroppedFromAQuerysCallback) {
    std::shared_ptr<SQLiteStore> store = test::memoryStore();
    const std::weak_ptr<SQLiteStore> weak = store;
    test::Arrival<bool> goneAtOnce("the result");
    store->query("select 1", {},
                 [&](SQLiteResultSet) {
                     store.reset();
                     goneAtOnce.put(weak.expired());
                 },
                 {});
    EXPECT_TRUE(goneAtOnce.get());
}

TEST(SQLiteStoreLifetime, MayBeDroppedFromAListener) {
    const test::TemporaryFolder folder;
    std::shared_ptr<SQLiteStore> store = fileStore(folder);
    const std::weak_ptr<SQLiteStore> weak = store;
    test::Transcript transcript;
    test::Event entered("the listener");
    test::Event dropped("the last reference to be dropped");
    test::Arrival<bool> gone("the completion");
    const test::Registration listener([&](const auto&) {
        transcript.add("listener");
        entered.signal();
        dropped.wait();
    });
    store->batchOperations({test::upsert({{"a", "1", nullptr}})},
                           [&](const std::optional<std::string>& error) {
                               transcript.add(error.value_or("done"));
                               gone.put(weak.expired());
                           });
    store->batchOperations({test::upsert({{"b", "2", nullptr}})},
                           [&](std::optional<std::string>) { transcript.add("never"); });
    entered.wait();
    // From here on only the batch that is running holds the store, and lets it go on its own queue.
    store.reset();
    dropped.signal();
    EXPECT_TRUE(gone.get());
    EXPECT_EQ(transcript.lines(), (Lines{"listener", "done"}));
    EXPECT_EQ(keysIn(folder), (Lines{"a"}));
}

TEST(SQLiteStoreLifetime, MayBeDroppedByAListenerThatHoldsIt) {
    // The listener itself has the last reference, and unregistering it from within destroys both.
    std::shared_ptr<SQLiteStore> store = test::memoryStore();
    const std::weak_ptr<SQLiteStore> weak = store;
    const auto uuid = std::make_shared<std::string>();
    *uuid =
        SQLiteStoreNotifier::shared().registerListener(store, [uuid, held = store](const auto&) {
            const std::shared_ptr<std::string> id = uuid; // outlives the closure
            SQLiteStoreNotifier::shared().unregisterListener(*id);
        });
    test::Event done("the completion");
    store->batchOperations({}, [&](std::optional<std::string>) { done.signal(); });
    store.reset();
    done.wait();
    EXPECT_TRUE(weak.expired());
}

TEST(SQLiteStoreLifetime, UnregisteringMayDestroyTheStoreThatTheListenerHeld) {
    std::shared_ptr<SQLiteStore> store = test::memoryStore();
    const std::weak_ptr<SQLiteStore> weak = store;
    const std::string uuid =
        SQLiteStoreNotifier::shared().registerListener(store, [held = store](const auto&) {});
    store.reset();
    EXPECT_FALSE(weak.expired());
    SQLiteStoreNotifier::shared().unregisterListener(uuid);
    EXPECT_TRUE(weak.expired());
}

TEST(SQLiteStoreLifetime, TellsWhenItIsClosedAfterTheLastWorkWasAnswered) {
    const test::TemporaryFolder folder;
    std::shared_ptr<SQLiteStore> store = fileStore(folder);
    test::Transcript transcript;
    test::Event closed("the store to be closed");
    const auto note = [&](const std::string& what) {
        transcript.add(what + " on " + platform::SerialQueue::currentLabel());
    };
    store->whenClosed([&] {
        note(std::filesystem::exists(folder / "zem.db-wal") ? "open" : "closed");
        throw std::runtime_error("which is logged and dropped");
    });
    store->whenClosed([&] {
        note("closed, too");
        closed.signal();
    });
    test::Gate gate;
    gate.enter(*store);
    // Of what waits, the first is at work when the store is dropped by the listener.
    const test::Registration listener([&](const auto&) { store.reset(); });
    store->batchOperations({test::upsert({{"a", "1", nullptr}})},
                           [&](std::optional<std::string>) { note("answered"); });
    store->batchOperations({}, [&, end = test::whenDestroyed([&] { note("dropped"); })](
                                   std::optional<std::string>) { note("never"); });
    gate.open();
    closed.wait();
    const std::string callbacks = " on com.quorvane.zem.SQLiteConnectionCallbacks";
    Lines lines = transcript.lines();
    const auto dropped = std::ranges::find(lines, "dropped on com.quorvane.zem.SQLiteConnection");
    ASSERT_NE(dropped, lines.end());
    EXPECT_LT(dropped - lines.begin(), 2); // beside the answer, on another queue
    lines.erase(dropped);
    EXPECT_EQ(lines,
              (Lines{"answered" + callbacks, "closed" + callbacks, "closed, too" + callbacks}));
}

TEST(SQLiteStoreLifetime, TellsWhenItIsClosedThoughNobodyElseHoldsIt) {
    const test::TemporaryFolder folder;
    test::Arrival<bool> isOpen("the store to be closed");
    std::shared_ptr<SQLiteStore> store = fileStore(folder);
    store->whenClosed([&] { isOpen.put(std::filesystem::exists(folder / "zem.db-wal")); });
    store.reset();
    EXPECT_FALSE(isOpen.get());
}

TEST(SQLiteStoreLifetime, MayBeDroppedWhileRowsAreBeingRead) {
    std::shared_ptr<SQLiteStore> store = test::memoryStore();
    const std::weak_ptr<SQLiteStore> weak = store;
    test::Gate gate;
    gate.enter(*store);
    store.reset();
    gate.open();
    gate.wait();
    EXPECT_TRUE(weak.expired());
}

} // namespace
