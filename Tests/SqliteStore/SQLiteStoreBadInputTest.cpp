// Mistakes that JavaScript may make: the store refuses each with a text that names the expected
// value, the found one and the place, or takes it as it is; and it works afterwards.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <SqliteStore/StoreRuntime.h>
#include <string>

namespace {

using test::StoreRuntime;

struct Refusal {
    const char* name;
    const char* call;
    const char* text;
};

void PrintTo(const Refusal& refusal, std::ostream* stream) {
    *stream << refusal.name;
}

class SQLiteStoreRefusal : public testing::TestWithParam<Refusal> {};

TEST_P(SQLiteStoreRefusal, NamesThePlaceAndLeavesTheStoreWorking) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run("return thrown(() => {" + std::string(GetParam().call) + "});"),
              '"' + std::string(GetParam().text) + '"');
    EXPECT_EQ(runtime.run(R"js(return value("select count(*) from zem_data");)js"), "0");
    EXPECT_TRUE(runtime.works());
}

#define BATCH "TypeError: ZemSqliteStore.batchOperations, argument "
#define QUERY "TypeError: ZemSqliteStore.query, argument "

INSTANTIATE_TEST_SUITE_P(
    Input, SQLiteStoreRefusal,
    testing::Values(
        Refusal{"UnknownType",
                R"(ZemSqliteStore.batchOperations([{ ...remove([]), type: "insert" }], nothing))",
                BATCH
                R"(1: [0].type: expected one of \"upsert\", \"delete\", found another string)"},
        Refusal{"NoType", R"(ZemSqliteStore.batchOperations([{ table: "t" }], nothing))",
                BATCH "1: [0].type: expected a string, found undefined"},
        Refusal{"MissingField",
                R"(const { keyColumn, ...rest } = upsert([]);
                   ZemSqliteStore.batchOperations([remove([]), rest], nothing))",
                BATCH "1: [1].keyColumn: expected a string, found undefined"},
        Refusal{"MissingContext",
                R"(const { context, ...rest } = remove([]);
                   ZemSqliteStore.batchOperations([rest], nothing))",
                BATCH "1: [0].context: expected an object, found undefined"},
        Refusal{"FieldOfAnotherKind",
                R"(ZemSqliteStore.batchOperations([{ ...remove([]), keyColumn: 3 }], nothing))",
                BATCH "1: [0].keyColumn: expected a string, found a number"},
        Refusal{"RowTooShort",
                R"(ZemSqliteStore.batchOperations(
                       [upsert([["a", "{}", null], ["b", "{}"]])], nothing))",
                BATCH "1: [0].rows[1]: expected 3 values, one a column, found 2"},
        Refusal{"RowTooLong",
                R"(ZemSqliteStore.batchOperations([upsert([["a", "{}", null, 1]])], nothing))",
                BATCH "1: [0].rows[0]: expected 3 values, one a column, found 4"},
        Refusal{"ObjectAsCell",
                R"(ZemSqliteStore.batchOperations([upsert([["a", {}, null]])], nothing))",
                BATCH
                "1: [0].rows[0][1]: SQLiteValue.DecodingError, expected a string, a number, a "
                "boolean or null, found an object"},
        Refusal{
            "ObjectAsParameter", R"(ZemSqliteStore.query("select ?", [1, {}], nothing, nothing))",
            QUERY "2: [1]: SQLiteValue.DecodingError, expected a string, a number, a boolean or "
                  "null, found an object"},
        Refusal{"ArrayAsParameter", R"(ZemSqliteStore.query("select ?", [[]], nothing, nothing))",
                QUERY
                "2: [0]: SQLiteValue.DecodingError, expected a string, a number, a boolean or "
                "null, found an array"},
        Refusal{"UndefinedAsParameter",
                R"(ZemSqliteStore.query("select ?", [undefined], nothing, nothing))",
                QUERY
                "2: [0]: SQLiteValue.DecodingError, expected a string, a number, a boolean or "
                "null, found undefined"},
        Refusal{"BigIntAsParameter", R"(ZemSqliteStore.query("select ?", [1n], nothing, nothing))",
                QUERY
                "2: [0]: SQLiteValue.DecodingError, expected a string, a number, a boolean or "
                "null, found a BigInt"},
        Refusal{"NoArguments", "ZemSqliteStore.query()",
                QUERY "1: expected a string, found nothing"},
        Refusal{"TooFewArguments", R"(ZemSqliteStore.query("select 1", [], nothing))",
                QUERY "4: expected a function, found nothing"},
        Refusal{"NoFunction", R"(ZemSqliteStore.query("select 1", [], nothing, "function"))",
                QUERY "4: expected a function, found a string"},
        Refusal{"NoCompletion", "ZemSqliteStore.batchOperations([])",
                BATCH "2: expected a function, found nothing"},
        Refusal{"NullAsCompletion", "ZemSqliteStore.batchOperations([], null)",
                BATCH "2: expected a function, found null"},
        Refusal{"NoArray", "ZemSqliteStore.batchOperations({}, nothing)",
                BATCH "1: expected an array, found an object"},
        Refusal{"ListenerThatIsNoFunction", "ZemSqliteStore.registerOnChangedListener({})",
                "TypeError: ZemSqliteStore.registerOnChangedListener, argument 1: expected a "
                "function, found an object"},
        Refusal{"IdThatIsNoText", "ZemSqliteStore.unsubscribeOnChangedListener(1)",
                "TypeError: ZemSqliteStore.unsubscribeOnChangedListener, argument 1: expected a "
                "string, found a number"}),
    [](const testing::TestParamInfo<Refusal>& entry) { return std::string(entry.param.name); });

