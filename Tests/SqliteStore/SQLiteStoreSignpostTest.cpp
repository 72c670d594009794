// The store's signposts in the log, and the values that it keeps to itself.

#include <zem/Core/Logging.h>
#include <zem/Platform/Log.h>
#include <zem/SqliteStore/Private/SQLiteStoreLog.h>
#include <zem/SqliteStore/SQLiteSecretError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <SqliteStore/RawDatabase.h>
#include <SqliteStore/Store.h>
#include <Support/TemporaryFolder.h>
#include <cstdlib>
#include <map>

namespace {

using namespace zem;
using Lines = std::vector<std::string>;

/// Writes every signpost down as a line, its identifier as the how-manieth it is.
class RecordingSink final : public platform::SignpostSink {
  public:
    void emit(const platform::Signpost& signpost) override {
        const char* type = signpost.type == platform::SignpostType::intervalBegin ? "begin"
                           : signpost.type == platform::SignpostType::intervalEnd ? "end"
                                                                                  : "event";
        const std::string where = platform::SerialQueue::currentLabel();
        std::string line = std::string(type) + " " + std::string(signpost.name) + " #" +
                           std::to_string(number(signpost.id)) + " on " +
                           (where.empty() ? "the caller" : where);
        if (!signpost.format.empty()) {
            line += ": " + platform::formatLog(signpost.format, signpost.arguments);
        }
        transcript.add(line);
        formats.add(std::string(signpost.format));
        subsystems.add(std::string(signpost.subsystem) + "/" + std::string(signpost.category));
        for (const platform::LogArgument& argument : signpost.arguments) {
            arguments.add(std::visit(Show(), argument.value));
        }
    }

    test::Transcript transcript;
    test::Transcript formats;
    test::Transcript subsystems;
    test::Transcript arguments; ///< with what is private

  private:
    struct Show {
        std::string operator()(std::int64_t number) const { return std::to_string(number); }
        std::string operator()(double number) const { return std::to_string(number); }
        std::string operator()(std::string_view text) const { return std::string(text); }
        std::string operator()(const platform::LogArgument::Description& description) const {
            return description();
        }
    };

    std::size_t number(platform::SignpostID id) {
        if (id == platform::SignpostID::null()) {
            return 0;
        }
        const platform::Lock lock(mutex);
        return numbers.try_emplace(id.value, numbers.size() + 1).first->second;
    }

    platform::Mutex mutex;
    std::map<std::uint64_t, std::size_t> numbers;
};

const std::string connectionQueue = " on com.quorvane.zem.SQLiteConnection";

class SQLiteStoreSignposts : public testing::Test {
  protected:
    void SetUp() override { platform::setSignpostSink(sink); }
    void TearDown() override { platform::setSignpostSink(nullptr); }

    /// The names of the events so far.
    Lines events() const {
        Lines names;
        for (const std::string& line : sink->transcript.lines()) {
            if (line.starts_with("event ")) {
                names.push_back(line.substr(6, line.find(" #") - 6));
            }
        }
        return names;
    }

