#include <zem/SqliteStore/Private/SQLiteConnection.h>

#include <gtest/gtest.h>

#include <SqliteStore/Expect.h>
#include <Support/TemporaryFolder.h>
#include <algorithm>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace zem;
using test::thrownCode;
using Rows = std::vector<std::vector<SQLiteValue>>;

class SQLiteStatementTest : public testing::Test {
  protected:
    SQLiteResultSet query(const std::string& sql, const std::vector<SQLiteValue>& params = {}) {
        return connection.query(sql, params);
    }

    SQLiteConnection connection{
        {.storage = SQLiteStorage::memory(), .migrations = {}, .setUpActions = {}}};
};

TEST_F(SQLiteStatementTest, GivesAllColumnsWhenThereAreNoRows) {
    const SQLiteResultSet none = query("select 1 as one, 2 as two where 0");
    EXPECT_EQ(none.columns, (std::vector<std::string>{"one", "two"}));
    EXPECT_TRUE(none.rows.empty());
}

TEST_F(SQLiteStatementTest, ReadsEveryIntegerAndRealAsANumber) {
    const SQLiteResultSet read = query("select 3, 2.5, -9007199254740993, 1e308");
    EXPECT_EQ(read.rows, (Rows{{3.0, 2.5, -9007199254740992.0, 1e308}}));
}

TEST_F(SQLiteStatementTest, ReadsNullAndText) {
    EXPECT_EQ(query("select null, '', 'text', '\xF0\x9F\x98\x80'").rows,
              (Rows{{nullptr, "", "text", "\xF0\x9F\x98\x80"}}));
}

TEST_F(SQLiteStatementTest, ReadsTextPastANul) {
    const std::string whole("a\0b", 3);
    EXPECT_EQ(query("select 'a' || char(0) || 'b'").rows, (Rows{{whole}}));
}

TEST_F(SQLiteStatementTest, BindsEachCaseAsItsSQLType) {
    const SQLiteResultSet read = query(
        "select typeof(?1), typeof(?2), typeof(?3), typeof(?4), typeof(?5), ?1, ?2, ?3, ?4, ?5",
        {"text", 3, true, false, nullptr});
    EXPECT_EQ(read.rows, (Rows{{"text", "real", "integer", "integer", "null", "text", 3.0, 1.0, 0.0,
                                nullptr}}));
}

TEST_F(SQLiteStatementTest, KeepsABlobBehindItsOtherParameters) {
    const std::vector<platform::Bytes> blobs{{0, 1, 0, 255}, {}, {7}};
    query("create table t (name text, bytes blob)");
    SQLiteStatement insert = connection.prepare("insert into t values (?, ?)");
    for (const platform::Bytes& blob : blobs) {
        insert.execute(std::vector<SQLiteValue>{"name"}, blob);
    }
    EXPECT_EQ(query("select distinct name, typeof(bytes) from t").rows, (Rows{{"name", "blob"}}));
    const auto read =
        connection.prepare("select bytes from t order by rowid").fetchAll([](SQLiteRow row) {
            const platform::BytesView bytes = row.blob(0);
            return platform::Bytes(bytes.begin(), bytes.end());
        });
    EXPECT_EQ(read, blobs);
}

TEST_F(SQLiteStatementTest, RefusesABlobThatIsTooLong) {
    query("create table t (bytes blob)");
    connection.limitTextLength(100);
    SQLiteStatement insert = connection.prepare("insert into t values (?)");
    EXPECT_EQ(thrownCode([&] { insert.execute({}, platform::Bytes(101)); }), SQLITE_TOOBIG);
    EXPECT_EQ(query("select count(*) from t").rows, (Rows{{0}}));
}

TEST_F(SQLiteStatementTest, ReadsABooleanThatWasKeptAsANumber) {
    query("create table t (value)");
    query("insert into t values (?), (?)", {true, false});
    EXPECT_EQ(query("select value, typeof(value) from t order by rowid").rows,
              (Rows{{1.0, "integer"}, {0.0, "integer"}}));
}

