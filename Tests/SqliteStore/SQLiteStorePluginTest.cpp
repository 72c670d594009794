// "ZemSqliteStore": the store's methods as JavaScript calls them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <SqliteStore/StoreRuntime.h>
#include <Support/CountingRunLoop.h>

namespace {

using namespace zem;
using test::StoreRuntime;

TEST(SQLiteStorePlugin, BindsItsMethodsInOrder) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.store->namespace_(), "ZemSqliteStore");
    test::expectEval(runtime.context, "Object.keys(ZemSqliteStore)", "array",
                     R"(["query","batchOperations","registerOnChangedListener",)"
                     R"("unsubscribeOnChangedListener"])");
    test::expectEval(runtime.context,
                     "Object.values(ZemSqliteStore).map((method) => [method.name, method.length])",
                     "array",
                     R"([["query",4],["batchOperations",2],["registerOnChangedListener",1],)"
                     R"(["unsubscribeOnChangedListener",1]])");
}

TEST(SQLiteStorePlugin, AnswersAQueryWithColumnsAndRows) {
    StoreRuntime runtime;
    EXPECT_EQ(
        runtime.run(R"js(return query("select 'text' as a, 3 as b, 2.5 as c, null as d");)js"),
        R"({"columns":["a","b","c","d"],"rows":[["text",3,2.5,null]]})");
}

TEST(SQLiteStorePlugin, NamesTheColumnsWhenThereAreNoRows) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(return query("select key, data from zem_data");)js"),
              R"({"columns":["key","data"],"rows":[]})");
}

TEST(SQLiteStorePlugin, AnswersAStatementWithoutColumns) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(return query("create table t (a)");)js"),
              R"({"columns":[],"rows":[]})");
}

TEST(SQLiteStorePlugin, BindsEachKindOfParameter) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  const { rows } = await query(
                      "select ?, typeof(?1), ?, typeof(?2), ?, typeof(?3), ?, typeof(?4)",
                      [true, "text", 2, null]);
                  return rows[0];
              )js"),
              R"([1,"integer","text","text",2,"real",null,"null"])");
}

TEST(SQLiteStorePlugin, GivesABooleanParameterBackAsANumber) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  const [yes, no] = (await query("select ?, ?", [true, false])).rows[0];
                  return [yes, typeof yes, no, typeof no];
              )js"),
              R"([1,"number",0,"number"])");
}

TEST(SQLiteStorePlugin, ReturnsBeforeTheWorkIsDone) {
    StoreRuntime runtime;
    test::Gate gate;
    gate.enter(*runtime.store);
    test::setFunction(runtime.context, "openGate", 0,
                      [&](zem::js::Scope& scope, zem::js::Local,
                          zem::js::Arguments) -> zem::js::Result<zem::js::Local> {
                          gate.open();
                          return scope.undefined();
                      });
    EXPECT_EQ(runtime.run(R"js(
                  const lines = [];
                  const first = new Promise((resolve) => ZemSqliteStore.query("select 1", [],
                      () => { lines.push("result"); resolve(); }, nothing));
                  const second = new Promise((resolve) => ZemSqliteStore.batchOperations([],
                      () => { lines.push("completion"); resolve(); }));
                  lines.push("returned");
                  openGate();
                  await Promise.all([first, second]);
                  return lines;
              )js"),
              R"(["returned","result","completion"])");
}

TEST(SQLiteStorePlugin, TellsOfABadQueryThroughOnError) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(return query("selec 1");)js"),
              "rejected: The operation couldn't be completed. (SQLiteResult error 1.)");
    EXPECT_TRUE(runtime.works());
}

TEST(SQLiteStorePlugin, CompletesABatchWithNull) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(return [await write(upsert([["a", "{}", null], ["b", "{}", "{}"]])),
                                     (await query("select * from zem_data order by key")).rows];)js"),
              R"([null,[["a","{}",null],["b","{}","{}"]]])");
}

TEST(SQLiteStorePlugin, CompletesAFailedBatchWithATextAndTellsNoListener) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  let heard = 0;
                  const id = ZemSqliteStore.registerOnChangedListener(() => heard++);
                  const failure = await write(upsert([["a", "{}", null]]),
                      { ...remove(["a"]), table: "no such table" });
                  ZemSqliteStore.unsubscribeOnChangedListener(id);
                  return [failure, heard, await value("select count(*) from zem_data")];
              )js"),
              R"x(["The operation couldn't be completed. (SQLiteResult error 1.)",0,0])x");
}

TEST(SQLiteStorePlugin, ReportsAChangeAnOperationBeforeTheCompletion) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  const lines = [];
                  const id = ZemSqliteStore.registerOnChangedListener(
                      (changes) => lines.push(changes));
                  await write(upsert([["a", "{}", null], ["b", "{}", null]], { why: "new", n: 2 }),
                              remove(["a", "never there"], { flag: true, none: null }))
                      .then((failure) => lines.push(failure));
                  ZemSqliteStore.unsubscribeOnChangedListener(id);
                  return lines;
              )js"),
              R"([[{"type":"upsert","table":"zem_data","keys":["a","b"],)"
              R"("context":{"n":2,"why":"new"}},)"
              R"({"type":"delete","table":"zem_data","keys":["a","never there"],)"
              R"("context":{"flag":true,"none":null}}],null])");
}

