#include <gtest/gtest.h>

#include <SqliteStore/Store.h>
#include <stdexcept>

namespace {

using namespace zem;
using test::batch;
using test::delete_;
using test::failing;
using test::query;
using test::queryError;
using test::upsert;
using Changes = std::vector<SQLiteStoreChange>;
using Rows = std::vector<std::vector<SQLiteValue>>;

constexpr const char* selectAll = "select key, data, metadata from zem_data order by key";

std::string error(int code) {
    return "The operation couldn't be completed. (SQLiteResult error " + std::to_string(code) +
           ".)";
}

class SQLiteStoreBatch : public testing::Test {
  protected:
    Rows rows() { return query(*store, selectAll).rows; }

    const std::shared_ptr<SQLiteStore> store = test::memoryStore();
    // Filled on the connection queue, read after a completion that follows.
    std::vector<Changes> heard;
    const test::Registration listener{[this](const Changes& changes) {
        heard.push_back(changes);
    }};
};

TEST_F(SQLiteStoreBatch, WritesAndReportsInOrder) {
    EXPECT_EQ(batch(*store, {upsert({{"a", "1", nullptr}, {"b", "2", "m"}}, {{"why", "test"}}),
                             delete_({"a", "missing"}, {{"n", 3}}), upsert({{"c", "3", nullptr}})}),
              std::nullopt);

    EXPECT_EQ(rows(), (Rows{{"b", "2", "m"}, {"c", "3", nullptr}}));
    EXPECT_EQ(heard, (std::vector<Changes>{{{.type = SQLiteOperationType::upsert,
                                             .table = "zem_data",
                                             .keys = {"a", "b"},
                                             .context = {{"why", "test"}}},
                                            {.type = SQLiteOperationType::delete_,
                                             .table = "zem_data",
                                             .keys = {"a", "missing"},
                                             .context = {{"n", 3}}},
                                            {.type = SQLiteOperationType::upsert,
                                             .table = "zem_data",
                                             .keys = {"c"},
                                             .context = {}}}}));
}

TEST_F(SQLiteStoreBatch, WithoutOperationsReportsAnEmptyListAndCompletes) {
    EXPECT_EQ(batch(*store, {}), std::nullopt);
    EXPECT_EQ(heard, (std::vector<Changes>{{}}));
}

TEST_F(SQLiteStoreBatch, WithOperationsOfNothingReportsThem) {
    EXPECT_EQ(batch(*store, {upsert({}), delete_({})}), std::nullopt);
    ASSERT_EQ(heard.size(), 1u);
    ASSERT_EQ(heard[0].size(), 2u);
    EXPECT_TRUE(heard[0][0].keys.empty());
    EXPECT_TRUE(heard[0][1].keys.empty());
    EXPECT_EQ(rows(), Rows{});
}

TEST_F(SQLiteStoreBatch, RollsTheFirstOperationBackWhenTheSecondFails) {
    EXPECT_EQ(batch(*store, {upsert({{"a", "1", nullptr}}), failing()}), error(1));
    EXPECT_EQ(rows(), Rows{});
    EXPECT_EQ(heard, std::vector<Changes>{});

    EXPECT_EQ(batch(*store, {upsert({{"b", "2", nullptr}})}), std::nullopt);
    EXPECT_EQ(rows(), (Rows{{"b", "2", nullptr}}));
    EXPECT_EQ(heard.size(), 1u);
}

TEST_F(SQLiteStoreBatch, RollsBackTheRowsBeforeOneThatFails) {
    EXPECT_EQ(batch(*store, {upsert({{"a", "1", nullptr}, {"b", nullptr, nullptr}})}), error(19));
    EXPECT_EQ(rows(), Rows{});
    EXPECT_EQ(heard, std::vector<Changes>{});
}

TEST_F(SQLiteStoreBatch, ChangesOnlyTheOtherColumnsOfARowThatExists) {
    query(*store, "insert into zem_data values ('a', '1', 'kept'), ('b', '2', 'other')");
    const auto rowid = query(*store, "select rowid from zem_data where key = 'a'");
    SQLiteUpsert onlyData = upsert({{"a", "new"}});
    onlyData.columns = {"key", "data"};

    EXPECT_EQ(batch(*store, {onlyData}), std::nullopt);

    EXPECT_EQ(rows(), (Rows{{"a", "new", "kept"}, {"b", "2", "other"}}));
    EXPECT_EQ(query(*store, "select rowid from zem_data where key = 'a'"), rowid);
}

TEST_F(SQLiteStoreBatch, UpsertsOneKeyTwice) {
    EXPECT_EQ(batch(*store, {upsert({{"a", "1", "x"}, {"a", "2", nullptr}})}), std::nullopt);
    EXPECT_EQ(rows(), (Rows{{"a", "2", nullptr}}));
    EXPECT_EQ(heard.at(0).at(0).keys, (std::vector<SQLiteValue>{"a", "a"}));
}

TEST_F(SQLiteStoreBatch, ReportsTheKeysFromWhereverTheirColumnStands) {
    const SQLiteUpsert internal{.table = "zem_internal",
                                .keyColumn = "key",
                                .conflictColumns = {"namespace", "key"},
                                .columns = {"namespace", "data", "key"},
                                .rows = {{"n", "d1", "k1"}, {"n", "d2", "k2"}},
                                .context = {}};
    EXPECT_EQ(batch(*store, {internal}), std::nullopt);
    EXPECT_EQ(query(*store, "select namespace, key, data from zem_internal order by key").rows,
              (Rows{{"n", "k1", "d1"}, {"n", "k2", "d2"}}));
    EXPECT_EQ(heard.at(0).at(0).keys, (std::vector<SQLiteValue>{"k1", "k2"}));
}

TEST_F(SQLiteStoreBatch, ReportsNoKeysWhenTheirColumnIsNotWritten) {
    SQLiteUpsert odd = upsert({{"a", "1", nullptr}});
    odd.keyColumn = "elsewhere";
    EXPECT_EQ(batch(*store, {odd}), std::nullopt);
    EXPECT_EQ(rows(), (Rows{{"a", "1", nullptr}}));
    EXPECT_EQ(heard, (std::vector<Changes>{{{.type = SQLiteOperationType::upsert,
                                             .table = "zem_data",
                                             .keys = {},
                                             .context = {}}}}));
}

TEST_F(SQLiteStoreBatch, FailsWhenEveryColumnIsTheKey) {
    SQLiteUpsert onlyKey = upsert({{"a"}});
    onlyKey.columns = {"key"};
    EXPECT_EQ(batch(*store, {onlyKey}), error(1));
    onlyKey.rows.clear(); // fails when it is prepared, rows or not
    EXPECT_EQ(batch(*store, {onlyKey}), error(1));
}

TEST_F(SQLiteStoreBatch, RefusesARowThatIsShorterOrLongerThanItsColumns) {
    // Bindings stay from row to row: a short row would be written with values of the one before.
    EXPECT_EQ(batch(*store, {upsert({{"a", "1", "secret of a"}, {"b", "2"}})}), error(25));
    EXPECT_EQ(batch(*store, {upsert({{"a", "1", nullptr, "more"}})}), error(25));
    EXPECT_EQ(batch(*store, {upsert({{}})}), error(25));
    EXPECT_EQ(rows(), Rows{});
    EXPECT_EQ(heard, std::vector<Changes>{});
}

TEST_F(SQLiteStoreBatch, WritesEveryKindOfValue) {
    EXPECT_EQ(
        batch(*store, {upsert({{"bool", true, false}, {"number", 3, 2.5}, {"null", "", nullptr}})}),
        std::nullopt);
    EXPECT_EQ(query(*store, "select key, data, typeof(data), metadata, typeof(metadata) "
                            "from zem_data order by key")
                  .rows,
              (Rows{{"bool", "1", "text", 0, "integer"}, // the columns' affinities, not ours
                    {"null", "", "text", nullptr, "null"},
                    {"number", "3.0", "text", 2.5, "real"}}));
}

TEST_F(SQLiteStoreBatch, DeletesByIdsOfEveryKind) {
    query(*store, "create table loose (key)");
    query(*store, "insert into loose values ('a'), (1), (2.5), (null)");
    EXPECT_EQ(batch(*store, {SQLiteDelete{.table = "loose",
                                          .keyColumn = "key",
                                          .ids = {"a", true, 2.5, nullptr},
                                          .context = {}}}),
              std::nullopt);
    // NULL equals nothing.
    EXPECT_EQ(query(*store, "select key from loose").rows, (Rows{{nullptr}}));
}

TEST_F(SQLiteStoreBatch, TakesManyRowsAndIds) {
    constexpr int count = 100000;
    SQLiteUpsert many = upsert({});
    SQLiteDelete all = delete_({});
    for (int index = 0; index < count; ++index) {
        const std::string key = "key " + std::to_string(index);
        many.rows.push_back({key, "{}", nullptr});
        all.ids.emplace_back(key);
    }
    EXPECT_EQ(batch(*store, {std::move(many)}), std::nullopt);
    EXPECT_EQ(query(*store, "select count(*) from zem_data").rows, (Rows{{count}}));
    const std::vector<SQLiteValue> ids = all.ids;
    EXPECT_EQ(batch(*store, {std::move(all)}), std::nullopt);
    EXPECT_EQ(rows(), Rows{});
    ASSERT_EQ(heard.size(), 2u);
    EXPECT_TRUE(heard[0].at(0).keys == ids);
    EXPECT_TRUE(heard[1].at(0).keys == ids);
}

TEST_F(SQLiteStoreBatch, FailsInsideATransactionThatAQueryOpenedAndEndsIt) {
    query(*store, "begin");
    query(*store, "insert into zem_data values ('a', '1', null)");
    EXPECT_EQ(batch(*store, {upsert({{"b", "2", nullptr}})}), error(1));
    EXPECT_EQ(rows(), Rows{});
    EXPECT_EQ(batch(*store, {upsert({{"b", "2", nullptr}})}), std::nullopt);
}

TEST_F(SQLiteStoreBatch, DropsWhatAListenerThrowsAndCallsTheOthers) {
    test::Transcript transcript;
    const auto throwing = [&](const Changes&) {
        transcript.add("throws");
        throw std::runtime_error("from a listener");
    };
    const test::Registration first(throwing);
    const test::Registration second(throwing);
    EXPECT_EQ(batch(*store, {upsert({{"a", "1", nullptr}})}), std::nullopt);
    EXPECT_EQ(transcript.lines(), (std::vector<std::string>{"throws", "throws"}));
    EXPECT_EQ(heard.size(), 1u);
    EXPECT_EQ(rows(), (Rows{{"a", "1", nullptr}}));
}

TEST_F(SQLiteStoreBatch, MayBeGivenWithoutACompletion) {
    store->batchOperations({upsert({{"a", "1", nullptr}})}, {});
    EXPECT_EQ(rows(), (Rows{{"a", "1", nullptr}}));
}

TEST_F(SQLiteStoreBatch, LivesOnWhenItsCompletionThrows) {
    store->batchOperations({}, [](std::optional<std::string>) { throw 1; });
    EXPECT_EQ(batch(*store, {}), std::nullopt);
}

} // namespace
