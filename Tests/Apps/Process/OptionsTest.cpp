#include <gmock/gmock.h>

#include <Apps/Host.h>

namespace {

using test::Host;

constexpr const char* help = R"(zem runs JavaScript data runtimes on ZEM's encrypted store.

Usage:
  zem run BUNDLE.js [OPTIONS] [-- ARGS...]    run a bundle; see zem run --help
  zem shell BUNDLE.js [OPTIONS] [-- ARGS...]  run a bundle and what you type;
                                              see zem shell --help
  zem --help                                  print this text
  zem --version                               print zem's version, and those of its
                                              engine, SQLCipher and SQLite
)";

/// It fits a terminal.
void expectNarrow(const std::string& text) {
    for (std::size_t start = 0, end = 0; (end = text.find('\n', start)) != std::string::npos;
         start = end + 1) {
        EXPECT_LE(end - start, 80U) << text.substr(start, end - start);
    }
}

TEST(Options, HelpSaysWhatThereIs) {
    const Host host;
    const auto result = host.run({"--help"});
    EXPECT_EQ(result.output, help);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Options, HelpOfRunNamesEveryOptionAndExitCode) {
    const Host host;
    const auto result = host.run({"run", "--help"});
    for (const char* part :
         {"zem run BUNDLE.js [--data DIR | --memory] [--keys DIR | --secret-service]",
          "[--url BASE] [--offline] [--timeout SECONDS]",
          "[--set NAME=TEXT] [--set NAME=@FILE.json] [--trace FILE] [--json]",
          "[--commands FILE] [-- ARGS...]",
          "--data DIR ",
          "./zem-data)",
          "--url BASE ",
          "--offline ",
          "--timeout SECONDS ",
          "(default: 600)",
          "--memory ",
          "--keys DIR ",
          "--secret-service ",
          "(the default)",
          "--set NAME=TEXT ",
          "--set NAME=@FILE.json ",
          "host.args",
          "--json ",
          "{\"level\":\"log\",\"message\":\"...\"}",
          "--trace FILE ",
          "host.exit(code)",
          "--commands FILE ",
          "standard input where FILE is -",
          "subscribe ADAPTER CONFIG [--priority P] [--cache-policy JSON] [--as NAME]\n",
          "unsubscribe NAME ",
          "invoke ADAPTER CONFIG [--priority P] [--cache-policy JSON] [--metadata K=V]...\n",
          "[--replace-draft ID] ",
          "ttl record|metadata N ",
          "drafts list ",
          "milliseconds\n",
          "since 1970",
          "drafts show ID ",
          "drafts remove ID ",
          "drafts replace ID WITH ",
          "drafts merge SOURCE into TARGET\n",
          "drafts metadata ID K=V... ",
          "drafts start ",
          "drafts stop ",
          "drafts process ",
          "drafts add TARGET K=V... ",
          "drafts executor SUCCESS|NETWORK_ERROR|CLIENT_ERROR\n",
          "drafts watch on|off ",
          "ZemSqliteStore, ZemNetworkAdapter, ZemBinaryStorePlugin, ZemDraftQueue",
          "wait [NAME] [--for SECONDS] ",
          "up to 30 seconds",
          "sql TEXT [PARAM...] ",
          "eval JAVASCRIPT ",
          "quit ",
          "help [COMMAND] ",
          "? [COMMAND] ",
          "exit ",
          R"({"command":"invoke","name":"i1","line":1,"data":{},"error":null})",
          "  0    nothing was left to do",
          "  1    an uncaught exception or an unhandled rejection",
          "  2    wrong usage, or a file that cannot be read",
          "  3    the store or the binaries cannot be opened",
          "  4    a command has failed",
          "  130  Ctrl-C"}) {
        EXPECT_THAT(result.output, testing::HasSubstr(part));
    }
    expectNarrow(result.output);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(host.run({"run", "none.js", "--data", "x", "--help"}).output, result.output);
}

