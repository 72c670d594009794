// The shell, as somebody types at it.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Apps/Runtimes.h>
#include <Support/Terminal.h>
#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using test::Host;
using test::runtimeAtOnce;
using test::Terminal;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

class Shell : public testing::Test {
  protected:
    Terminal start(const std::string& script = runtimeAtOnce,
                   const Host::Words& further = {}) const {
        host.write("bundle.js", script);
        Host::Words words{ZEM_HOST, "shell", "bundle.js", "--memory"};
        words.insert(words.end(), further.begin(), further.end());
        std::map<std::string, std::string> environment = host.environment;
        environment["TERM"] = "xterm";
        environment.emplace("HOME", host.folder().path().string());
        environment.emplace("XDG_STATE_HOME", "");
        return Terminal(std::move(words), host.folder().path(), environment);
    }

    Host host;
};

TEST_F(Shell, PromptsCarriesOutAndEndsWithCtrlD) {
    Terminal shell = start();
    EXPECT_EQ(shell.waitFor("zem> "),
              "help or ? explains the commands, exit or Ctrl-D ends the shell\nzem> ");
    shell.type("eval 1 + 1\n");
    EXPECT_EQ(shell.waitFor("zem> "), "eval 1 + 1\neval: 2\nzem> ");
    shell.type("# a comment\n");
    EXPECT_EQ(shell.waitFor("zem> "), "# a comment\nzem> ");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, QuitEndsIt) {
    Terminal shell = start("setInterval(() => {}, 1)");
    shell.waitFor("zem> ");
    shell.type("quit\n");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, ExitEndsIt) {
    Terminal shell = start("setInterval(() => {}, 1)");
    shell.waitFor("zem> ");
    shell.type("exit\n");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, ExplainsItsCommands) {
    Terminal shell = start();
    shell.waitFor("zem> ");
    shell.type("? drafts\n");
    shell.waitFor("  drafts show ID                prints a draft\n");
    shell.waitFor("zem> ");
    shell.type("help\n");
    shell.waitFor("  help [COMMAND]                prints this text, or the part of one command\n");
    shell.waitFor("zem> ");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, DoesNotEndWhenNothingIsLeftToDo) {
    Terminal shell = start("console.log('bundle')");
    shell.waitFor("bundle\n");
    shell.type("eval setTimeout(() => console.log('timer'), 5)\n");
    shell.waitFor("timer\n");
    shell.type("eval 'still' + ' here'\n");
    shell.waitFor("eval: 'still here'\n");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, AFailedCommandIsToldAndTheNextOneFollows) {
    Terminal shell = start();
    shell.waitFor("zem> ");
    shell.type("nonsense\n");
    EXPECT_EQ(shell.waitFor("zem> "), "nonsense\nzem: there is no command \"nonsense\"\nzem> ");
    shell.type("eval throw 'up'\n");
    EXPECT_EQ(shell.waitFor("zem> "), "eval throw 'up'\nzem: 'up'\nzem> ");
    shell.type("invoke bad {}\n");
    shell.waitFor("i1 bad: failed: executeAdapter error - boom\n");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, AnUncaughtExceptionIsToldAndTheShellGoesOn) {
    Terminal shell = start("setTimeout(() => { throw 'late' }, 5); throw 'up'");
    shell.waitFor("Uncaught 'up'\n");
    shell.waitFor("Uncaught 'late'\n");
    shell.type("eval 'still' + ' here'\n");
    shell.waitFor("eval: 'still here'\n");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, HostExitEndsItInTheMiddleOfALine) {
    Terminal shell = start("globalThis.end = () => host.exit(6);");
    shell.waitFor("zem> ");
    shell.type("eval setTimeout(end, 50)\neval 'not sent");
    EXPECT_EQ(shell.wait(), 6);
}

TEST_F(Shell, LeavesTheTerminalAsItWas) {
    for (const char* end : {"\x04", "quit\n", "eval host.exit(0)\n",
                            "eval setTimeout(() => host.exit(0)); new Promise(() => {})\n"}) {
        Terminal shell = start();
        shell.waitFor("zem> ");
        EXPECT_FALSE(shell.isInLineMode());
        shell.type(end);
        EXPECT_EQ(shell.wait(), 0);
        EXPECT_TRUE(shell.isInLineMode()) << end;
    }
}