TEST(SQLiteStorePlugin, GivesEachRegistrationAnIdAtOnce) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  const heard = [];
                  const first = ZemSqliteStore.registerOnChangedListener(() => heard.push("first"));
                  const second = ZemSqliteStore.registerOnChangedListener(() => heard.push("second"));
                  await write(upsert([["a", "{}", null]]));
                  ZemSqliteStore.unsubscribeOnChangedListener(first);
                  heard.sort();
                  await write(upsert([["b", "{}", null]]));
                  ZemSqliteStore.unsubscribeOnChangedListener(second);
                  const answers = [ZemSqliteStore.unsubscribeOnChangedListener(second)];
                  await write(upsert([["c", "{}", null]]));
                  const form = /^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$/;
                  return [form.test(first), form.test(second), first !== second, heard,
                          answers[0] === undefined];
              )js"),
              R"([true,true,true,["first","second","second"],true])");
}

// More than fits one packed chunk, in bytes and in cells, with rows that are wider than what is
// made at a time.
TEST(SQLiteStorePlugin, BringsManyAndWideRowsWholeAndInOrder) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  const columns = Array.from({ length: 40 }, (_, column) => `c${column}`);
                  await query(`create table wide (${columns.join(",")})`);
                  const cell = (row, column) => {
                      switch ((row + column) % 4) {
                          case 0: return `row ${row} column ${column} ${"é".repeat(row % 50)}`;
                          case 1: return row * 1000 + column + 0.5;
                          case 2: return null;
                          default: return "";
                      }
                  };
                  const rows = Array.from({ length: 2000 }, (_, row) =>
                      columns.map((_, column) => cell(row, column)));
                  const failure = await write({ type: "upsert", table: "wide", keyColumn: "c0",
                      conflictColumns: ["rowid"], columns, rows, context: {} });
                  const found = await query("select * from wide order by rowid");
                  let wrong = 0;
                  found.rows.forEach((row, index) => row.forEach((got, column) => {
                      if (got !== rows[index][column]) wrong++;
                  }));
                  return [failure, found.columns.length, found.rows.length, found.rows[1999].length, wrong];
              )js"),
              "[null,40,2000,40,0]");
}

TEST(SQLiteStorePlugin, ForgetsRowsThatWereReadBeforeAQueryFailed) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  return query(`with recursive n(i) as (select 1 union all select i + 1 from n
                      where i < 20000)
                      select i, case when i = 19999 then json_extract('[', '$') else 'x' end from n`);
              )js"),
              "rejected: The operation couldn't be completed. (SQLiteResult error 1.)");
    EXPECT_TRUE(runtime.works());
}

TEST(SQLiteStorePlugin, CountsWhatIsOutstandingButNoListeners) {
    StoreRuntime runtime;
    test::Gate gate;
    gate.enter(*runtime.store);
    test::evaluate(runtime.context, R"(
        globalThis.id = ZemSqliteStore.registerOnChangedListener(nothing);
        ZemSqliteStore.batchOperations([], nothing);
    )");
    EXPECT_EQ(runtime.connection.activity().outstanding(), 1u);
    test::evaluate(runtime.context, R"(ZemSqliteStore.query("select 1", [], nothing, nothing);)");
    EXPECT_EQ(runtime.connection.activity().outstanding(), 3u);
    test::Event idle("the end of what is outstanding");
    runtime.connection.activity().setIdleHandler([&] { idle.signal(); });
    gate.open();
    gate.wait();
    idle.wait();
    runtime.connection.activity().setIdleHandler(nullptr);
    EXPECT_EQ(runtime.connection.activity().outstanding(), 0u);
    test::evaluate(runtime.context, "ZemSqliteStore.unsubscribeOnChangedListener(id);");
}

// Of the two functions of a query the one that is not called goes with the call, too.
TEST(SQLiteStorePlugin, WakesTheEnginesThreadOnceForEachAnswer) {
    platform::RunLoopThread thread("engine");
    const auto loop = std::make_shared<test::CountingRunLoop>(thread.runLoop());
    StoreRuntime runtime(test::memoryStore(), js::Context::create(loop));
    const auto postsOf = [&](std::string_view body, std::string_view answer) {
        const int before = loop->posts();
        EXPECT_EQ(runtime.run(body), answer);
        return loop->posts() - before;
    };
    // One is the test's own, to run the script.
    EXPECT_EQ(postsOf("let sum = 0; for (let i = 0; i < 20; ++i) sum += await value('select 2');"
                      "return sum;",
                      "40"),
              1 + 20);
    EXPECT_EQ(postsOf("let failed = 0; for (let i = 0; i < 20; ++i)"
                      "    await query('selec').catch(() => failed++); return failed;",
                      "20"),
              1 + 20);
    EXPECT_EQ(postsOf("const answers = []; for (let i = 0; i < 20; ++i)"
                      "    answers.push(await write()); return answers.length;",
                      "20"),
              1 + 20);
}

// The registry can tell whose listener it is.
TEST(SQLiteStorePlugin, RegistersItsListenersForItsStore) {
    StoreRuntime runtime;
    test::evaluate(runtime.context, R"(
        var heard = 0;
        ZemSqliteStore.registerOnChangedListener(() => heard++);
    )");
    SQLiteStoreNotifier::shared().unsubscribeListeners(*runtime.store);
    EXPECT_EQ(runtime.run("await write(); return heard;"), "0");
}

TEST(SQLiteStorePlugin, SaysThatItIsGoneWhenTheStoreWasDropped) {
    StoreRuntime runtime;
    runtime.store.reset();
    test::expectEval(runtime.context, R"(ZemSqliteStore.query("select 1", [], nothing, nothing))",
                     "exception", "Error: ZemSqliteStore.query: the plugin is gone");
}

} // namespace
