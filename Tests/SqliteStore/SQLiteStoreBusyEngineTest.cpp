// The database goes on while JavaScript is busy: its queue never waits for the engine.

#include <gtest/gtest.h>

#include <SqliteStore/StoreRuntime.h>

namespace {

using namespace zem;
using test::StoreRuntime;

/// Enters the engine and opens the gate there, so that nobody else gets in before `heard` was
/// signalled `times` times.
void openWhileTheEngineIsBusy(const js::Context& context, test::Gate& gate, test::Event& heard,
                              int times) {
    context.perform([&](js::Scope& scope) {
        const js::Sequence sequence(scope);
        gate.open();
        heard.wait(times);
    });
}

TEST(SQLiteStoreBusyEngine, ReadsRowsForJavaScriptAndThenTheNextBatchIsCommitted) {
    StoreRuntime runtime;
    test::Arrival<std::string> counted("the rows");
    test::setFunction(runtime.context, "counted", 1,
                      [&](js::Scope& scope, js::Local, js::Arguments arguments) {
                          counted.put(scope.describe(arguments[0]));
                          return js::Result<js::Local>(scope.undefined());
                      });
    test::Event committed("the batch to be committed while JavaScript is busy");
    const test::Registration listener([&](const auto&) { committed.signal(); });
    test::Gate gate;
    gate.enter(*runtime.store);
    // Many chunks of rows.
    test::evaluate(runtime.context, R"js(
        ZemSqliteStore.query(`with recursive n(i) as (select 1 union all select i + 1 from n
            where i < 20000) select i, 'row ' || i from n`, [],
            ({ rows }) => counted(rows.filter(([i, text]) => text === `row ${i}`).length),
            counted);
    )js");
    runtime.store->batchOperations({}, {});
    openWhileTheEngineIsBusy(runtime.context, gate, committed, 1);
    EXPECT_EQ(counted.get(), "20000");
}

TEST(SQLiteStoreBusyEngine, TellsAListenerOfJavaScriptAndThenTheNextBatchIsCommitted) {
    StoreRuntime runtime;
    test::Event committed("the second batch to be committed while JavaScript is busy");
    const test::Registration listener([&](const auto&) { committed.signal(); });
    test::Gate gate;
    gate.enter(*runtime.store);
    test::evaluate(runtime.context, R"js(
        var lines = [];
        var id = ZemSqliteStore.registerOnChangedListener(
            (changes) => lines.push(`heard ${changes.length}`));
        var written = Promise.all([
            write(upsert([["a", "{}", null]])).then((failure) => lines.push(`first ${failure}`)),
            write(remove(["a"]), remove(["b"])).then((failure) => lines.push(`second ${failure}`)),
        ]);
    )js");
    openWhileTheEngineIsBusy(runtime.context, gate, committed, 2);
    // Each batch's listener still hears before its completion.
    EXPECT_EQ(runtime.run("await written; ZemSqliteStore.unsubscribeOnChangedListener(id);"
                          "return lines;"),
              R"(["heard 1","first null","heard 2","second null"])");
}

} // namespace
