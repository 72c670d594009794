// How the host learns of the runtime that a bundle sets, and what it says where there is none.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Apps/Runtimes.h>

namespace {

using test::dataService;
using test::Host;

constexpr const char* invocation = "invoke a {}\nwait\n";
constexpr const char* answered = "[\"invokeAdapter\",\"a\",\"{}\",\"no context\"]\n"
                                 "i1 a: {\"id\":\"a\"}\n";

void expectAnswered(const std::string& ending) {
    const Host host;
    const auto result = host.runCommands(dataService + ending, invocation);
    EXPECT_EQ(result.output, answered) << ending;
    EXPECT_EQ(result.errors, "") << ending;
    EXPECT_EQ(result.code, 0) << ending;
}

TEST(Runtime, IsFoundHoweverTheBundleSetsIt) {
    for (const char* ending : {
             "globalThis.runtime = { dataService };",
             "var runtime = { dataService };",
             "runtime = { dataService };",
             "function runtime() {} runtime.dataService = dataService;",
             "Object.defineProperty(globalThis, 'runtime', { value: { dataService } });",
             "Object.defineProperty(globalThis, 'runtime', { get: () => held });"
             "const held = { dataService };",
             "globalThis.runtime = {}; runtime.dataService = dataService;",
             "globalThis.runtime = Object.freeze(Object.create({ dataService }));",
             "setTimeout(() => { globalThis.runtime = { dataService } }, 5);",
             "globalThis.runtime = undefined; setTimeout(() => { runtime = { dataService } }, 5);",
             "globalThis.runtime = Promise.resolve({ dataService });",
             "globalThis.runtime = new Promise((resolve) => setTimeout(() => resolve({ dataService "
             "}), 5));",
             "globalThis.runtime = { then: (resolve) => resolve({ dataService }) };",
             "setTimeout(() => { globalThis.runtime = (async () => ({ dataService }))() }, 5);",
         }) {
        expectAnswered(ending);
    }
}

TEST(Runtime, TheLastOneCountsUntilOneCanBeUsed) {
    expectAnswered("globalThis.runtime = new Promise(() => {});"
                   "globalThis.runtime = { dataService };");
    expectAnswered("globalThis.runtime = {}; globalThis.runtime = { dataService };");
    // A later value of `runtime` is the bundle's own.
    expectAnswered("globalThis.runtime = { dataService };"
                   "setTimeout(() => { runtime = {}; if (runtime.x !== undefined) throw 1; });");
}

TEST(Runtime, LeavesNoTraceWhereABundleLooks) {
    const Host host;
    const auto result =
        host.runScript("console.log(typeof runtime, Object.keys(globalThis).join());"
                       "globalThis.runtime = 5; console.log(runtime);"
                       "const own = Promise.resolve(7); runtime = own;"
                       "console.log(runtime === own);"
                       "delete globalThis.runtime; console.log(typeof runtime);");
    EXPECT_EQ(result.output,
              "undefined ZemSqliteStore,ZemNetworkAdapter,ZemBinaryStorePlugin,ZemDraftQueue\n"
              "5\ntrue\nundefined\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Runtime, DoesNotKeepARunWithoutCommands) {
    for (const char* ending : {
             "globalThis.runtime = { dataService };",
             "globalThis.runtime = new Promise(() => {});",
             "globalThis.runtime = {};",
         }) {
        const Host host;
        const auto result = host.runScript(dataService + ending);
        EXPECT_EQ(result.output, "") << ending;
        EXPECT_EQ(result.errors, "") << ending;
        EXPECT_EQ(result.code, 0) << ending;
    }
}

TEST(Runtime, ARejectedOneIsAnyUnhandledRejectionWithoutCommands) {
    const Host host;
    const auto result = host.runScript("globalThis.runtime = Promise.reject(new Error('no'))");
    EXPECT_EQ(result.errors, "bundle.js:1:46: Uncaught (in promise) Error: no\n"
                             "    at global code (bundle.js:1:46)\n");
    EXPECT_EQ(result.code, 1);
}

void expectUnusable(const std::string& script, const std::string& why) {
    const Host host;
    for (const char* commands : {"# a comment\ninvoke a {}\nwait\n", "\ninvoke a {}\n"}) {
        const auto result = host.runCommands(script, commands);
        EXPECT_EQ(result.output, "i1 a: failed: " + why + "\n") << script;
        EXPECT_EQ(result.errors, "zem: commands.txt:2: i1 a: " + why + "\n") << script;
        EXPECT_EQ(result.code, 4) << script;
    }
}

TEST(Runtime, OneThatCannotBeUsedFailsWhatNeedsIt) {
    const std::string noObject = "globalThis.runtime.dataService: expected an object, found ";
    expectUnusable("globalThis.runtime = {}", noObject + "undefined");
    expectUnusable("globalThis.runtime = { dataService: null }", noObject + "null");
    expectUnusable("globalThis.runtime = { dataService: true }", noObject + "a boolean");
    expectUnusable("globalThis.runtime = { dataService: 7 }", noObject + "a number");
    expectUnusable("globalThis.runtime = { dataService: 'private' }", noObject + "a string");
    expectUnusable("globalThis.runtime = { dataService: Symbol('private') }",
                   noObject + "a symbol");
    expectUnusable("globalThis.runtime = { dataService: 7n }", noObject + "a BigInt");
    expectUnusable("globalThis.runtime = 7",
                   "globalThis.runtime: expected an object, found a number");
    expectUnusable("globalThis.runtime = Promise.resolve()",
                   "globalThis.runtime: expected an object, found undefined");
    expectUnusable("globalThis.runtime = { get dataService() { throw 'up' } }",
                   "reading globalThis.runtime.dataService threw: 'up'");
    expectUnusable("Object.defineProperty(globalThis, 'runtime', { get() { throw 'up' } })",
                   "reading globalThis.runtime threw: 'up'");
    expectUnusable("globalThis.runtime = Promise.reject(new Error('no'))",
                   "the promise in globalThis.runtime was rejected: Error: no\n"
                   "    at global code (bundle.js:1:46)");
    expectUnusable("setTimeout(() => { globalThis.runtime = Promise.reject('no') }, 5)",
                   "the promise in globalThis.runtime was rejected: 'no'");
}

TEST(Runtime, EverythingThatNeedsItFailsOnce) {
    const Host host;
    const auto result =
        host.runCommands("globalThis.runtime = {}", "-invoke a {}\n-subscribe b {}\n-ttl record 1\n"
                                                    "eval 1\n-invoke c {}\n-wait\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
    for (const char* line :
         {"i1 a: failed: globalThis.runtime.dataService: expected an object, found undefined\n",
          "s1 b: failed: globalThis.runtime.dataService: expected an object, found undefined\n",
          "ttl record: failed: globalThis.runtime.dataService: expected an object, found "
          "undefined\n",
          "i2 c: failed: globalThis.runtime.dataService: expected an object, found undefined\n"}) {
        const std::size_t found = result.output.find(line);
        EXPECT_NE(found, std::string::npos) << line << result.output;
        EXPECT_EQ(result.output.find(line, found + 1), std::string::npos) << line;
    }
}

TEST(Runtime, OneThatNeverComesIsSaidOnceNothingIsLeftToDo) {
    const Host host;
    const std::string unset = "the bundle has set no globalThis.runtime";
    const auto atEnd = host.runCommands("setTimeout(() => console.log('over'), 5)",
                                        "-subscribe s {}\n-ttl metadata 3\ninvoke a {}\n");
    EXPECT_EQ(atEnd.output, "over\ns1 s: failed: " + unset + "\nttl metadata: failed: " + unset +
                                "\ni1 a: failed: " + unset + "\n");
    EXPECT_EQ(atEnd.errors, "zem: commands.txt:3: i1 a: " + unset + "\n");
    EXPECT_EQ(atEnd.code, 4);

    const auto waiting = host.runCommands("setTimeout(() => console.log('over'), 5)",
                                          "invoke a {}\nsubscribe b {}\nwait\n");
    EXPECT_EQ(waiting.output, "over\n");
    EXPECT_EQ(waiting.errors,
              "zem: commands.txt:3: waited in vain for i1 a, s1 b: " + unset + "\n");
    EXPECT_EQ(waiting.code, 4);

    const auto promised =
        host.runCommands("globalThis.runtime = new Promise(() => {})", "invoke a {}\n");
    EXPECT_EQ(promised.errors,
              "zem: commands.txt:1: i1 a: the promise in globalThis.runtime is not settled\n");
    EXPECT_EQ(promised.code, 4);
}

TEST(Runtime, MayBeSetByACommand) {
    const Host host;
    const auto result = host.runCommands(
        dataService, "invoke a {}\neval void (globalThis.runtime = { dataService })\nwait\n");
    EXPECT_THAT(result.output, testing::HasSubstr("eval: undefined\n"));
    EXPECT_THAT(result.output, testing::HasSubstr("i1 a: {\"id\":\"a\"}\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Runtime, HearsWhatWasAskedForBeforeItWasThere) {
    const Host host;
    auto result = host.runCommands(
        dataService,
        "ttl record 1\nttl record 2\nsubscribe gone {}\nunsubscribe s1\nsubscribe kept {}\n"
        "eval void (globalThis.runtime = { dataService })\nwait\n");
    // It is printed while the runtime is handed what was asked.
    const std::string evaluated = "eval: undefined\n";
    const std::size_t at = result.output.find(evaluated);
    ASSERT_NE(at, std::string::npos) << result.output;
    result.output.erase(at, evaluated.size());
    EXPECT_EQ(result.output, "[\"setRimvoRecordTTL\",2]\n"
                             "ttl record: 2\n"
                             "[\"subscribeToAdapter\",\"kept\",\"{}\",\"no context\"]\n"
                             "s2 kept: {\"n\":1}\n");
    EXPECT_EQ(result.code, 0);
}

TEST(Runtime, MayEndTheRunWhileItIsHandedWhatWasAsked) {
    const Host host;
    const auto result = host.runCommands(
        "globalThis.runtime = { dataService: { subscribeToAdapter() { host.exit(9) } } }",
        "subscribe a {}\nwait\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 9);
}

} // namespace
