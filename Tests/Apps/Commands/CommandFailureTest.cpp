// A failed command ends the run with its text, its line and exit code 4, unless it may fail.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Apps/Runtimes.h>

namespace {

using test::Host;
using test::runtimeAtOnce;

/// `command` fails with this text, and what follows it is not carried out.
void expectFailure(const std::string& command, const std::string& text) {
    const Host host;
    const auto stopped =
        host.runCommands(runtimeAtOnce, "\n" + command + "\neval console.log('never')\n");
    EXPECT_EQ(stopped.errors, "zem: commands.txt:2: " + text + "\n") << command;
    EXPECT_THAT(stopped.output, testing::Not(testing::HasSubstr("never"))) << command;
    EXPECT_EQ(stopped.code, 4) << command;

    const auto tolerated = host.runCommands(runtimeAtOnce, "-" + command + "\neval `next`\n");
    EXPECT_EQ(tolerated.errors, "zem: commands.txt:1: " + text + "\n") << command;
    EXPECT_THAT(tolerated.output, testing::EndsWith("eval: 'next'\n")) << command;
    EXPECT_EQ(tolerated.code, 0) << command;
}

TEST(CommandFailure, SaysWhatIsWrongWithALine) {
    expectFailure("nonsense a b", "there is no command \"nonsense\"");
    expectFailure("Invoke a {}", "there is no command \"Invoke\"");
    expectFailure("''", "there is no command \"\"");
    expectFailure("invoke a '{}", "a quote is not closed");
    expectFailure("invoke a \"{}", "a quote is not closed");
    expectFailure("invoke", "ADAPTER is required");
    expectFailure("invoke a", "CONFIG is required");
    expectFailure("invoke a {} x", "The following argument was not expected: x");
    expectFailure("invoke a {} --as x", "The following arguments were not expected: x --as");
    expectFailure("invoke a {} --help", "The following argument was not expected: --help");
    expectFailure("invoke a {} --metadata", "--metadata: 1 required KEY=VALUE missing");
    expectFailure("invoke a {} --priority", "--priority: 1 required TEXT missing");
    expectFailure("invoke a {} --cache-policy", "--cache-policy: 1 required TEXT missing");
    expectFailure("invoke a {} --replace-draft", "--replace-draft: 1 required ID missing");
    expectFailure("subscribe a {} --as", "--as: 1 required NAME missing");
    expectFailure("wait --for", "--for: 1 required SECONDS missing");
    expectFailure("invoke a {} --metadata x", "--metadata x: expected KEY=VALUE");
    expectFailure("invoke a {} --metadata x=y --replace-draft z",
                  "--metadata excludes --replace-draft");
    expectFailure("subscribe", "ADAPTER is required");
    expectFailure("subscribe a", "CONFIG is required");
    expectFailure("subscribe a {} --as ''", "--as: a name is not empty");
    expectFailure("unsubscribe", "expected: unsubscribe NAME");
    expectFailure("unsubscribe a b", "expected: unsubscribe NAME");
    expectFailure("ttl", "expected: ttl record|metadata N");
    expectFailure("ttl record", "expected: ttl record|metadata N");
    expectFailure("ttl other 5", "expected: ttl record|metadata N");
    expectFailure("ttl record 5 6", "expected: ttl record|metadata N");
    expectFailure("ttl record 1.5", "ttl record: expected an integer, found 1.5");
    expectFailure("ttl metadata 9223372036854775808",
                  "ttl metadata: expected an integer, found 9223372036854775808");
    expectFailure("wait a b", "The following argument was not expected: b");
    for (const char* seconds : {"-1", "x", "1s", "nan", "inf", "1e10", "''"}) {
        const std::string found = seconds == std::string("''") ? "" : seconds;
        expectFailure(std::string("wait --for ") + seconds,
                      "--for: expected a number of seconds, found " + found);
    }
    expectFailure("upload", "FILE is required");
    expectFailure("upload commands.txt", "--title is required");
    expectFailure("upload --title x", "FILE is required");
    expectFailure("upload commands.txt --title", "--title: 1 required TEXT missing");
    expectFailure("upload none.txt --title x", "cannot read none.txt: No such file or directory");
    expectFailure("upload . --title x", "cannot read .: Is a directory");
    expectFailure("upload commands.txt --title x --metadata y", "--metadata y: expected KEY=VALUE");
    expectFailure("upload commands.txt --title x --type png",
                  "--type: expected a MIME type such as image/png, found png");
    expectFailure("binary", "expected: binary list|save");
    expectFailure("binary list x", "expected: binary list");
    expectFailure("binary save x", "expected: binary save HANDLE FILE");
    expectFailure("binary save x y", "there is no binary \"x\"");
    expectFailure("network", "expected: network on|off");
    expectFailure("network maybe", "expected: network on|off");
    expectFailure("sql", "expected: sql TEXT [PARAM...]");
    expectFailure("eval", "expected: eval JAVASCRIPT");
    expectFailure("quit now", "expected: quit");
    expectFailure("exit now", "expected: exit");
    expectFailure("'drafts list'", "there is no command \"drafts list\"");
    expectFailure("list", "there is no command \"list\"");
}

TEST(CommandFailure, AContextIsDecodedStrictly) {
    expectFailure("invoke a {} --priority urgent",
                  "--priority: expected one of \"high\", \"normal\", \"background\", found another "
                  "string");
    expectFailure("subscribe a {} --cache-policy x",
                  "--cache-policy: expected JSON, found a mistake at byte 0: syntax error");
    expectFailure("subscribe a {} --cache-policy '{\"type\":\"No-Cache\"}'",
                  "--cache-policy: Unabled to decode enum.");
    expectFailure("invoke a {} --cache-policy '{\"type\":\"cache-and-network\"}'",
                  "--cache-policy: staleDurationSeconds: expected an integer, found undefined");
    expectFailure("invoke a {} --cache-policy '[]'",
                  "--cache-policy: expected an object, found an array");
    // The runtime's mutating calls have no place for a context.
    expectFailure("invoke a {} --metadata a=b --priority high", "--priority excludes --metadata");
    expectFailure("invoke a {} --replace-draft a --cache-policy '{\"type\":\"no-cache\"}'",
                  "--cache-policy excludes --replace-draft");
}

TEST(CommandFailure, NamesAreKnownAndTakenOnce) {
    expectFailure("unsubscribe s1", "there is no subscription \"s1\"");
    expectFailure("wait s1", "there is nothing called \"s1\" to wait for");
    const Host host;
    const auto taken =
        host.runCommands(runtimeAtOnce, "subscribe silent {} --as x\nsubscribe silent {} --as x\n");
    EXPECT_EQ(taken.errors, "zem: commands.txt:2: the name \"x\" is taken\n");
    EXPECT_EQ(taken.code, 4);
    const auto invocation = host.runCommands(runtimeAtOnce, "invoke a {}\nunsubscribe i1\n");
    EXPECT_EQ(invocation.errors, "zem: commands.txt:2: there is no subscription \"i1\"\n");
    EXPECT_EQ(invocation.code, 4);
}

TEST(CommandFailure, AWaitSaysWhatItWaitedFor) {
    const Host host;
    const auto all =
        host.runCommands(runtimeAtOnce, "subscribe silent {}\ninvoke never {}\ninvoke a {}\n"
                                        "wait i2\nwait --for 0.05\n");
    EXPECT_EQ(all.errors,
              "zem: commands.txt:5: waited 0.05 seconds in vain for s1 silent, i1 never\n");
    EXPECT_EQ(all.code, 4);
    const auto one = host.runCommands(runtimeAtOnce, "subscribe silent {} --as x\ninvoke never {}\n"
                                                     "wait x --for 0\n");
    EXPECT_EQ(one.errors, "zem: commands.txt:3: waited 0 seconds in vain for x silent\n");
    EXPECT_EQ(one.code, 4);
}

TEST(CommandFailure, AnInvocationThatIsAnsweredWithAnErrorHasFailed) {
    const Host host;
    for (const char* commands :
         {"\ninvoke bad {}\nwait\neval console.log('never')\n",
          "\ninvoke bad {}\neval new Promise(() => {})\n", "\ninvoke bad {}\n"}) {
        const auto result = host.runCommands(runtimeAtOnce, commands);
        EXPECT_EQ(result.output, "[\"invokeAdapter\",\"bad\",\"{}\",\"no context\"]\n"
                                 "i1 bad: failed: executeAdapter error - boom\n");
        EXPECT_EQ(result.errors, "zem: commands.txt:2: i1 bad: executeAdapter error - boom\n");
        EXPECT_EQ(result.code, 4);
    }
    const auto tolerated = host.runCommands(runtimeAtOnce, "-invoke bad {}\nwait\neval `next`\n");
    EXPECT_THAT(tolerated.output,
                testing::EndsWith("i1 bad: failed: executeAdapter error - boom\neval: 'next'\n"));
    EXPECT_EQ(tolerated.errors, "");
    EXPECT_EQ(tolerated.code, 0);
}

TEST(CommandFailure, SQLAndScriptsSayTheirOwn) {
    expectFailure("eval throw 'up'", "'up'");
    const Host host;
    const auto sql = host.runCommands(runtimeAtOnce, "\nsql 'select missing'\n");
    EXPECT_EQ(sql.errors, "store: no such column: missing (SQLite error 1), to: select missing\n"
                          "zem: commands.txt:2: The operation couldn't be completed. "
                          "(SQLiteResult error 1.)\n");
    EXPECT_EQ(sql.code, 4);
    const auto thrown = host.runCommands("", "eval (() => { throw new RangeError('up') })()\n");
    EXPECT_EQ(thrown.errors, "zem: commands.txt:1: RangeError: up\n"
                             "    at commands.txt:1:30\n"
                             "    at global code (commands.txt:1:39)\n");
    EXPECT_EQ(thrown.code, 4);
    const auto rejected = host.runCommands(
        "", "\neval new Promise((_, reject) => setTimeout(() => reject('late'), 5))\n");
    EXPECT_EQ(rejected.errors, "zem: commands.txt:2: 'late'\n");
    EXPECT_EQ(rejected.code, 4);
    const auto syntax = host.runCommands("", "eval let let\n");
    EXPECT_THAT(syntax.errors, testing::StartsWith("zem: commands.txt:1: SyntaxError: "));
    EXPECT_EQ(syntax.code, 4);
}

TEST(CommandFailure, IsAnObjectToo) {
    const Host host;
    const auto result = host.runCommands(runtimeAtOnce, "unsubscribe x\n", {"--json"});
    EXPECT_EQ(result.output, R"({"command":"unsubscribe","name":null,"line":1,"data":null,)"
                             R"("error":"there is no subscription \"x\""})"
                             "\n");
    EXPECT_EQ(result.errors, "zem: commands.txt:1: there is no subscription \"x\"\n");
    EXPECT_EQ(result.code, 4);
}

TEST(CommandFailure, NamesStandardInput) {
    const Host host;
    host.write("bundle.js", "");
    auto process = host.startWithInput({"run", "bundle.js", "--memory", "--commands", "-"});
    process.write("\nnonsense\n");
    const auto result = process.wait();
    EXPECT_EQ(result.errors, "zem: standard input:2: there is no command \"nonsense\"\n");
    EXPECT_EQ(result.code, 4);
}

TEST(CommandFailure, AFileThatCannotBeReadIsNamed) {
    const Host host;
    const auto result = host.runScript("console.log('never')", {"--commands", "none.txt"});
    EXPECT_EQ(result.errors, "zem: cannot read none.txt: No such file or directory\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.code, 2);
}

} // namespace