TEST(SQLiteStoreBadInput, KeepsInfinitiesAndMakesNaNNull) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  const found = (await query("select ?, ?, ?, ?",
                      [Infinity, -Infinity, NaN, -0])).rows[0];
                  return found.map((number) => number === null ? "null" : String(number));
              )js"),
              R"(["Infinity","-Infinity","null","0"])");
    // A column that must not be null refuses what NaN became.
    EXPECT_EQ(runtime.run(R"js(return write(upsert([["a", NaN, null]]));)js"),
              R"x("The operation couldn't be completed. (SQLiteResult error 19.)")x");
    EXPECT_TRUE(runtime.works());
}

TEST(SQLiteStoreBadInput, BindsTextUpToItsFirstNULAndReadsItWhole) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  const bound = await value("select ?", ["before\0after"]);
                  const read = await value("select 'before' || char(0) || 'after'");
                  return [bound, read.length, read === "before\0after"];
              )js"),
              R"(["before",12,true])");
    EXPECT_TRUE(runtime.works());
}

TEST(SQLiteStoreBadInput, ReplacesLoneSurrogatesAndKeepsOtherCharacters) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  const texts = ["\ud83d", "a\udc00b", "\ud83d\ude00 \u00e9 \u20ac", "\udc00\ud83d"];
                  const found = (await query("select ?, ?, ?, ?", texts)).rows[0];
                  return found.map((text) => Array.from(text, (c) => c.codePointAt(0).toString(16)));
              )js"),
              R"([["fffd"],["61","fffd","62"],["1f600","20","e9","20","20ac"],["fffd","fffd"]])");
    EXPECT_TRUE(runtime.works());
}

TEST(SQLiteStoreBadInput, KeepsACellOf64MiB) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  const text = "0123456789abcdef".repeat(4 * 1024 * 1024);
                  const failure = await write(upsert([["large", text, null]]));
                  const found = await value("select data from zem_data where key = 'large'");
                  await write(remove(["large"]));
                  return [failure, found.length, found === text];
              )js"),
              "[null,67108864,true]");
    EXPECT_TRUE(runtime.works());
}

TEST(SQLiteStoreBadInput, DeletesAHundredThousandIdsInOneOperation) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  const ids = Array.from({ length: 100000 }, (_, index) => `id ${index}`);
                  await write(upsert([["id 0", "{}", null], ["id 99999", "{}", null]]));
                  let reported = 0;
                  const id = ZemSqliteStore.registerOnChangedListener(
                      ([change]) => { reported = change.keys.length; });
                  const failure = await write(remove(ids));
                  ZemSqliteStore.unsubscribeOnChangedListener(id);
                  return [failure, reported, await value("select count(*) from zem_data")];
              )js"),
              "[null,100000,0]");
    EXPECT_TRUE(runtime.works());
}

TEST(SQLiteStoreBadInput, AListenerThatThrowsIsReportedAndDisturbsNobody) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  let heard = 0;
                  const ids = [() => heard++, () => { throw new Error("a listener's"); }, () => heard++]
                      .map((listener) => ZemSqliteStore.registerOnChangedListener(listener));
                  const failure = await write(upsert([["a", "{}", null]]));
                  ids.forEach(ZemSqliteStore.unsubscribeOnChangedListener);
                  await write(remove(["a"]));
                  return [failure, heard];
              )js"),
              "[null,2]");
    EXPECT_EQ(runtime.uncaught.lines(), std::vector<std::string>{"Error: a listener's"});
    EXPECT_TRUE(runtime.works());
}

TEST(SQLiteStoreBadInput, AListenerMayUnregisterItselfAndStartABatch) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  const lines = [];
                  const inner = new Promise((resolve) => {
                      const id = ZemSqliteStore.registerOnChangedListener(([change]) => {
                          lines.push(change.keys);
                          ZemSqliteStore.unsubscribeOnChangedListener(id);
                          write(upsert([["from the listener", "{}", null]])).then(resolve);
                      });
                  });
                  lines.push(await write(upsert([["a", "{}", null]])), await inner);
                  lines.push(await value("select count(*) from zem_data"));
                  await write(remove(["a", "from the listener"]));
                  return lines;
              )js"),
              R"([["a"],null,null,2])");
    EXPECT_TRUE(runtime.works());
}

TEST(SQLiteStoreBadInput, ACallbackThatThrowsIsReportedAndDisturbsNobody) {
    StoreRuntime runtime;
    EXPECT_EQ(runtime.run(R"js(
                  ZemSqliteStore.query("select 1", [], () => { throw new Error("a result's"); },
                      nothing);
                  ZemSqliteStore.batchOperations([], () => { throw new Error("a completion's"); });
                  return value("select 2");
              )js"),
              "2");
    EXPECT_EQ(runtime.uncaught.lines(),
              (std::vector<std::string>{"Error: a result's", "Error: a completion's"}));
    EXPECT_TRUE(runtime.works());
}

} // namespace