    const std::shared_ptr<SQLiteStore> store = test::memoryStore();
    const std::shared_ptr<RecordingSink> sink = std::make_shared<RecordingSink>();
};

TEST_F(SQLiteStoreSignposts, GoToTheStoresLog) {
    test::query(*store, "select 1");
    EXPECT_EQ(sink->subsystems.lines(), Lines(2, "com.quorvane.ZEM/SQLiteStore"));
    EXPECT_TRUE(sqliteStoreLog().isEnabled()); // with the level that holds when nobody changed it
    EXPECT_EQ(&sqliteStoreLog(), &sqliteStoreLog());
}

TEST_F(SQLiteStoreSignposts, SurroundAQuery) {
    test::query(*store, "select ?, ?, ?, ?", {"words", 2.5, true, nullptr});
    EXPECT_EQ(sink->transcript.lines(),
              (Lines{"begin query #1 on the caller: ::query:<private>::params:<private>",
                     "end query #1" + connectionQueue}));
    EXPECT_EQ(sink->formats.lines(), (Lines{"::query:%{private}s::params:%{private}@", ""}));
    EXPECT_EQ(sink->arguments.lines(),
              (Lines{"select ?, ?, ?, ?", "[\"words\", 2.5, true, null]"}));
}

TEST_F(SQLiteStoreSignposts, SurroundAQueryThatFails) {
    test::queryError(*store, "select from nowhere");
    EXPECT_EQ(sink->transcript.lines(),
              (Lines{"begin query #1 on the caller: ::query:<private>::params:<private>",
                     "end query #1" + connectionQueue + ": error: <private>"}));
    EXPECT_EQ(sink->formats.lines(),
              (Lines{"::query:%{private}s::params:%{private}@", "error: %{private}s"}));
    EXPECT_EQ(sink->arguments.lines(),
              (Lines{"select from nowhere", "[]",
                     "The operation couldn't be completed. (SQLiteResult error 1.)"}));
}

TEST_F(SQLiteStoreSignposts, SurroundABatchItsTransactionAndItsListeners) {
    const test::Registration listener(
        [&](const auto&) { sink->transcript.add("the listener is called"); });
    test::batch(*store, {test::upsert({{"a", "1", nullptr}}), test::delete_({"b"})});
    EXPECT_EQ(sink->transcript.lines(),
              (Lines{"begin batch #1 on the caller: ::operationCount:2",
                     "event transaction begin #1" + connectionQueue,
                     "event transaction commit #1" + connectionQueue,
                     "event transaction committed #1" + connectionQueue, "the listener is called",
                     "end batch #1" + connectionQueue}));
    EXPECT_EQ(sink->formats.lines().front(), "::operationCount:%{public}d");
}

TEST_F(SQLiteStoreSignposts, SurroundABatchThatIsRolledBack) {
    test::batch(*store, {test::failing()});
    EXPECT_EQ(sink->transcript.lines(),
              (Lines{"begin batch #1 on the caller: ::operationCount:1",
                     "event transaction begin #1" + connectionQueue,
                     "event transaction rollback #1" + connectionQueue,
                     "event transaction rolled back #1" + connectionQueue,
                     "end batch #1" + connectionQueue + ": error: <private>"}));
    EXPECT_EQ(sink->formats.lines().back(), "error: %{private}s");
    EXPECT_EQ(sink->arguments.lines(),
              (Lines{"1", "The operation couldn't be completed. (SQLiteResult error 1.)"}));
}

TEST_F(SQLiteStoreSignposts, EndTheRollbackEvenWhenThereIsNothingToRollBack) {
    // The failing statement has ended the transaction by itself.
    test::query(*store, "create table strict (key primary key on conflict rollback)");
    test::query(*store, "insert into strict values ('taken')");
    const std::size_t before = sink->transcript.lines().size();
    SQLiteUpsert upsert{.table = "strict",
                        .keyColumn = "other",
                        .conflictColumns = {"rowid"},
                        .columns = {"key"},
                        .rows = {{"taken"}},
                        .context = {}};
    EXPECT_EQ(test::batch(*store, {upsert}),
              "The operation couldn't be completed. (SQLiteResult error 19.)");
    Lines lines = sink->transcript.lines();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(lines, (Lines{"begin batch #3 on the caller: ::operationCount:1",
                            "event transaction begin #3" + connectionQueue,
                            "event transaction rollback #3" + connectionQueue,
                            "event transaction rolled back #3" + connectionQueue,
                            "end batch #3" + connectionQueue + ": error: <private>"}));
}

TEST_F(SQLiteStoreSignposts, TellOfABeginThatFailsThatItWasTried) {
    test::query(*store, "begin");
    test::batch(*store, {});
    EXPECT_EQ(events(),
              (Lines{"transaction begin", "transaction rollback", "transaction rolled back"}));
}

TEST_F(SQLiteStoreSignposts, DoNotTellOfACommitThatFailsThatItWasDone) {
    test::query(*store, "PRAGMA foreign_keys = ON");
    test::query(*store, "create table child (key primary key, parent references zem_data(key)"
                        " deferrable initially deferred)");
    EXPECT_EQ(test::batch(*store, {SQLiteUpsert{.table = "child",
                                                .keyColumn = "key",
                                                .conflictColumns = {"key"},
                                                .columns = {"key", "parent"},
                                                .rows = {{"a", "nobody"}},
                                                .context = {}}}),
              "The operation couldn't be completed. (SQLiteResult error 19.)");
    EXPECT_EQ(events(), (Lines{"transaction begin", "transaction commit", "transaction rollback",
                               "transaction rolled back"}));
}

TEST_F(SQLiteStoreSignposts, OfCallsHaveIdentifiersOfTheirOwn) {
    test::Gate gate;
    gate.enter(*store);
    store->batchOperations({}, {});
    store->query("select 1", {}, {}, {});
    gate.open();
    test::query(*store, "select 1");
    EXPECT_EQ(sink->transcript.lines().size(), 11u);
    EXPECT_THAT(sink->transcript.lines(),
                testing::IsSupersetOf(
                    {std::string("begin query #1 on the caller: "
                                 "::query:<private>::params:<private>"),
                     std::string("begin batch #2 on the caller: ::operationCount:0"),
                     std::string("begin query #3 on the caller: "
                                 "::query:<private>::params:<private>"),
                     "end query #1" + connectionQueue, "end batch #2" + connectionQueue,
                     "end query #3" + connectionQueue, "end query #4" + connectionQueue}));
}

TEST_F(SQLiteStoreSignposts, OfADroppedBatchHaveNoEnd) {
    std::shared_ptr<SQLiteStore> gone = test::memoryStore();
    test::Event dropped("the batch to be dropped");
    test::Gate gate;
    gate.enter(*gone);
    gone->batchOperations(
        {}, [end = test::whenDestroyed([&] { dropped.signal(); })](std::optional<std::string>) {});
    gone.reset();
    gate.open();
    dropped.wait();
    EXPECT_EQ(sink->transcript.lines(),
              (Lines{"begin query #1 on the caller: ::query:<private>::params:<private>",
                     "begin batch #2 on the caller: ::operationCount:0",
                     "end query #1" + connectionQueue}));
}

class TraceLevel {
  public:
    explicit TraceLevel(Logging::TraceLevel level) { Logging::traceLevel = level; }
    ~TraceLevel() { Logging::traceLevel = previous; }
    TraceLevel(const TraceLevel&) = delete;
    TraceLevel& operator=(const TraceLevel&) = delete;

