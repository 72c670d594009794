// Ctrl-C.

#include <gtest/gtest.h>

#include <Apps/Host.h>
#include <csignal>

namespace {

using test::Host;

TEST(Interrupt, EndsARunThatWaits) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const Host host;
        auto process = host.startScript(
            "setTimeout(() => console.log('never'), 1000000); console.log('waiting')");
        process.waitForLine("waiting");
        process.signal(signal);
        const auto result = process.wait();
        EXPECT_EQ(result.output, "waiting\n");
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.code, 130);
    }
}

TEST(Interrupt, EndsAScriptThatNeverReturns) {
    for (const char* script : {
             "console.log('running'); while (true) {}",
             "console.log('running'); for (;;) try { for (;;) {} } catch {} finally { continue }",
             "setTimeout(() => { console.log('running'); for (;;) {} })",
             "console.log('running'); (function again() { Promise.resolve().then(again) })()",
         }) {
        const Host host;
        auto process = host.startScript(script);
        process.waitForLine("running");
        process.signal(SIGINT);
        const auto result = process.wait();
        EXPECT_EQ(result.output, "running\n") << script;
        EXPECT_EQ(result.errors, "") << script;
        EXPECT_EQ(result.code, 130) << script;
    }
}

TEST(Interrupt, TheEndThatWasAskedForFirstCounts) {
    const Host host;
    auto process = host.startScript("console.log('running'); setTimeout(() => {}, 1000000);");
    process.waitForLine("running");
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait().code, 130);
}

TEST(Interrupt, TheSecondEndsAtOnce) {
    // The engine cannot be interrupted inside this step, which takes longer than anybody waits.
    const Host host;
    auto process = host.startScript(
        "console.log('running'); /^(a|aa|a?)+$/.test('a'.repeat(5000) + 'b');"
        "/(x+x+)+y/.test('x'.repeat(100000)); for (;;) /(x+x+)+y/.test('x'.repeat(40));");
    process.waitForLine("running");
    process.signal(SIGINT);
    process.signal(SIGTERM);
    EXPECT_EQ(process.wait().code, 130);
}

TEST(Interrupt, AnIgnoredSignalStaysIgnored) {
    // As a shell starts what is to survive its terminal.
    const Host host;
    host.write("bundle.js", "console.log('running'); setTimeout(() => console.log('end'), 1)");
    test::Process process(
        {"/bin/sh", "-c", "trap '' INT; exec \"$0\" run bundle.js --memory", ZEM_HOST},
        {host.folder().path(), {}});
    process.waitForLine("running");
    process.signal(SIGINT);
    const auto result = process.wait();
    EXPECT_EQ(result.output, "running\nend\n");
    EXPECT_EQ(result.code, 0);
}

} // namespace
