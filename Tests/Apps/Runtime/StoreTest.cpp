// The store as a bundle finds it: where it is kept, under which key, and how it is closed.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Support/SecretService.h>
#include <csignal>
#include <filesystem>

namespace {

using test::Host;
using testing::HasSubstr;

constexpr const char* keyLabel = "com.quorvane.ZEM.SQLiteStoreKey";
constexpr const char* saltLabel = "com.quorvane.ZEM.SQLiteStoreSalt";

/// put(key, then) writes an entry; count(then) tells how many there are.
constexpr const char* library = R"(
    const put = (key, then) => ZemSqliteStore.batchOperations([{
        type: 'upsert', table: 'zem_data', keyColumn: 'key', conflictColumns: ['key'],
        columns: ['key', 'data'], rows: [[key, '{}']], context: {},
    }], (error) => {
        if (error !== null) throw new Error(error);
        then?.();
    });
    const count = (then) => ZemSqliteStore.query('select count(*) from zem_data', [],
        ({ rows }) => then(rows[0][0]), (error) => { throw new Error(error) });
)";

std::string script(const std::string& text) {
    return library + text;
}

const std::string putOneAndCount = script("put('a', () => count((n) => console.log(n, 'entry')))");

class StoreFiles : public testing::Test {
  protected:
    bool exists(const std::string& name) const {
        return std::filesystem::exists(host.folder() / name);
    }

    /// `script` runs on the store in data/ with its key in keys/.
    test::Process start(const std::string& text, Host::Words words = {}) const {
        host.write("bundle.js", text);
        words.insert(words.begin(), {"run", "bundle.js", "--data", "data", "--keys", "keys"});
        return host.start(words);
    }
    test::Process::Result run(const std::string& text, Host::Words words = {}) const {
        return start(text, std::move(words)).wait();
    }

    void expectClosedCleanly(const std::string& script = "") const {
        for (const std::string file : {"data/zem.db", "data/binaries.db"}) {
            EXPECT_TRUE(exists(file)) << file << script;
            EXPECT_FALSE(exists(file + "-wal")) << file << script;
            EXPECT_FALSE(exists(file + "-shm")) << file << script;
        }
    }

    Host host;
};

TEST_F(StoreFiles, KeepWhatWasWrittenForTheNextRun) {
    const auto first = run(putOneAndCount);
    EXPECT_EQ(first.errors, "");
    EXPECT_EQ(first.output, "1 entry\n");
    EXPECT_EQ(first.code, 0);
    expectClosedCleanly();
    EXPECT_EQ(host.read(std::string("keys/") + keyLabel).size(), 32U);
    EXPECT_EQ(host.read(std::string("keys/") + saltLabel).size(), 16U);

    const auto second = run(script("put('b', () => count((n) => console.log(n)))"));
    EXPECT_EQ(second.errors, "");
    EXPECT_EQ(second.output, "2\n");
    expectClosedCleanly();
}

TEST_F(StoreFiles, DoNotOpenUnderAnotherKey) {
    ASSERT_EQ(run(putOneAndCount).code, 0);
    host.write("bundle.js", "console.log('never')");
    const auto other = host.run({"run", "bundle.js", "--data", "data", "--keys", "other-keys"});
    EXPECT_THAT(other.errors, HasSubstr("zem: cannot open the store data/zem.db: its key is "
                                        "another one, or it is damaged (SQLite error 7)\n"));
    EXPECT_EQ(other.output, "");
    EXPECT_EQ(other.code, 3);
    // The store is unharmed: its own key still opens it.
    EXPECT_EQ(run(putOneAndCount).output, "1 entry\n");
}

TEST_F(StoreFiles, AFileInPlaceOfTheFolderIsNamed) {
    host.write("data", "");
    const auto result = run("console.log('never')");
    EXPECT_EQ(result.errors, "zem: cannot open the store data/zem.db: Not a directory\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.code, 3);
}

TEST_F(StoreFiles, KeysThatOthersCanReadAreRefused) {
    ASSERT_EQ(run(putOneAndCount).code, 0);
    std::filesystem::permissions(host.folder() / "keys", std::filesystem::perms(0755));
    const auto result = run("console.log('never')");
    EXPECT_THAT(result.errors, testing::StartsWith("zem: cannot open the store data/zem.db: key "
                                                   "store "));
    EXPECT_THAT(result.errors, HasSubstr("found mode 0755\n"));
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.code, 3);
}