TEST(Options, HelpOfTheShellNamesItsKeysAndCommands) {
    const Host host;
    const auto result = host.run({"shell", "--help"});
    for (const char* part :
         {"zem shell BUNDLE.js [--data DIR | --memory] [--keys DIR | --secret-service]", "TAB",
          "Ctrl-C gives up", "Ctrl-D ends the shell", "$XDG_STATE_HOME/zem/history",
          "~/.local/state/zem/history", "--memory ", "--json ", "subscribe ADAPTER CONFIG",
          "unsubscribe NAME", "invoke ADAPTER CONFIG", "ttl record|metadata N", "drafts list",
          "wait [NAME]", "sql TEXT", "eval JAVASCRIPT", "quit"}) {
        EXPECT_THAT(result.output, testing::HasSubstr(part));
    }
    EXPECT_THAT(result.output, testing::Not(testing::HasSubstr("--commands")));
    expectNarrow(result.output);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Options, VersionNamesTheEnginesToo) {
    const Host host;
    const auto result = host.run({"--version"});
    EXPECT_THAT(result.output, testing::MatchesRegex("zem [0-9.]+\n"
                                                     "JavaScriptCore [1-9][0-9.]+\n"
                                                     "SQLCipher [0-9.]+ [a-z]+\n"
                                                     "SQLite [0-9.]+\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Options, WrongUsageIsExplained) {
    struct Case {
        Host::Words words;
        const char* complaint;
        const char* command;
    };
    const Host host;
    for (const auto& [words, complaint, command] : {
             Case{{}, "expected a command", "zem --help"},
             Case{{"walk"}, "The following argument was not expected: walk", "zem --help"},
             Case{{"--nonsense"},
                  "The following argument was not expected: --nonsense",
                  "zem --help"},
             Case{{"run"}, "BUNDLE.js is required", "zem run --help"},
             Case{{"run", "--", "x.js"}, "BUNDLE.js is required", "zem run --help"},
             Case{{"shell"}, "BUNDLE.js is required", "zem shell --help"},
             Case{{"shell", "a.js", "--commands", "x"},
                  "The following arguments were not expected: x --commands",
                  "zem shell --help"},
             Case{{"shell", "a.js", "--set", "x"},
                  "--set x: expected NAME=TEXT or NAME=@FILE.json",
                  "zem shell --help"},
             Case{{"run", "a.js", "--commands"},
                  "--commands: 1 required FILE missing",
                  "zem run --help"},
             Case{{"run", "a.js", "b.js"},
                  "The following argument was not expected: b.js",
                  "zem run --help"},
             Case{{"run", "a.js", "--nonsense"},
                  "The following argument was not expected: --nonsense",
                  "zem run --help"},
             Case{{"run", "a.js", "--data"}, "--data: 1 required DIR missing", "zem run --help"},
             Case{{"run", "a.js", "--data", "x", "--memory"},
                  "--data excludes --memory",
                  "zem run --help"},
             Case{{"run", "a.js", "--keys", "x", "--secret-service"},
                  "--keys excludes --secret-service",
                  "zem run --help"},
             Case{{"run", "a.js", "--memory", "--keys", "x"},
                  "--memory excludes --keys",
                  "zem run --help"},
             Case{{"run", "a.js", "--set", "x"},
                  "--set x: expected NAME=TEXT or NAME=@FILE.json",
                  "zem run --help"},
             Case{{"run", "a.js", "--set", "1x=y"},
                  "--set 1x=y: \"1x\" is not the name of a variable",
                  "zem run --help"},
             Case{{"run", "a.js", "--set", "=y"},
                  "--set =y: \"\" is not the name of a variable",
                  "zem run --help"},
         }) {
        const auto result = host.run(words);
        EXPECT_EQ(result.errors, std::string("zem: ") + complaint + "\nTry: " + command + "\n");
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.code, 2);
    }
}

TEST(Options, ABundleThatCannotBeReadIsNamed) {
    const Host host;
    const auto missing = host.run({"run", "none.js", "--memory"});
    EXPECT_EQ(missing.errors, "zem: cannot read none.js: No such file or directory\n");
    EXPECT_EQ(missing.code, 2);
    const auto folder = host.run({"run", ".", "--memory"});
    EXPECT_EQ(folder.errors, "zem: cannot read .: Is a directory\n");
    EXPECT_EQ(folder.code, 2);
}

} // namespace
