// The network and the binaries as a bundle finds them: ZemNetworkAdapter and ZemBinaryStorePlugin.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Support/LoopbackServer.h>
#include <Support/Wait.h>
#include <csignal>
#include <filesystem>

namespace {

using test::Event;
using test::Host;
using test::LoopbackServer;
using testing::ElementsAre;
using testing::HasSubstr;

/// send(path, fields) sends a GET and prints its outcome; returns the token.
constexpr const char* library = R"(
    const send = (path, fields = {}) => ZemNetworkAdapter.sendRequest(
        { method: 'GET', path, queryParams: {}, headers: {}, ...fields },
        ({ status, body }) => console.log(path, status, body),
        ({ type, message }) => console.log(path, type, message));
)";

std::string script(const std::string& text) {
    return library + text;
}

void respondDone(const LoopbackServer::Request&, LoopbackServer::Connection& connection) {
    connection.respond(200, "", "done");
}

/// Answers nothing.
void stayOpen(const LoopbackServer::Request&, LoopbackServer::Connection& connection) {
    connection.waitUntilClosed();
}

void expectOutput(const test::Process::Result& result, const std::string& output) {
    EXPECT_EQ(result.output, output);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Network, CarriesARequestToTheBaseAndItsAnswerBack) {
    LoopbackServer server(respondDone);
    const Host host;
    expectOutput(host.runScript(script("send('/records'); console.log('asked')"),
                                {"--url", server.url() + "/v2"}),
                 "asked\n/records 200 done\n");
    EXPECT_THAT(server.lines(), ElementsAre("GET /v2/records"));
}

TEST(Network, WithoutABaseARequestNamesItsHost) {
    LoopbackServer server(respondDone);
    const Host host;
    expectOutput(host.runScript(script("send('/a'); send('/b', { host: '" + server.url() + "' })")),
                 "/a unspecified the request names no host: expected --url BASE\n/b 200 done\n");
    EXPECT_THAT(server.lines(), ElementsAre("GET /b"));
}

TEST(Network, ABaseThatIsNoneIsNamed) {
    const Host host;
    for (const char* offline : {"--offline", "--json"}) {
        const auto result =
            host.runScript("console.log('never')", {"--url", "ftp://x.example", offline});
        EXPECT_EQ(result.errors, "zem: --url ftp://x.example: expected an http or https URL, found "
                                 "the scheme \"ftp\"\n");
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.code, 2);
    }
}

TEST(Network, ATimeoutThatMakesNoSenseIsNamed) {
    const Host host;
    for (const char* seconds : {"0", "-1", "1e+300", "nan"}) {
        const auto result = host.runScript("console.log('never')", {"--timeout", seconds});
        EXPECT_EQ(result.errors, std::string("zem: --timeout ") + seconds +
                                     ": expected more than 0 and at most 2073600 seconds\n");
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.code, 2);
    }
}

TEST(Network, OfflineEveryRequestFails) {
    LoopbackServer server(respondDone);
    const Host host;
    const Host::Words words{"--url", server.url(), "--offline"};
    expectOutput(
        host.runScript(script("send('/a'); send('/b', { host: '" + server.url() + "' })"), words),
        "/a unspecified offline\n/b unspecified offline\n");
    expectOutput(host.runScript("ZemBinaryStorePlugin.cacheBinary('" + server.url() +
                                    "/c', 10, console.log, (why) => console.log('/c', why))",
                                words),
                 "/c offline\n");
    EXPECT_THAT(server.lines(), ElementsAre());
}

TEST(Network, ACanceledRequestIsAnsweredOnce) {
    LoopbackServer server(stayOpen);
    const Host host;
    expectOutput(host.runScript(script("const token = send('/a');"
                                       "setTimeout(() => ZemNetworkAdapter.cancelRequest(token));"
                                       "ZemNetworkAdapter.cancelRequest('unknown');"),
                                {"--url", server.url()}),
                 "/a unspecified canceled\n");
}