  private:
    Logging::TraceLevel previous = Logging::traceLevel;
};

TEST_F(SQLiteStoreSignposts, OfTransactionsAskTheTraceLevelEachTime) {
    {
        const TraceLevel off(Logging::TraceLevel::off);
        test::batch(*store, {});
        // The log was opened at a level above off and stays open.
        EXPECT_EQ(sink->transcript.lines(),
                  (Lines{"begin batch #1 on the caller: ::operationCount:0",
                         "end batch #1" + connectionQueue}));
    }
    test::batch(*store, {});
    EXPECT_EQ(sink->transcript.lines().size(), 7u);
}

TEST(SQLiteStoreLogDeathTest, IsDisabledForGoodWhereTheTraceLevelIsOffAtFirst) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto check = [] {
        Logging::traceLevel = Logging::TraceLevel::off;
        const auto sink = std::make_shared<RecordingSink>();
        platform::setSignpostSink(sink);
        const auto store = test::memoryStore();
        test::batch(*store, {});
        Logging::traceLevel = Logging::TraceLevel::detailed;
        test::batch(*store, {test::failing()});
        test::query(*store, "select 1");
        platform::setSignpostSink(nullptr);
        const bool silent = sink->transcript.lines().empty() && !sqliteStoreLog().isEnabled();
        std::_Exit(silent ? 0 : 1);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0), "");
}

TEST_F(SQLiteStoreSignposts, AndErrorsNeverShowKeyOrSalt) {
    const test::TemporaryFolder folder;
    test::Transcript told;
    platform::setLogWriter(
        [&](const platform::LogLine& line) { told.add(std::string(line.text)); });
    testing::internal::CaptureStderr();
    const std::string key = "Key-In-Clear";
    const std::string salt = "SaltInClear-16by";
    const auto open = [&](std::string_view withKey, std::string_view withSalt) {
        try {
            const auto opened =
                SQLiteStore::create({folder.path(), test::keyAndSalt(withKey, withSalt)});
            test::batch(*opened, {test::upsert({{"a", "1", nullptr}}), test::failing()});
            told.add(test::query(*opened, "PRAGMA journal_mode").columns.at(0));
        } catch (const std::exception& error) {
            told.add(error.what());
        }
    };
    open(key, salt);
    open("another key", salt);
    open(key, "another salt 16b");
    open(key, "short");
    told.add(testing::internal::GetCapturedStderr());
    platform::setLogWriter(nullptr);

    std::string everything;
    for (const test::Transcript* part :
         {&told, &sink->transcript, &sink->arguments, &sink->formats}) {
        for (const std::string& line : part->lines()) {
            everything += line + "\n";
        }
    }
    EXPECT_NE(everything.find("found 5"), std::string::npos);
    for (const std::string& hidden :
         {key, salt, std::string("4b65792d496e2d436c656172"), // in hexadecimal, as the salt's
          std::string("53616c74496e436c6561722d31366279")}) { // statement writes it
        EXPECT_EQ(everything.find(hidden), std::string::npos) << hidden;
    }
}

} // namespace
