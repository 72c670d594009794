// A text that is longer than SQLite takes is refused, not written as NULL.

#include <zem/SqliteStore/Private/SQLiteConnection.h>
#include <zem/SqliteStore/Private/SQLiteStoreInspection.h>

#include <gtest/gtest.h>

#include <SqliteStore/Store.h>

namespace {

using namespace zem;
using Rows = std::vector<std::vector<SQLiteValue>>;

class SQLiteStoreTooBig : public testing::Test {
  protected:
    void SetUp() override {
        test::query(*store, "create table t (key primary key, data)");
        SQLiteStoreInspection::connection(*store).limitTextLength(limit);
    }

    static SQLiteUpsert upsert(Rows rows) {
        return {.table = "t",
                .keyColumn = "key",
                .conflictColumns = {"key"},
                .columns = {"key", "data"},
                .rows = std::move(rows),
                .context = {}};
    }
    static std::string text(int length) {
        return std::string(static_cast<std::size_t>(length), 'x');
    }
    Rows rows() { return test::query(*store, "select key, data from t order by key").rows; }

    static constexpr int limit = 1000; // enough for the statements
    const std::string tooBig = "The operation couldn't be completed. (SQLiteResult error 18.)";
    const std::shared_ptr<SQLiteStore> store = test::memoryStore();
};

TEST_F(SQLiteStoreTooBig, FailsABatchWhereverTheTextStands) {
    int heard = 0;
    const test::Registration listener([&](const auto&) { ++heard; });
    EXPECT_EQ(test::batch(*store, {upsert({{"a", "1"}, {"b", text(limit + 1)}})}), tooBig);
    EXPECT_EQ(test::batch(*store, {upsert({{"a", "1"}}), upsert({{text(limit + 1), "2"}})}),
              tooBig);
    EXPECT_EQ(test::batch(*store, {upsert({{"a", "1"}}), SQLiteDelete{.table = "t",
                                                                      .keyColumn = "key",
                                                                      .ids = {"a", text(limit + 1)},
                                                                      .context = {}}}),
              tooBig);
    EXPECT_EQ(rows(), Rows{});
    EXPECT_EQ(heard, 0);
}

// It would otherwise be the first operation that fails.
TEST_F(SQLiteStoreTooBig, FailsABatchBeforeItsFirstOperationIsRun) {
    EXPECT_EQ(test::batch(*store, {test::failing(), upsert({{"a", text(limit + 1)}})}), tooBig);
}

TEST_F(SQLiteStoreTooBig, FailsAQuery) {
    EXPECT_EQ(test::queryError(*store, "select length(?)", {text(limit + 1)}), tooBig);
    EXPECT_EQ(test::queryError(*store, "insert into t values (?, ?)", {"a", text(limit + 1)}),
              tooBig);
    EXPECT_EQ(rows(), Rows{});
}

TEST_F(SQLiteStoreTooBig, TakesATextOfJustTheLengthThatSQLiteTakes) {
    EXPECT_EQ(test::query(*store, "select length(?)", {text(limit)}).rows, (Rows{{limit}}));
    // A row is a text of its own to SQLite, and is checked by it.
    EXPECT_EQ(test::batch(*store, {upsert({{"a", text(limit - 10)}})}), std::nullopt);
    EXPECT_EQ(test::batch(*store, {upsert({{"b", text(limit)}})}), tooBig);
    EXPECT_EQ(rows(), (Rows{{"a", text(limit - 10)}}));
}

TEST_F(SQLiteStoreTooBig, CountsUpToTheFirstNulWhichIsWhatIsBound) {
    EXPECT_EQ(test::query(*store, "select ?", {text(3) + std::string(limit, '\0')}).rows,
              (Rows{{text(3)}}));
}

} // namespace