TEST_F(Shell, NeverShowsKeysBetweenLines) {
    host.environment["LD_PRELOAD"] = ZEM_TERMINAL_MODES;
    host.environment["ZEM_TERMINAL_MODES"] = (host.folder() / "modes").string();
    Terminal shell = start();
    shell.waitFor("zem> ");
    shell.type("eval 20 + 1\n");
    shell.waitFor("21\nzem> ");
    shell.type("eval 'never'\x03");
    shell.waitFor("^C\nzem> ");
    shell.type("eval console.log('on' + 1); for (;;) {}\n");
    shell.waitFor("on1\n");
    shell.type("\x03");
    shell.waitFor("^C\nzem: interrupted\nzem> ");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
    std::vector<std::string> modes = linesOf(host.read("modes"));
    modes.erase(std::unique(modes.begin(), modes.end()), modes.end());
    EXPECT_THAT(modes, testing::ElementsAre("lines", "keys", "lines"));
}

TEST_F(Shell, WhatIsTypedAheadIsForTheNextPrompt) {
    Terminal shell = start();
    shell.waitFor("zem> ");
    shell.type("eval console.log('on' + 1); new Promise((r) => setTimeout(r, 100, 'over'))\n");
    shell.waitFor("on1\n");
    shell.type("eval 2 + 3\n\x04");
    EXPECT_EQ(shell.waitFor("eval: 5\n"), "eval: 'over'\nzem> eval 2 + 3\neval: 5\n");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, TabCompletesCommandsOptionsAndNames) {
    Terminal shell = start();
    shell.waitFor("zem> ");
    shell.type("sub\t");
    EXPECT_EQ(shell.waitFor("subscribe "), "subscribe ");
    shell.type("twice {} --as accounts --pri\thi\t\n");
    shell.waitFor("--priority high");
    shell.waitFor("accounts twice: {\"n\":2}\n");
    shell.type("unsubscribe acc\t\n");
    shell.waitFor("unsubscribe accounts");
    shell.waitFor("[\"unsubscribe\",\"twice\"]\n");
    shell.type("-inv\ta {} --cache\t");
    shell.waitFor("-invoke a {} --cache-policy ");
    shell.type("\x15ttl m\t");
    shell.waitFor("ttl metadata ");
    shell.type("\x15-dr\texe\tN\t");
    shell.waitFor("-drafts executor NETWORK_ERROR ");
    shell.type("\x15"
               "drafts merge a in\t");
    shell.waitFor("drafts merge a into ");
    shell.type("\x15upl\tfile --ti\t");
    shell.waitFor("upload file --title ");
    shell.type("\x15"
               "bin\tsa\t");
    shell.waitFor("binary save ");
    shell.type("\x15net\tof\t");
    shell.waitFor("network off ");
    shell.type("\x15he\tdra\t");
    shell.waitFor("help drafts ");
    shell.type("\x15\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, TabListsWhatItCannotDecide) {
    Terminal shell = start();
    shell.waitFor("zem> ");
    shell.type("s\t");
    EXPECT_EQ(shell.waitFor("zem> s"), "s\nsql  subscribe\nzem> s");
    shell.type("\x15invoke a {} --\t");
    shell.waitFor("\n--cache-policy  --metadata  --priority  --replace-draft\n"
                  "zem> invoke a {} --");
    shell.type("\x15"
               "drafts re\t");
    shell.waitFor("\nremove  replace\nzem> drafts re");
    shell.type("\x15"
               "drafts watch o\t");
    shell.waitFor("\noff  on\nzem> drafts watch o");
    shell.type("\x15"
               "drafts \t");
    shell.waitFor("\nadd  executor  list  merge  metadata  process  remove  replace  show  start  "
                  "stop  watch\nzem> drafts ");
    shell.type("\x15\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, CtrlCGivesUpTheLine) {
    Terminal shell = start();
    shell.waitFor("zem> ");
    shell.type("eval 'never'");
    shell.waitFor("'never'");
    shell.type("\x03");
    EXPECT_EQ(shell.waitFor("zem> "), "^C\nzem> ");
    shell.type("\x03");
    EXPECT_EQ(shell.waitFor("zem> "), "^C\nzem> ");
    shell.type("eval 'next'.length\n");
    EXPECT_EQ(shell.waitFor("zem> "), "eval 'next'.length\neval: 4\nzem> ");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, CtrlCGivesUpACommandThatWaits) {
    Terminal shell = start();
    shell.waitFor("zem> ");
    for (const char* command : {"eval console.log('on' + 1); for (;;) {}",
                                "eval console.log('on' + 1); new Promise(() => "
                                "{})"}) {
        shell.type(std::string(command) + "\n");
        shell.waitFor("on1\n");
        shell.type("\x03");
        EXPECT_EQ(shell.waitFor("zem> "), "^C\nzem: interrupted\nzem> ");
    }
    shell.type("invoke never {}\n");
    shell.waitFor("[\"invokeAdapter\",\"never\",\"{}\",\"no context\"]\n");
    shell.type("wait --for 100000\n");
    shell.waitFor("100000\n");
    shell.type("\x03"); // before the wait has begun, or after
    EXPECT_THAT(shell.waitFor("zem> "), testing::StartsWith("^C\n"));
    shell.type("eval 'next'.length\n");
    shell.waitFor("eval: 4\nzem> ");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, WhatIsPrintedMeanwhileGoesAboveTheLine) {
    // Printed again and again: once at least after the line has been typed.
    Terminal shell = start("setInterval(() => console.log('a\\nb'), 50);");
    shell.waitFor("zem> ");
    shell.type("eval 'half'");
    shell.waitFor("eval 'half'");
    EXPECT_EQ(shell.waitFor("zem> eval 'half'"), "a\nb\nzem> eval 'half'");
    shell.type(".length\n");
    shell.waitFor("eval: 4\n");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, TextIsUTF8) {
    Terminal shell = start();
    shell.waitFor("zem> ");
    shell.type("eval 'é€😀x'\x7f\x7f.length\n");
    shell.waitFor("zem> ");
    shell.type("eval 'é€😀'.length + 100\n");
    shell.waitFor("eval: 104\n");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, ResultsAreObjectsWhereAskedFor) {
    Terminal shell = start("", {"--json"});
    shell.waitFor("zem> ");
    shell.type("\neval 5\n");
    shell.waitFor("{\"command\":\"eval\",\"name\":null,\"line\":2,\"data\":5,\"error\":null}\n");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
}

TEST_F(Shell, RemembersWhatWasTyped) {
    const std::filesystem::path file = host.folder() / ".local/state/zem/history";
    {
        Terminal shell = start();
        shell.waitFor("zem> ");
        shell.type("eval 40 + 2\n");
        shell.waitFor("eval: 42\nzem> ");
        shell.type("   \n");
        shell.waitFor("zem> ");
        shell.type("\x04");
        EXPECT_EQ(shell.wait(), 0);
    }
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(std::filesystem::status(file.parent_path()).permissions(),
              std::filesystem::perms(0700));
    {
        Terminal shell = start();
        shell.waitFor("zem> ");
        shell.type("\x1b[A\n"); // the arrow upwards
        shell.waitFor("eval: 42\nzem> ");
        shell.type("\x04");
        EXPECT_EQ(shell.wait(), 0);
    }
    host.environment["XDG_STATE_HOME"] = (host.folder() / "state").string();
    Terminal shell = start();
    shell.waitFor("zem> ");
    shell.type("eval 1\n");
    shell.waitFor("eval: 1\nzem> ");
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_TRUE(std::filesystem::exists(host.folder() / "state/zem/history"));
}

TEST_F(Shell, ReadsPlainLinesWhereNobodyTypes) {
    host.write("bundle.js", runtimeAtOnce);
    auto process = host.startWithInput({"shell", "bundle.js", "--memory"});
    process.write("nonsense\nsql nonsense\ninvoke bad {}\nwait\ninvoke later {}\n");
    process.closeInput();
    const auto result = process.wait();
    EXPECT_EQ(result.output, "[\"invokeAdapter\",\"bad\",\"{}\",\"no context\"]\n"
                             "i1 bad: failed: executeAdapter error - boom\n"
                             "[\"invokeAdapter\",\"later\",\"{}\",\"no context\"]\n"
                             "i2 later: {\"late\":true}\n");
    EXPECT_EQ(result.errors,
              "zem: there is no command \"nonsense\"\n"
              "store: near \"nonsense\": syntax error (SQLite error 1), to: nonsense\n"
              "zem: The operation couldn't be completed. (SQLiteResult error 1.)\n");
    EXPECT_EQ(result.code, 0);
}

} // namespace
