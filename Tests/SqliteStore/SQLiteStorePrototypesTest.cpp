// Values that the store hands to JavaScript are whole, whatever a script has put on the prototypes.

#include <gtest/gtest.h>

#include <SqliteStore/StoreRuntime.h>

namespace {

using test::StoreRuntime;

/// Puts a setter, a read-only value or a getter under each name and index; `touched` counts what
/// runs of them. `restore` takes them away again: the test's own script would fall over them.
constexpr std::string_view tamper = R"js(
    var touched = 0;
    const names = ["columns", "rows", "type", "table", "keys", "context", "why", "0", "1", "40"];
    const kinds = {
        setter: { set() { touched++; }, get() { touched++; }, configurable: true },
        readOnly: { value: "inherited", writable: false, configurable: true },
        getter: { get() { touched++; return "inherited"; }, configurable: true },
    };
    const each = (action) => [Object.prototype, Array.prototype].forEach((prototype) =>
        names.forEach((name) => action(prototype, name)));
    const tamper = (kind) => {
        const define = Object.defineProperty;
        each((prototype, name) => define(prototype, name, kinds[kind]));
    };
    const restore = () => each((prototype, name) => delete prototype[name]);
    const sameAs = (prototype, object) => Object.getPrototypeOf(object) === prototype;
)js";

TEST(SQLiteStorePrototypes, TakeNothingFromResultSets) {
    for (const std::string kind : {"setter", "readOnly", "getter"}) {
        StoreRuntime runtime;
        test::evaluate(runtime.context, tamper);
        EXPECT_EQ(runtime.run("const kind = '" + kind + R"js(';
            const wide = Array.from({ length: 60 }, (_, column) => `${column} as c${column}`);
            const sql = `select ${wide} union all select ${wide}`;
            const answer = await new Promise((resolve, reject) => {
                tamper(kind);
                ZemSqliteStore.query(sql, [], (found) => {
                    restore();
                    resolve(found);
                }, reject);
            });
            return [touched, Object.keys(answer), answer.columns.length, answer.rows.length,
                    answer.rows.map((row) => row.every((cell, column) => cell === column)),
                    answer.rows.map((row) => Object.keys(row).length),
                    sameAs(Object.prototype, answer),
                    [answer.columns, answer.rows, ...answer.rows].every(
                        (array) => sameAs(Array.prototype, array) && Array.isArray(array))];
        )js"),
                  R"([0,["columns","rows"],60,2,[true,true],[60,60],true,true])")
            << kind;
    }
}

TEST(SQLiteStorePrototypes, TakeNothingFromChanges) {
    for (const std::string kind : {"setter", "readOnly", "getter"}) {
        StoreRuntime runtime;
        test::evaluate(runtime.context, tamper);
        EXPECT_EQ(runtime.run("const kind = '" + kind + R"js(';
            const keys = Array.from({ length: 60 }, (_, key) => `k${key}`);
            const operations = [remove(keys, { why: "old" }), remove(["last"])];
            const changes = await new Promise((resolve) => {
                const id = ZemSqliteStore.registerOnChangedListener((heard) => {
                    restore();
                    ZemSqliteStore.unsubscribeOnChangedListener(id);
                    resolve(heard);
                });
                tamper(kind);
                ZemSqliteStore.batchOperations(operations, nothing);
            });
            return [touched, changes.length, Object.keys(changes[0]), changes[0].type,
                    changes[0].keys.join() === keys.join(), changes[0].context, changes[1]];
        )js"),
                  R"([0,2,["type","table","keys","context"],"delete",true,{"why":"old"},)"
                  R"({"type":"delete","table":"zem_data","keys":["last"],"context":{}}])")
            << kind;
    }
}

} // namespace
