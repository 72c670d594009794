// The queue of every callback, and the order of the callbacks.

#include <gtest/gtest.h>

#include <SqliteStore/Store.h>
#include <thread>

namespace {

using namespace zem;
using test::query;
using Lines = std::vector<std::string>;

const std::string connectionQueue = " on com.quorvane.zem.SQLiteConnection";
const std::string callbackQueue = " on com.quorvane.zem.SQLiteConnectionCallbacks";

std::string here(const std::string& line) {
    return line + " on " + platform::SerialQueue::currentLabel();
}

class SQLiteStoreOrder : public testing::Test {
  protected:
    void ask(const std::string& name, const std::string& sql) {
        store->query(
            sql, {},
            [this, name](const SQLiteResultSet& read) {
                transcript.add(here(name + ": " + std::to_string(read.rows.size()) + " rows"));
            },
            [this, name](const std::string&) { transcript.add(here(name + ": error")); });
    }
    void write(const std::string& name, std::vector<SQLiteOperation> operations) {
        store->batchOperations(std::move(operations), [this, name](std::optional<std::string> e) {
            transcript.add(here(name + (e ? ": error" : ": done")));
        });
    }
    /// Returns when everything that was asked for before has been answered.
    void settle() { query(*store, "select 1"); }

    const std::shared_ptr<SQLiteStore> store = test::memoryStore();
    test::Transcript transcript;
};

TEST_F(SQLiteStoreOrder, ListenersHearOnTheConnectionQueueBeforeTheCompletionOnTheCallbackQueue) {
    const test::Registration listener([this](const std::vector<SQLiteStoreChange>& changes) {
        transcript.add(here("listener: " + std::to_string(changes.size()) + " changes"));
    });
    write("batch", {test::upsert({{"a", "1", nullptr}}), test::delete_({"b"})});
    settle();
    EXPECT_EQ(transcript.lines(),
              (Lines{"listener: 2 changes" + connectionQueue, "batch: done" + callbackQueue}));
}

TEST_F(SQLiteStoreOrder, ErrorsAreHeardOnTheCallbackQueueToo) {
    write("batch", {test::failing()});
    ask("query", "select from nowhere");
    settle();
    EXPECT_EQ(transcript.lines(),
              (Lines{"batch: error" + callbackQueue, "query: error" + callbackQueue}));
}

TEST_F(SQLiteStoreOrder, AnswersComeInTheOrderOfTheCallsAndSeeWhatCameBefore) {
    const std::string all = "select * from zem_data";
    ask("1", all);
    write("2", {test::upsert({{"a", "1", nullptr}, {"b", "2", nullptr}})});
    ask("3", all);
    ask("4", "select from nowhere");
    write("5", {test::delete_({"a"}), test::failing()});
    ask("6", all);
    write("7", {test::delete_({"a"})});
    ask("8", all);
    settle();
    EXPECT_EQ(transcript.lines(), (Lines{"1: 0 rows" + callbackQueue, "2: done" + callbackQueue,
                                         "3: 2 rows" + callbackQueue, "4: error" + callbackQueue,
                                         "5: error" + callbackQueue, "6: 2 rows" + callbackQueue,
                                         "7: done" + callbackQueue, "8: 1 rows" + callbackQueue}));
}

TEST_F(SQLiteStoreOrder, NothingIsCalledBackBeforeTheCallReturns) {
    test::Gate gate;
    gate.enter(*store);
    write("batch", {});
    ask("query", "select 1");
    transcript.add("returned");
    gate.open();
    settle();
    EXPECT_EQ(transcript.lines(),
              (Lines{"returned", "batch: done" + callbackQueue, "query: 1 rows" + callbackQueue}));
}

TEST_F(SQLiteStoreOrder, ASlowCallbackDoesNotHoldUpTheDatabase) {
    test::Event held("the slow callback");
    test::Event heard("the listener");
    const test::Registration listener([&](const auto&) { heard.signal(); });
    store->query("select 1", {}, [&](SQLiteResultSet) { held.wait(); }, {});
    write("batch", {});
    heard.wait(); // the batch has been written while the query's callback still runs
    EXPECT_EQ(transcript.lines(), Lines{});
    held.signal();
    settle();
    EXPECT_EQ(transcript.lines(), (Lines{"batch: done" + callbackQueue}));
}

TEST_F(SQLiteStoreOrder, CallbacksAndListenersMayCallTheStoreAgain) {
    const test::Registration listener([this](const std::vector<SQLiteStoreChange>& changes) {
        transcript.add("heard " + std::to_string(changes.size()));
        if (changes.size() == 1) {
            write("batch of the listener", {});
        }
    });
    test::Event end("the innermost query");
    store->batchOperations({test::upsert({{"a", "1", nullptr}})}, [&](std::optional<std::string>) {
        transcript.add("completion");
        store->query("select * from zem_data", {},
                     [&](const SQLiteResultSet& read) {
                         transcript.add("query of the completion: " +
                                        std::to_string(read.rows.size()));
                         end.signal();
                     },
                     {});
    });
    end.wait();
    EXPECT_EQ(transcript.lines().size(), 5u);
    // Each queue keeps its own order.
    Lines listened;
    Lines answered;
    for (const std::string& line : transcript.lines()) {
        (line.starts_with("heard") ? listened : answered).push_back(line);
    }
    EXPECT_EQ(listened, (Lines{"heard 1", "heard 0"}));
    EXPECT_EQ(answered, (Lines{"completion", "batch of the listener: done" + callbackQueue,
                               "query of the completion: 1"}));
}

TEST_F(SQLiteStoreOrder, TakesCallsFromManyThreads) {
    constexpr int threads = 4;
    constexpr int each = 50;
    std::vector<std::vector<int>> answered(threads); // each filled on the callback queue only
    std::vector<std::thread> running;
    for (int thread = 0; thread < threads; ++thread) {
        running.emplace_back([&, thread] {
            for (int call = 0; call < each; ++call) {
                const std::string key = std::to_string(thread) + "/" + std::to_string(call);
                store->batchOperations({test::upsert({{key, "{}", nullptr}})},
                                       [&, thread, call](std::optional<std::string> e) {
                                           answered[static_cast<std::size_t>(thread)].push_back(
                                               e ? -1 : call);
                                       });
            }
        });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
    settle();
    std::vector<int> inOrder;
    for (int call = 0; call < each; ++call) {
        inOrder.push_back(call);
    }
    EXPECT_EQ(answered, std::vector<std::vector<int>>(threads, inOrder));
    EXPECT_EQ(query(*store, "select count(*) from zem_data").rows.at(0).at(0),
              SQLiteValue(threads * each));
}

} // namespace
