// When a run ends, and with which exit code.

#include <gtest/gtest.h>

#include <Apps/Host.h>

namespace {

using test::Host;

TEST(Ending, ComesWhenNothingIsLeftToDo) {
    const Host host;
    const auto result = host.runScript(R"(
        setTimeout(() => {
            console.log('timer');
            const repeated = setInterval(() => {
                clearInterval(repeated);
                Promise.resolve().then(() => setTimeout(() => console.log('last'), 1));
            }, 1);
        }, 1);
        clearTimeout(setTimeout(() => console.log('never'), 1000000));
        console.log('script');
    )");
    EXPECT_EQ(result.output, "script\ntimer\nlast\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Ending, DoesNotComeBetweenStoppingTheLastTimerAndStartingAnother) {
    const Host host;
    const auto result = host.runScript(R"(
        const last = setTimeout(() => {}, 1000000);
        setTimeout(() => {
            clearTimeout(last);
            setTimeout(() => console.log('another'), 1);
        }, 1);
    )");
    EXPECT_EQ(result.output, "another\n");
    EXPECT_EQ(result.code, 0);
}

TEST(Ending, APromiseThatNobodyCanSettleDoesNotKeepIt) {
    const Host host;
    const auto result =
        host.runScript("(async () => { await new Promise(() => {}); console.log('never') })()");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Ending, AnEmptyBundleEndsWithZero) {
    const Host host;
    EXPECT_EQ(host.runScript("").code, 0);
}

TEST(Exit, EndsWithItsCode) {
    const Host host;
    for (const int code : {0, 1, 3, 130, 255}) {
        EXPECT_EQ(host.runScript("host.exit(" + std::to_string(code) + ")").code, code);
    }
    EXPECT_EQ(host.runScript("host.exit()").code, 0);
}

TEST(Exit, NothingAfterItIsExecuted) {
    const std::string exit =
        "try { console.log('before'); host.exit(7); console.log('never'); }"
        "catch { console.log('never') } finally { console.log('never') }; console.log('never');";
    const std::string others = "setTimeout(() => console.log('never')); Promise.resolve().then(() "
                               "=> console.log('never'));";
    const Host host;
    for (const std::string& script : {
             others + exit,
             "setTimeout(() => {" + others + exit + "})",
             "queueMicrotask(() => {" + others + exit + "})",
             "(async () => { await null;" + others + exit + "})()",
             "[2, 1].sort(() => {" + others + exit + "})",
             "new Proxy({}, { get() {" + others + exit + "} }).x",
         }) {
        const auto result = host.runScript(script);
        EXPECT_EQ(result.output, "before\n") << script;
        EXPECT_EQ(result.errors, "") << script;
        EXPECT_EQ(result.code, 7) << script;
    }
}

TEST(Exit, TakesNoOtherTimerWithIt) {
    const Host host;
    const auto result =
        host.runScript("setTimeout(() => host.exit(5), 1); setInterval(() => {}, 1);"
                       "setTimeout(() => {}, 1000000)");
    EXPECT_EQ(result.code, 5);
}

TEST(Arguments, AreWhatFollowsTheDoubleDash) {
    const Host host;
    host.write("bundle.js", "console.log(JSON.stringify(host.args))");
    const auto result = host.run(
        {"run", "bundle.js", "--memory", "--", "a b", "--json", "-x", "", "--", "é", "--help"});
    EXPECT_EQ(result.output, R"(["a b","--json","-x","","--","é","--help"])"
                             "\n");
    EXPECT_EQ(result.code, 0);
}

} // namespace