TEST_F(SQLiteStatementTest, BindsTextUpToItsFirstNul) {
    EXPECT_EQ(query("select ?, length(?)", {std::string("ab\0c", 4), std::string("ab\0c", 4)}).rows,
              (Rows{{"ab", 2.0}}));
}

TEST_F(SQLiteStatementTest, BindsNaNAsNullAndKeepsInfinities) {
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(
        query("select ?, ?, ?", {std::numeric_limits<double>::quiet_NaN(), infinity, -infinity})
            .rows,
        (Rows{{nullptr, infinity, -infinity}}));
}

TEST_F(SQLiteStatementTest, CopiesTheTextThatItBinds) {
    SQLiteStatement statement = connection.prepare("select ?");
    std::vector<SQLiteValue> params{std::string(100, 'x')};
    statement.bind(params);
    std::ranges::fill(std::get<std::string>(params[0].value), 'y'); // the same memory, used again
    EXPECT_EQ(statement.fetch([](SQLiteRow row) { return row.value(0); }),
              SQLiteValue(std::string(100, 'x')));
}

TEST_F(SQLiteStatementTest, LeavesOutParametersThatTheStatementHasNoPlaceFor) {
    EXPECT_EQ(query("select ?", {1, 2}).rows, (Rows{{1.0}}));
    EXPECT_EQ(query("select ?, ?", {1}).rows, (Rows{{1.0, nullptr}}));
}

TEST_F(SQLiteStatementTest, CountsAndNamesItsColumns) {
    const SQLiteStatement statement = connection.prepare("select 1 as a, 2 as \"b c\", 3 as a");
    EXPECT_EQ(statement.columnCount(), 3);
    EXPECT_EQ(statement.columnNames(), (std::vector<std::string>{"a", "b c", "a"}));
    EXPECT_EQ(connection.prepare("create table t (x)").columnCount(), 0);
}

TEST_F(SQLiteStatementTest, ThrowsWhatPreparingGives) {
    EXPECT_EQ(thrownCode([&] { connection.prepare("no sql"); }), 1);
    EXPECT_EQ(thrownCode([&] { connection.prepare("select * from missing"); }), 1);
}

TEST_F(SQLiteStatementTest, PreparesOnlyTheFirstStatementOfAText) {
    query("create table t (x); create table u (x)");
    EXPECT_EQ(query("select name from sqlite_master").rows, (Rows{{"t"}}));
}

TEST_F(SQLiteStatementTest, FailsToStepAnEmptyText) {
    EXPECT_EQ(thrownCode([&] { query(""); }), 21);
    EXPECT_EQ(thrownCode([&] { query("-- only a comment"); }), 21);
}

TEST_F(SQLiteStatementTest, ExecutesPastRows) {
    SQLiteStatement statement = connection.prepare("select 1 union all select 2");
    EXPECT_NO_THROW(statement.execute());
}

TEST_F(SQLiteStatementTest, RunsOnePreparedStatementOnceARow) {
    query("create table t (a, b)");
    SQLiteStatement statement = connection.prepare("insert into t values (?, ?)");
    for (const auto& row : Rows{{"x", 1}, {"y", nullptr}}) {
        statement.execute(row);
    }
    EXPECT_EQ(query("select a, b from t").rows, (Rows{{"x", 1.0}, {"y", nullptr}}));
}

TEST_F(SQLiteStatementTest, OverwritesBindingsWithoutClearingThem) {
    query("create table t (a, b)");
    SQLiteStatement statement = connection.prepare("insert into t values (?, ?)");
    statement.execute(std::vector<SQLiteValue>{"x", 1});
    statement.execute(std::vector<SQLiteValue>{"y"});
    EXPECT_EQ(query("select a, b from t").rows, (Rows{{"x", 1.0}, {"y", 1.0}}));
}

