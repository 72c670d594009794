// The line about long transfers on a terminal, and without one.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Support/LoopbackServer.h>
#include <Support/Terminal.h>
#include <Support/Wait.h>

namespace {

using test::Event;
using test::Host;
using test::LoopbackServer;
using test::Terminal;
using testing::HasSubstr;
using testing::Not;

constexpr const char* download = R"(
    const get = (path, then) => ZemNetworkAdapter.sendRequest(
        { method: 'GET', path, queryParams: {}, headers: {} },
        ({ body }) => then(body), ({ message }) => then(message));
    get('/slow', (body) => {
        clearInterval(globalThis.ticks);
        console.log(body.length, 'received');
    });
)";

/// Sends half of /slow, and the rest after `go`.
class TransferBar : public testing::Test {
  protected:
    Terminal start(Host::Words words, const std::string& type = "xterm") const {
        words.insert(words.begin(), {ZEM_HOST});
        words.insert(words.end(), {"bundle.js", "--memory", "--url", server.url()});
        return Terminal(std::move(words), host.folder().path(),
                        {{"TERM", type}, {"HOME", host.folder().path().string()}});
    }

    Host host;
    Event go{"the end of the test's wait"};
    LoopbackServer server{[this](const LoopbackServer::Request& request,
                                 LoopbackServer::Connection& connection) {
        if (request.target == "/go") {
            go.signal();
            connection.respond(200, "", "");
            return;
        }
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4000\r\n\r\n" + std::string(2000, 'x'));
        go.wait();
        connection.send(std::string(2000, 'y'));
    }};
};

const std::string bar =
    "receiving [" + std::string(15, '#') + std::string(15, '-') + "] 50%  2.0 kB of 4.0 kB";

TEST_F(TransferBar, StandsBelowTheLinesUntilTheTransferIsOver) {
    host.write("bundle.js",
               std::string("globalThis.ticks = setInterval(() => console.log('tick'), 50);") +
                   download);
    Terminal terminal = start({"run"});
    terminal.waitFor(bar);
    EXPECT_THAT(terminal.waitFor(bar), testing::EndsWith("tick\n" + bar));
    go.signal();
    terminal.waitFor("4000 received\n");
    EXPECT_EQ(terminal.wait(), 0);
    const std::string drawn = "\r" + bar + "\x1b[K";
    const std::string erased = "\r\x1b[K";
    EXPECT_THAT(terminal.raw(), HasSubstr(drawn + erased + "tick\r\n" + drawn));
    const std::string last = terminal.raw().substr(terminal.raw().rfind(drawn) + drawn.size());
    EXPECT_THAT(last, testing::StartsWith(erased));
    EXPECT_THAT(last, Not(HasSubstr("receiving")));
}

TEST_F(TransferBar, IsGoneWhenCtrlCEndsTheRun) {
    host.write("bundle.js", download);
    Terminal terminal = start({"run"});
    terminal.waitFor(bar);
    terminal.type("\x03");
    EXPECT_EQ(terminal.wait(), 130);
    EXPECT_TRUE(terminal.raw().ends_with("\r\x1b[K")) << terminal.raw();
    go.signal();
}

TEST_F(TransferBar, StaysOffTheLineThatIsEdited) {
    host.write("bundle.js", download);
    Terminal terminal = start({"shell"});
    terminal.waitFor("zem> ");
    terminal.type("eval new Promise(() => {})\n");
    terminal.waitFor(bar);
    terminal.type("\x03");
    terminal.waitFor("zem: interrupted\n");
    terminal.waitFor("zem> ");
    terminal.type("eval 1");
    terminal.waitFor("eval 1");
    const std::string raw = terminal.raw();
    const std::size_t prompt = raw.rfind("zem> ");
    EXPECT_TRUE(raw.substr(0, prompt).ends_with("\r\x1b[K")) << raw;
    EXPECT_THAT(raw.substr(prompt), Not(HasSubstr("receiving")));
    go.signal();
    terminal.waitFor("4000 received\n");
    terminal.type("\x15\x04");
    EXPECT_EQ(terminal.wait(), 0);
}

/// The download takes longer than a bar needs to come, and shows none.
void expectNoBar(Terminal&& terminal) {
    terminal.waitFor("4000 received");
    EXPECT_EQ(terminal.wait(), 0);
    EXPECT_THAT(terminal.raw(), Not(HasSubstr("receiving")));
}

constexpr const char* goAfterASecond = "setTimeout(get, 1000, '/go', () => {})";

TEST_F(TransferBar, IsNotShownWithJSON) {
    host.write("bundle.js", std::string(download) + goAfterASecond);
    expectNoBar(start({"run", "--json"}));
}

TEST_F(TransferBar, IsNotShownOnATerminalThatCannotClear) {
    host.write("bundle.js", std::string(download) + goAfterASecond);
    expectNoBar(start({"run"}, "dumb"));
}

TEST_F(TransferBar, IsNotShownWithoutATerminal) {
    const auto result =
        host.runScript(std::string(download) + goAfterASecond, {"--url", server.url()});
    EXPECT_EQ(result.output, "4000 received\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

} // namespace
