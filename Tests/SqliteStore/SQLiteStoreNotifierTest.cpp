#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <SqliteStore/Store.h>
#include <atomic>
#include <set>
#include <thread>

namespace {

using namespace zem;
using test::batch;
using test::Registration;
using testing::UnorderedElementsAre;
using Changes = std::vector<SQLiteStoreChange>;
using Lines = std::vector<std::string>;

class SQLiteStoreNotifierTest : public testing::Test {
  protected:
    auto noting(std::string line) {
        return [this, line = std::move(line)](const Changes& changes) {
            transcript.add(line + " " + std::to_string(changes.size()));
        };
    }

    SQLiteStoreNotifier& notifier = SQLiteStoreNotifier::shared();
    test::Transcript transcript;
};

TEST_F(SQLiteStoreNotifierTest, IsOne) {
    EXPECT_EQ(&SQLiteStoreNotifier::shared(), &notifier);
}

TEST_F(SQLiteStoreNotifierTest, GivesEveryRegistrationAnIdOfItsOwn) {
    std::set<std::string> ids;
    for (int index = 0; index < 100; ++index) {
        const std::string id = notifier.registerListener({}, [](const Changes&) {});
        EXPECT_THAT(id, testing::MatchesRegex(
                            "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 100u);
    for (const std::string& id : ids) {
        notifier.unregisterListener(id);
    }
}

TEST_F(SQLiteStoreNotifierTest, CallsEveryListenerWithTheNextBatchesChanges) {
    const auto store = test::memoryStore();
    const Registration first(noting("first"), store);
    const Registration second(noting("second"), store);
    EXPECT_NE(first.uuid, second.uuid);
    EXPECT_EQ(batch(*store, {test::delete_({"a"})}), std::nullopt);
    EXPECT_THAT(transcript.lines(), UnorderedElementsAre("first 1", "second 1"));
}

TEST_F(SQLiteStoreNotifierTest, CallsOnlyTheOtherAfterOneWasUnregistered) {
    const auto store = test::memoryStore();
    const Registration first(noting("first"), store);
    const Registration second(noting("second"), store);
    notifier.unregisterListener(first.uuid);
    batch(*store, {});
    EXPECT_EQ(transcript.lines(), (Lines{"second 0"}));
    notifier.unregisterListener(first.uuid); // twice is harmless
    notifier.unregisterListener("unknown");
    batch(*store, {});
    EXPECT_EQ(transcript.lines(), (Lines{"second 0", "second 0"}));
}

TEST_F(SQLiteStoreNotifierTest, IsSilentOnABatchThatFails) {
    const auto store = test::memoryStore();
    const Registration listener(noting("listener"), store);
    EXPECT_NE(batch(*store, {test::failing()}), std::nullopt);
    EXPECT_EQ(transcript.lines(), Lines{});
}

TEST_F(SQLiteStoreNotifierTest, TellsEveryListenerOfEveryStoresBatches) {
    const auto one = test::memoryStore();
    const auto other = test::memoryStore();
    const Registration ofOne(noting("of one"), one);
    const Registration ofNone(noting("of none"));
    batch(*other, {});
    EXPECT_THAT(transcript.lines(), UnorderedElementsAre("of one 0", "of none 0"));
}

TEST_F(SQLiteStoreNotifierTest, KeepsTheListenersOfADestroyedStore) {
    auto store = test::memoryStore();
    const auto other = test::memoryStore();
    const Registration listener(noting("orphan"), store);
    store.reset();
    batch(*other, {});
    EXPECT_EQ(transcript.lines(), (Lines{"orphan 0"}));
    notifier.unregisterListener(listener.uuid);
    batch(*other, {});
    EXPECT_EQ(transcript.lines(), (Lines{"orphan 0"}));
}

TEST_F(SQLiteStoreNotifierTest, RemovesExactlyALiveStoresListeners) {
    const auto one = test::memoryStore();
    const auto other = test::memoryStore();
    auto gone = test::memoryStore();
    const Registration first(noting("first of one"), one);
    const Registration second(noting("second of one"), one);
    const Registration third(noting("of other"), other);
    const Registration fourth(noting("of none"));
    const Registration fifth(noting("of gone"), gone);
    gone.reset();
    notifier.unsubscribeListeners(*one);
    notifier.notifyOfChanges({});
    EXPECT_THAT(transcript.lines(), UnorderedElementsAre("of other 0", "of none 0", "of gone 0"));
}

TEST_F(SQLiteStoreNotifierTest, DestroysWhatItRemovesWithNoLockHeld) {
    const auto store = test::memoryStore();
    const auto registered = [&](const char* name) {
        return notifier.registerListener(
            store, [end = test::whenDestroyed([this, name] {
                        notifier.unregisterListener("unknown"); // takes the registry's lock
                        transcript.add(std::string(name) + " destroyed");
                    })](const Changes&) {});
    };
    const std::string one = registered("one");
    registered("another");
    notifier.unregisterListener(one);
    notifier.unsubscribeListeners(*store);
    EXPECT_EQ(transcript.lines(), (Lines{"one destroyed", "another destroyed"}));
}

TEST_F(SQLiteStoreNotifierTest, HandsEveryListenerTheSameListOnTheCallingThread) {
    const Changes changes{{.type = SQLiteOperationType::delete_,
                           .table = "t",
                           .keys = {"a", 1, nullptr},
                           .context = {{"c", true}}}};
    int called = 0;
    const auto check = [&, thread = std::this_thread::get_id()](const Changes& given) {
        ++called;
        EXPECT_EQ(&given, &changes);
        EXPECT_EQ(std::this_thread::get_id(), thread);
    };
    const Registration first(check);
    const Registration second(check);
    notifier.notifyOfChanges(changes);
    EXPECT_EQ(called, 2);
}

TEST_F(SQLiteStoreNotifierTest, LetsListenersUnregisterThemselvesAndOthers) {
    std::string uuids[3];
    for (std::string& uuid : uuids) {
        uuid = notifier.registerListener({}, [&](const Changes&) {
            transcript.add("called");
            for (const std::string& every : uuids) {
                notifier.unregisterListener(every);
            }
        });
    }
    notifier.notifyOfChanges({}); // all three were registered when it began
    EXPECT_EQ(transcript.lines(), Lines(3, "called"));
    notifier.notifyOfChanges({});
    EXPECT_EQ(transcript.lines(), Lines(3, "called"));
}

TEST_F(SQLiteStoreNotifierTest, CallsAListenerRegisteredMeanwhileFromTheNextBatchOn) {
    std::optional<Registration> late;
    const Registration listener([&](const Changes&) {
        transcript.add("listener");
        if (!late) {
            late.emplace(noting("late"));
        }
    });
    notifier.notifyOfChanges({});
    EXPECT_EQ(transcript.lines(), (Lines{"listener"}));
    notifier.notifyOfChanges({});
    EXPECT_THAT(transcript.lines(), UnorderedElementsAre("listener", "listener", "late 0"));
}

TEST_F(SQLiteStoreNotifierTest, TakesRegistrationsWhileItNotifies) {
    const auto store = test::memoryStore();
    std::atomic<bool> stop = false;
    std::thread registering([&] {
        while (!stop) {
            const Registration passing([](const Changes&) {}, store);
            notifier.unsubscribeListeners(*store);
        }
    });
    for (int index = 0; index < 100; ++index) {
        EXPECT_EQ(batch(*store, {}), std::nullopt);
    }
    stop = true;
    registering.join();
}

} // namespace