TEST_F(StoreFiles, AreClosedWhenTheScriptExits) {
    const auto result = run(script("put('a', () => { put('b'); host.exit(4) })"));
    EXPECT_EQ(result.code, 4);
    expectClosedCleanly();
}

TEST_F(StoreFiles, AreClosedAfterAnUncaughtException) {
    const auto result = run(script("put('a', () => { put('b'); throw new Error('x') })"));
    EXPECT_THAT(result.errors, HasSubstr("Uncaught Error: x\n"));
    EXPECT_EQ(result.code, 1);
    expectClosedCleanly();
}

TEST_F(StoreFiles, AreClosedOnCtrlC) {
    for (const char* rest : {"setTimeout(() => {}, 1000000);", "for (;;);",
                             "for (let next = 0; ; ++next) if (next < 3000) put(`${next}`);"}) {
        auto process =
            start(script("put('a', () => { console.log('written');" + std::string(rest) + "})"));
        process.waitForLine("written");
        EXPECT_TRUE(exists("data/zem.db-wal")) << rest;
        process.signal(SIGINT);
        const auto result = process.wait();
        EXPECT_EQ(result.output, "written\n") << rest;
        EXPECT_EQ(result.errors, "") << rest;
        EXPECT_EQ(result.code, 130) << rest;
        expectClosedCleanly(rest);
    }
    EXPECT_EQ(run(script("count((n) => console.log(n > 0))")).output, "true\n");
}

TEST(Store, PendingCallsKeepTheRunAliveAndListenersDoNot) {
    const Host host;
    const auto result = host.runScript(script(R"(
        ZemSqliteStore.registerOnChangedListener((changes) => console.log('heard', changes[0].keys));
        put('a', () => put('b', () => count((n) => console.log('counted', n))));
        console.log('script');
    )"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, "script\nheard [ 'a' ]\nheard [ 'b' ]\ncounted 2\n");
    EXPECT_EQ(result.code, 0);
}

TEST(Store, InMemoryTouchesNeitherFilesNorKeys) {
    const Host host;
    const auto result = host.runScript(putOneAndCount);
    EXPECT_EQ(result.output, "1 entry\n");
    EXPECT_EQ(result.errors, "");
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(host.folder().path())) {
        names.push_back(entry.path().filename().string());
    }
    EXPECT_EQ(names, std::vector<std::string>{"bundle.js"});
}

TEST(Store, ExceptionsInItsCallbacksAreUncaught) {
    const Host host;
    const auto completion = host.runScript("ZemSqliteStore.query('select 1', [],\n"
                                           "    function answer() { throw new Error('c') }, "
                                           "() => {});\n"
                                           "setTimeout(() => console.log('never'), 1000000)");
    EXPECT_EQ(completion.errors, "bundle.js:2:40: Uncaught Error: c\n"
                                 "    at answer (bundle.js:2:40)\n");
    EXPECT_EQ(completion.output, "");
    EXPECT_EQ(completion.code, 1);

    const auto listener = host.runScript(
        script("ZemSqliteStore.registerOnChangedListener(() => { throw new Error('l') });"
               "put('a', () => console.log('never'));"));
    EXPECT_THAT(listener.errors, HasSubstr("Uncaught Error: l\n"));
    EXPECT_EQ(listener.output, "");
    EXPECT_EQ(listener.code, 1);
}

TEST(Store, CallsThatMakeNoSenseNameThePlace) {
    const Host host;
    const auto result = host.runScript("ZemSqliteStore.query('select 1', [true, {}], () => {}, "
                                       "() => {})");
    EXPECT_THAT(result.errors,
                testing::StartsWith("bundle.js:1:21: Uncaught TypeError: ZemSqliteStore.query, "
                                    "argument 2: [1]: "));
    EXPECT_EQ(result.code, 1);
}

