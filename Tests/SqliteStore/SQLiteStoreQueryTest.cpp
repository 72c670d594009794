#include <gtest/gtest.h>

#include <SqliteStore/Store.h>
#include <stdexcept>

namespace {

using namespace zem;
using test::query;
using test::queryError;
using Rows = std::vector<std::vector<SQLiteValue>>;

class SQLiteStoreQuery : public testing::Test {
  protected:
    const std::shared_ptr<SQLiteStore> store = test::memoryStore();
};

TEST_F(SQLiteStoreQuery, ReturnsColumnsAndRows) {
    const SQLiteResultSet resultSet =
        query(*store, "select ? as text, ? as number, ? as truth, ? as absent",
              {"words", 2.5, true, nullptr});
    EXPECT_EQ(resultSet, (SQLiteResultSet{.columns = {"text", "number", "truth", "absent"},
                                          .rows = {{"words", 2.5, 1, nullptr}}}));
}

TEST_F(SQLiteStoreQuery, ReturnsColumnsWithoutRows) {
    EXPECT_EQ(query(*store, "select key, data from zem_data"),
              (SQLiteResultSet{.columns = {"key", "data"}, .rows = {}}));
}

TEST_F(SQLiteStoreQuery, TakesWritesToo) {
    EXPECT_EQ(query(*store, "insert into zem_data values (?, ?, ?)", {"k", "d", nullptr}),
              SQLiteResultSet());
    EXPECT_EQ(query(*store, "select * from zem_data").rows, (Rows{{"k", "d", nullptr}}));
}

TEST_F(SQLiteStoreQuery, ReportsNoChangesToListeners) {
    test::Transcript heard;
    const test::Registration listener([&](const auto&) { heard.add("changes"); });
    query(*store, "insert into zem_data values ('k', 'd', null)");
    EXPECT_EQ(heard.lines(), std::vector<std::string>{});
}

TEST_F(SQLiteStoreQuery, FailsWithAGenericTextThatIsNotEmpty) {
    EXPECT_EQ(queryError(*store, "select from nowhere"),
              "The operation couldn't be completed. (SQLiteResult error 1.)");
    query(*store, "insert into zem_data values ('k', 'd', null)");
    EXPECT_EQ(queryError(*store, "insert into zem_data values ('k', 'd', null)"),
              "The operation couldn't be completed. (SQLiteResult error 19.)");
    EXPECT_EQ(query(*store, "select count(*) from zem_data").rows, (Rows{{1}}));
}

TEST_F(SQLiteStoreQuery, CallsExactlyOneOfItsCallbacks) {
    test::Transcript transcript;
    const auto ask = [&](const char* sql) {
        store->query(
            sql, {}, [&, sql](SQLiteResultSet) { transcript.add(std::string("result of ") + sql); },
            [&, sql](std::string) { transcript.add(std::string("error of ") + sql); });
    };
    ask("select 1");
    ask("select nothing");
    ask("select 2");
    query(*store, "select 3");
    EXPECT_EQ(transcript.lines(),
              (std::vector<std::string>{"result of select 1", "error of select nothing",
                                        "result of select 2"}));
}

TEST_F(SQLiteStoreQuery, DropsTheRowsReadBeforeAFailure) {
    EXPECT_EQ(
        queryError(*store, "select abs(column1) from (values (1), (-9223372036854775807 - 1))"),
        "The operation couldn't be completed. (SQLiteResult error 1.)");
}

TEST_F(SQLiteStoreQuery, CarriesTextOfEveryKind) {
    const std::string big(std::size_t{64} << 20, 'x');
    for (const std::string& text : {std::string("\xF0\x9F\x98\x80 \xE2\x82\xAC"), std::string(),
                                    std::string("'\";--"), big}) {
        const SQLiteResultSet resultSet = query(*store, "select ?", {text});
        EXPECT_TRUE(resultSet.rows == (Rows{{text}})) << text.size() << " bytes";
    }
}

TEST_F(SQLiteStoreQuery, MayBeAskedWithoutCallbacks) {
    store->query("insert into zem_data values ('k', 'd', null)", {}, {}, {});
    store->query("select from nowhere", {}, {}, {});
    EXPECT_EQ(query(*store, "select key from zem_data").rows, (Rows{{"k"}}));
}

TEST_F(SQLiteStoreQuery, LivesOnWhenACallbackThrows) {
    store->query("select 1", {},
                 [](SQLiteResultSet) { throw std::runtime_error("from a callback"); }, {});
    EXPECT_EQ(query(*store, "select 2").rows, (Rows{{2}}));
}

/// Writes down what a sink is told, and where.
class RecordingSink final : public SQLiteRowSink {
  public:
    explicit RecordingSink(std::shared_ptr<test::Transcript> transcript)
        : recorded(std::move(transcript)) {}
    ~RecordingSink() override { note("destroyed"); }