TEST(Network, CtrlCEndsARunWithRequestsUnderWay) {
    Event asked("the requests");
    LoopbackServer server([&](const auto& request, LoopbackServer::Connection& connection) {
        asked.signal();
        stayOpen(request, connection);
    });
    const Host host;
    host.write("bundle.js", script("send('/a'); send('/b');"
                                   "ZemBinaryStorePlugin.cacheBinary('" +
                                   server.url() + "/c', 10, console.log, console.log)"));
    auto process =
        host.start({"run", "bundle.js", "--data", "data", "--keys", "keys", "--url", server.url()});
    asked.wait(3);
    process.signal(SIGINT);
    const auto result = process.wait();
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 130);
    for (const char* name : {"data/zem.db", "data/binaries.db"}) {
        EXPECT_TRUE(std::filesystem::exists(host.folder() / name)) << name;
        EXPECT_FALSE(std::filesystem::exists(host.folder() / (std::string(name) + "-wal"))) << name;
    }
}

// --- Binaries

/// keep(text, then) stores a text.
constexpr const char* keeping = R"(
    const keep = (text, then) => {
        const data = new TextEncoder().encode(text);
        ZemBinaryStorePlugin.storeBinary(data, 'text/plain', data.length, then, console.error);
    };
)";

TEST(Binaries, AreThereInTheNextRunAndSentByTheirHandle) {
    LoopbackServer server(respondDone);
    const Host host;
    const Host::Words words{"run",    "bundle.js", "--data", "data",
                            "--keys", "keys",      "--url",  server.url()};
    host.write("bundle.js", keeping + std::string("keep('inside', console.log)"));
    const auto first = host.run(words);
    EXPECT_EQ(first.errors, "");
    EXPECT_EQ(first.code, 0);
    const std::string handle = first.output.substr(0, first.output.find('\n'));
    EXPECT_EQ(handle.size(), 36U);

    host.write("bundle.js", script("send('/form', { method: 'POST', body: JSON.stringify({"
                                   "namedEntries: [{ name: 'f', value: { handle: '" +
                                   handle + "', name: 'f.txt', type: 'text/plain' } }] }) })"));
    expectOutput(host.run(words), "/form 200 done\n");
    EXPECT_THAT(server.requests().at(0).body, HasSubstr("\r\n\r\ninside\r\n--"));
}

TEST(Binaries, InMemoryLeaveNoFile) {
    const Host host;
    const auto result = host.runScript(
        keeping + std::string("keep('x', (handle) => ZemBinaryStorePlugin.removeBinary("
                              "handle, console.log, console.error))"));
    expectOutput(result, "true\n");
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(host.folder().path())) {
        names.push_back(entry.path().filename().string());
    }
    EXPECT_EQ(names, std::vector<std::string>{"bundle.js"});
}

TEST(Binaries, AreClosedWhenTheScriptExitsInACallback) {
    const Host host;
    host.write("bundle.js", keeping + std::string("keep('x', () => host.exit(4))"));
    EXPECT_EQ(host.run({"run", "bundle.js", "--data", "data", "--keys", "keys"}).code, 4);
    EXPECT_TRUE(std::filesystem::exists(host.folder() / "data/binaries.db"));
    EXPECT_FALSE(std::filesystem::exists(host.folder() / "data/binaries.db-wal"));
}

TEST(Binaries, AFileThatCannotBeOpenedIsNamed) {
    const Host host;
    host.write("bundle.js", "console.log('never')");
    std::filesystem::create_directories(host.folder() / "data/binaries.db");
    const auto result = host.run({"run", "bundle.js", "--data", "data", "--keys", "keys"});
    EXPECT_THAT(result.errors,
                testing::StartsWith("zem: cannot open the binaries data/binaries.db: "));
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.code, 3);
}

} // namespace