TEST(Store, IsNotReplacedByASetting) {
    const Host host;
    const auto result = host.runScript("console.log('never')", {"--set", "ZemSqliteStore=x"});
    EXPECT_EQ(result.errors, "zem: --set ZemSqliteStore: there is a global of that name already\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.code, 2);
}

// --- The key in the Secret Service

TEST(StoreKey, IsInTheSecretServiceByDefault) {
    const test::SessionBus bus;
    test::SecretService service(bus);
    const Host host;
    host.write("bundle.js", putOneAndCount);
    for (const Host::Words& words :
         {Host::Words{"run", "bundle.js"}, Host::Words{"run", "bundle.js", "--secret-service"}}) {
        const auto result = host.run(words);
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.output, "1 entry\n");
        EXPECT_EQ(result.code, 0);
        EXPECT_TRUE(std::filesystem::exists(host.folder() / "zem-data/zem.db"));
        EXPECT_EQ(service.itemCount(keyLabel), 1U);
        EXPECT_EQ(service.itemCount(saltLabel), 1U);
    }
}

void expectTwoWaysOut(const Host& host, const std::string& reason) {
    host.write("bundle.js", "console.log('never')");
    for (const Host::Words& words :
         {Host::Words{"run", "bundle.js"}, Host::Words{"run", "bundle.js", "--secret-service"}}) {
        const auto result = host.run(words);
        EXPECT_THAT(
            result.errors,
            testing::StartsWith("zem: cannot open the store zem-data/zem.db: the Secret Service, "
                                "which is to keep its key, cannot be used: "));
        EXPECT_THAT(result.errors, HasSubstr(reason));
        EXPECT_THAT(result.errors,
                    testing::EndsWith("\nThere are two ways out:\n"
                                      "  --keys DIR        keeps the key as a file in DIR\n"
                                      "  --secret-service  with a Secret Service running on the "
                                      "session bus, unlocked\n"));
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.code, 3);
        EXPECT_FALSE(std::filesystem::exists(host.folder() / "zem-data"));
    }
}

TEST(StoreKey, HasTwoWaysOutWithoutABus) {
    Host host;
    host.environment["DBUS_SESSION_BUS_ADDRESS"] =
        "unix:path=" + (host.folder() / "no-bus").string();
    expectTwoWaysOut(host, "the session bus cannot be reached: ");
}

TEST(StoreKey, HasTwoWaysOutWithoutAService) {
    const test::SessionBus bus;
    expectTwoWaysOut(Host(), "no Secret Service");
}

TEST(StoreKey, HasTwoWaysOutWhileTheKeyringIsLocked) {
    const test::SessionBus bus;
    test::SecretService service(bus);
    service.lock();
    expectTwoWaysOut(Host(), "locked");
    service.unlock();
    EXPECT_EQ(service.itemCount(keyLabel), 0U);
}

TEST(Store, SaysInSQLitesWordsWhyAStatementOfTheBundleFailed) {
    const Host host;
    const std::string failing = "ZemSqliteStore.query(\"select 'it'\\nfrom nowhere\", [],"
                                "() => {}, (text) => console.log(text))";
    const auto result = host.runScript(failing);
    EXPECT_EQ(result.output, "The operation couldn't be completed. (SQLiteResult error 1.)\n");
    EXPECT_EQ(result.errors, "store: no such table: nowhere (SQLite error 1), to: select 'it'\n"
                             "from nowhere\n");
    EXPECT_EQ(result.code, 0);
    const auto json = host.runScript(failing, {"--json"});
    EXPECT_EQ(json.output,
              R"x({"level":"error","message":"store: no such table: nowhere (SQLite error 1), )x"
              R"x(to: select 'it'\nfrom nowhere"})x"
              "\n"
              R"x({"level":"log","message":"The operation couldn't be completed. )x"
              R"x((SQLiteResult error 1.)"})x"
              "\n");
    EXPECT_EQ(json.errors, "");
}

} // namespace