    void columns(std::vector<std::string> names) override {
        std::string line = "columns";
        for (const std::string& name : names) {
            line += " " + name;
        }
        note(line);
    }
    void row(std::span<const SQLiteCell> cells) override {
        std::string line = "row";
        for (const SQLiteCell& cell : cells) {
            if (const auto* text = std::get_if<std::string_view>(&cell)) {
                line.append(" text ").append(*text);
            } else if (const auto* number = std::get_if<double>(&cell)) {
                line += " number " + std::to_string(*number);
            } else {
                line += " null";
            }
        }
        note(line);
    }
    void finished() override { note("finished"); }
    void failed(const std::string& text) override { note("failed: " + text); }

  private:
    void note(const std::string& line) {
        recorded->add(line + " [" + platform::SerialQueue::currentLabel() + "]");
    }
    std::shared_ptr<test::Transcript> recorded;
};

TEST_F(SQLiteStoreQuery, HandsRowsToASinkOneByOne) {
    const auto transcript = std::make_shared<test::Transcript>();
    store->queryRows("select column1 as a, column2 as b from (values ('x', 1), (null, 2.5))", {},
                     std::make_unique<RecordingSink>(transcript));
    query(*store, "select 1");
    const std::string rows = " [com.quorvane.zem.SQLiteConnection]";
    const std::string results = " [com.quorvane.zem.SQLiteConnectionCallbacks]";
    EXPECT_EQ(transcript->lines(),
              (std::vector<std::string>{"columns a b" + rows, "row text x number 1.000000" + rows,
                                        "row null number 2.500000" + rows, "finished" + results,
                                        "destroyed" + results}));
}

TEST_F(SQLiteStoreQuery, TellsASinkOfTheFailureAfterTheRows) {
    const auto transcript = std::make_shared<test::Transcript>();
    store->queryRows("select abs(column1) as a from (values (1), (-9223372036854775807 - 1))", {},
                     std::make_unique<RecordingSink>(transcript));
    query(*store, "select 1");
    const std::string rows = " [com.quorvane.zem.SQLiteConnection]";
    const std::string results = " [com.quorvane.zem.SQLiteConnectionCallbacks]";
    EXPECT_EQ(transcript->lines(),
              (std::vector<std::string>{
                  "columns a" + rows, "row number 1.000000" + rows,
                  "failed: The operation couldn't be completed. (SQLiteResult error 1.)" + results,
                  "destroyed" + results}));
}

/// Refuses its second row.
class RefusingSink final : public SQLiteRowSink {
  public:
    explicit RefusingSink(std::shared_ptr<test::Arrival<std::string>> arrival)
        : end(std::move(arrival)) {}
    void columns(std::vector<std::string>) override {}
    void row(std::span<const SQLiteCell>) override {
        if (++rows == 2) {
            throw std::length_error("enough");
        }
    }
    void finished() override { end->put("finished"); }
    void failed(const std::string& text) override {
        end->put(text + " after " + std::to_string(rows));
    }

  private:
    std::shared_ptr<test::Arrival<std::string>> end;
    int rows = 0;
};

TEST_F(SQLiteStoreQuery, FailsWithWhatASinkThrows) {
    const auto end = std::make_shared<test::Arrival<std::string>>("the end of the query");
    store->queryRows("values (1), (2), (3)", {}, std::make_unique<RefusingSink>(end));
    EXPECT_EQ(end->get(),
              "The operation couldn't be completed. (std::length_error error 1.) after 2");
    EXPECT_EQ(query(*store, "select 2").rows, (Rows{{2}}));
}

} // namespace
