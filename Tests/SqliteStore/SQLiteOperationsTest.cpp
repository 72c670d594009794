#include <zem/SqliteStore/SQLiteOperations.h>

#include <gtest/gtest.h>

namespace {

using namespace zem;

TEST(SQLiteOperationType, HasRawTexts) {
    ASSERT_EQ(sqliteOperationTypeTexts.size(), 2u);
    EXPECT_EQ(sqliteOperationTypeTexts[0].first, SQLiteOperationType::upsert);
    EXPECT_EQ(sqliteOperationTypeTexts[0].second, "upsert");
    EXPECT_EQ(sqliteOperationTypeTexts[1].first, SQLiteOperationType::delete_);
    EXPECT_EQ(sqliteOperationTypeTexts[1].second, "delete");
}

TEST(SQLiteUpsert, BuildsItsStatement) {
    const SQLiteUpsert upsert{.table = "zem_data",
                              .keyColumn = "key",
                              .conflictColumns = {"key"},
                              .columns = {"key", "data", "metadata"},
                              .rows = {},
                              .context = {}};
    EXPECT_EQ(
        upsert.sqlString(),
        "insert into zem_data (key,data,metadata)\nvalues (?,?,?)\non conflict (key) do update "
        "set\ndata=excluded.data,metadata=excluded.metadata;");
}

TEST(SQLiteUpsert, JoinsSeveralConflictColumnsAndLeavesOutTheKeyWhereverItStands) {
    const SQLiteUpsert upsert{.table = "zem_internal",
                              .keyColumn = "key",
                              .conflictColumns = {"namespace", "key"},
                              .columns = {"namespace", "data", "key"},
                              .rows = {},
                              .context = {}};
    EXPECT_EQ(upsert.sqlString(),
              "insert into zem_internal (namespace,data,key)\nvalues (?,?,?)\non conflict "
              "(namespace,key) do update set\nnamespace=excluded.namespace,data=excluded.data;");
}

TEST(SQLiteUpsert, HasAnEmptyUpdateListWhenEveryColumnIsTheKey) {
    const SQLiteUpsert upsert{.table = "t",
                              .keyColumn = "key",
                              .conflictColumns = {"key"},
                              .columns = {"key"},
                              .rows = {},
                              .context = {}};
    EXPECT_EQ(upsert.sqlString(),
              "insert into t (key)\nvalues (?)\non conflict (key) do update set\n;");
}

TEST(SQLiteUpsert, DoesNotQuoteNames) {
    const SQLiteUpsert upsert{.table = "a b",
                              .keyColumn = "k",
                              .conflictColumns = {"\"k\""},
                              .columns = {"k", "x y"},
                              .rows = {},
                              .context = {}};
    EXPECT_EQ(upsert.sqlString(), "insert into a b (k,x y)\nvalues (?,?)\non conflict (\"k\") do "
                                  "update set\nx y=excluded.x y;");
}

TEST(SQLiteDelete, BuildsItsStatement) {
    const SQLiteDelete delete_{.table = "zem_data", .keyColumn = "key", .ids = {}, .context = {}};
    EXPECT_EQ(delete_.sqlString(), "delete from zem_data where key=?");
}

TEST(SQLiteOperation, KnowsItsType) {
    EXPECT_EQ(SQLiteOperation(SQLiteUpsert{}).type(), SQLiteOperationType::upsert);
    EXPECT_EQ(SQLiteOperation(SQLiteDelete{}).type(), SQLiteOperationType::delete_);
}

} // namespace