TEST_F(SQLiteStatementTest, RunsAgainAfterARunThatFailed) {
    query("create table t (a primary key)");
    SQLiteStatement statement = connection.prepare("insert into t values (?)");
    const std::vector<SQLiteValue> same{"x"};
    statement.execute(same);
    EXPECT_EQ(thrownCode([&] { statement.execute(same); }), 19);
    statement.execute(std::vector<SQLiteValue>{"y"});
    EXPECT_EQ(query("select a from t order by a").rows, (Rows{{"x"}, {"y"}}));
}

TEST_F(SQLiteStatementTest, DescribesABrokenConstraintInSQLitesOwnWords) {
    query("create table t (a not null)");
    try {
        query("insert into t values (null)");
        FAIL() << "the constraint was not kept";
    } catch (const SQLiteResult& result) {
        EXPECT_EQ(result.rawValue, SQLITE_CONSTRAINT);
        EXPECT_EQ(result.description(), sqlite3_errstr(SQLITE_CONSTRAINT));
    }
}

TEST_F(SQLiteStatementTest, FetchesTheFirstRowOrThrowsTheStep) {
    const auto first = [](SQLiteRow row) {
        return row.value(0);
    };
    EXPECT_EQ(connection.prepare("select 1 union all select 2").fetch(first), SQLiteValue(1));
    EXPECT_EQ(thrownCode([&] { connection.prepare("select 1 where 0").fetch(first); }), 101);
    query("create table t (a not null)");
    EXPECT_EQ(thrownCode([&] { connection.prepare("insert into t values (null)").fetch(first); }),
              19);
}

TEST(SQLiteStatement, ThrowsALastStepThatIsBusy) {
    const test::TemporaryFolder folder;
    const SQLiteConnection::Options options{.storage = SQLiteStorage::file(folder.path()),
                                            .migrations = {{1, {"create table t (a)"}}},
                                            .setUpActions = {}};
    SQLiteConnection connection(options);
    SQLiteConnection other(options);
    SQLiteStatement insertion = connection.prepare("insert into t values (1)");
    other.query("begin exclusive", {});
    EXPECT_EQ(thrownCode([&] { insertion.execute(); }), SQLITE_BUSY);
    EXPECT_EQ(thrownCode([&] {
                  connection.prepare("select a from t").fetchAll([](SQLiteRow) { return 0; });
              }),
              SQLITE_BUSY);
    other.query("rollback", {});
    insertion.execute({});
    EXPECT_EQ(connection.query("select count(*) from t", {}).rows, (Rows{{1.0}}));
}

TEST_F(SQLiteStatementTest, FetchesAllThatTheReaderMakesOfTheRows) {
    SQLiteStatement statement = connection.prepare("values (1), (2), (3)");
    const auto doubled =
        statement.fetchAll([](SQLiteRow row) { return 2 * *row.value(0).number(); });
    EXPECT_EQ(doubled, (std::vector<double>{2, 4, 6}));
}

TEST_F(SQLiteStatementTest, DropsTheRowsReadBeforeAFailure) {
    // The second row overflows: the first was read by then.
    SQLiteStatement statement =
        connection.prepare("select abs(column1) from (values (1), (-9223372036854775807 - 1))");
    int read = 0;
    EXPECT_EQ(thrownCode([&] { statement.fetchAll([&](SQLiteRow) { return ++read; }); }), 1);
    EXPECT_EQ(read, 1);
}

TEST(SQLiteStatement, CountsParametersFromOne) {
    EXPECT_EQ(SQLiteStatement::position(0), 1);
    EXPECT_EQ(SQLiteStatement::position(2147483646), 2147483647);
}

TEST(SQLiteStatementDeathTest, EndsTheProcessOnAParameterPast32Bits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(SQLiteStatement::position(2147483647), "Fatal error");
}

TEST(SQLiteStatementDeathTest, EndsTheProcessOnABlob) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto readBlob = [] {
        SQLiteConnection connection(
            {.storage = SQLiteStorage::memory(), .migrations = {}, .setUpActions = {}});
        connection.query("select x'00'", {});
    };
    EXPECT_DEATH(readBlob(), "Fatal error");
}

} // namespace
