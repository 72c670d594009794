// SQLite's own words on what fails: for the log and for a developer, not for callers.

#include <zem/Platform/Log.h>
#include <zem/SqliteStore/Private/SQLiteConnection.h>
#include <zem/SqliteStore/Private/SQLiteStoreInspection.h>

#include <gtest/gtest.h>

#include <SqliteStore/Store.h>
#include <Support/LogCapture.h>

namespace {

using namespace zem;
using Lines = std::vector<std::string>;

class SQLiteStoreFailure : public testing::Test {
  protected:
    SQLiteStoreFailure() {
        SQLiteStore::Options options(SQLiteStorage::memory(), test::keyAndSalt());
        options.onFailure = [this](const SQLiteFailure& failure) {
            heard.add(std::to_string(failure.code) + ": " + failure.message +
                      ", to: " + failure.sql + " on " + platform::SerialQueue::currentLabel());
            if (throws) {
                throw SQLiteResult(77);
            }
        };
        store = SQLiteStore::create(std::move(options));
    }

    const std::string queue = " on com.quorvane.zem.SQLiteConnection";
    bool throws = false;
    test::Transcript heard;
    std::shared_ptr<SQLiteStore> store;
};

TEST_F(SQLiteStoreFailure, OfAStatementThatCannotBePreparedIsTold) {
    EXPECT_EQ(test::queryError(*store, "selec 'private'"),
              "The operation couldn't be completed. (SQLiteResult error 1.)");
    EXPECT_EQ(heard.lines(),
              (Lines{"1: near \"selec\": syntax error, to: selec 'private'" + queue}));
}

TEST_F(SQLiteStoreFailure, OfABatchIsToldOnceThoughItIsRolledBack) {
    test::query(*store, "create table t (key primary key, data not null)");
    const SQLiteUpsert upsert{.table = "t",
                              .keyColumn = "key",
                              .conflictColumns = {"key"},
                              .columns = {"key", "data"},
                              .rows = {{"a", nullptr}},
                              .context = {}};
    EXPECT_NE(test::batch(*store, {upsert}), std::nullopt);
    EXPECT_EQ(heard.lines(),
              (Lines{"19: NOT NULL constraint failed: t.data, to: " + upsert.sqlString() + queue}));
}

TEST_F(SQLiteStoreFailure, OfATextThatIsTooLongIsTold) {
    SQLiteStoreInspection::connection(*store).limitTextLength(100);
    EXPECT_NE(test::queryError(*store, "select ?", {std::string(101, 'x')}), "");
    EXPECT_NE(test::batch(*store, {test::delete_({std::string(101, 'x')})}), std::nullopt);
    EXPECT_EQ(heard.lines(), (Lines{"18: string or blob too big, to: select ?" + queue,
                                    "18: string or blob too big, to: delete from zem_data where "
                                    "key=?" +
                                        queue}));
}

TEST_F(SQLiteStoreFailure, IsLoggedWithItsTextsPrivateWhereNobodyElseIsTold) {
    const auto silent = test::memoryStore(); // nobody else is told
    const test::LogCapture log;
    test::queryError(*silent, "selec 'private'");
    EXPECT_EQ(log.lines(), (Lines{"SQLite answered 1: <private>, to: <private>"}));
}

TEST_F(SQLiteStoreFailure, WhoseHandlerThrowsIsStillAnswered) {
    const test::LogCapture log;
    throws = true;
    EXPECT_EQ(test::queryError(*store, "selec"),
              "The operation couldn't be completed. (SQLiteResult error 1.)");
    EXPECT_EQ(log.lines(), (Lines{"a failure handler threw: The operation couldn't be completed. "
                                  "(SQLiteResult error 77.)"}));
}

TEST_F(SQLiteStoreFailure, IsNoneWhereAStatementHasNoRow) {
    const test::LogCapture log;
    EXPECT_EQ(test::query(*store, "select 1 where 0").rows.size(), 0u);
    EXPECT_THROW(
        SQLiteStoreInspection::connection(*store).prepare("select 1 where 0").fetch([](SQLiteRow) {
            return 0;
        }),
        SQLiteResult);
    EXPECT_EQ(heard.lines(), Lines{});
    EXPECT_EQ(log.lines(), Lines{});
}

} // namespace
