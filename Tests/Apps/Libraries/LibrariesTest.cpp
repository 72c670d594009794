// Libraries from npm as bundles use them, unchanged: each bundle of bundles/ checks one. Those that
// use the network find a real server, which says what reached it.

#include <boost/json.hpp>
#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Support/LoopbackServer.h>
#include <Support/Wait.h>
#include <algorithm>
#include <atomic>

namespace {

using test::Event;
using test::Host;
using test::LoopbackServer;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;
using testing::UnorderedElementsAre;

/// Answers "/echo" with what it was asked; "/missing" with a 404; "/flaky" with a 503, and then
/// with a text; "/hang" not at all; "/asked" when "/hang" has been asked for.
class Server {
  public:
    std::string url() const { return server.url(); }
    std::vector<std::string> lines() const { return server.lines(); }
    std::vector<LoopbackServer::Request> requests() const { return server.requests(); }

    LoopbackServer::Request request(const std::string& line) const {
        for (const auto& request : requests()) {
            if (request.method + " " + request.target == line) {
                return request;
            }
        }
        ADD_FAILURE() << "expected the request " << line;
        return {};
    }

    /// Returns when a client of "/hang" has gone away.
    void waitUntilGone() { gone.wait(); }

  private:
    using Connection = LoopbackServer::Connection;

    void handle(const LoopbackServer::Request& request, Connection& connection) {
        if (request.target.starts_with("/echo")) {
            connection.respond(200, "Content-Type: application/json\r\n",
                               serialize(boost::json::value{
                                   {"method", request.method},
                                   {"target", request.target},
                                   {"type", request.header("content-type").value_or("")},
                                   {"body", request.body},
                               }));
        } else if (request.target == "/missing") {
            connection.respond(404, "", "none");
        } else if (request.target == "/flaky") {
            const bool isFirst = ++flaky == 1;
            connection.respond(isFirst ? 503 : 200, "", isFirst ? "later" : "at last");
        } else if (request.target == "/hang") {
            asked.signal();
            connection.waitUntilClosed();
            gone.signal();
        } else if (request.target == "/asked") {
            asked.wait();
            connection.respond(200, "", "asked");
        } else {
            connection.respond(200, "", "done");
        }
    }

    Event asked{"a request for /hang"};
    Event gone{"the end of a request for /hang"};
    std::atomic<int> flaky{0};
    LoopbackServer server{[this](const LoopbackServer::Request& request, Connection& connection) {
        handle(request, connection);
    }};
};

void expectPassing(const std::string& library, const Host::Words& arguments = {},
                   const std::string& errors = "", const Host::Words& options = {}) {
    const Host host;
    Host::Words words = {"run", std::string(ZEM_TEST_LIBRARIES) + "/" + library + ".test.js",
                         "--memory"};
    words.insert(words.end(), options.begin(), options.end());
    words.emplace_back("--");
    words.insert(words.end(), arguments.begin(), arguments.end());
    const auto result = host.run(words);
    EXPECT_THAT(result.output, MatchesRegex("[1-9][0-9]* checks\n"));
    EXPECT_EQ(result.errors, errors);
    EXPECT_EQ(result.code, 0);
}

/// The body of a form whose one file has the bytes 0 and 255.
auto holdsTheFile() {
    using std::string_literals::operator""s;
    return HasSubstr("Content-Disposition: form-data; name=\"file\"; filename=\"two.bin\"\r\n"
                     "Content-Type: image/x\r\n\r\n\0\xFF\r\n"s);
}

TEST(Libraries, Axios) {
    Server server;
    const test::RefusingPort refusing;
    expectPassing("axios", {server.url(), refusing.url()}, "", {"--url", server.url()});
    const auto echo = server.request("POST /echo");
    EXPECT_EQ(echo.header("content-type"), "application/json");
    EXPECT_EQ(echo.header("x-client"), "zem");
    EXPECT_EQ(server.request("DELETE /echo").header("authorization"), "Bearer t");
    const auto upload = server.request("POST /upload");
    EXPECT_THAT(upload.header("content-type").value_or(""),
                StartsWith("multipart/form-data; boundary="));
    EXPECT_THAT(upload.body, AllOf(holdsTheFile(), HasSubstr("name=\"note\"\r\n")));
    server.waitUntilGone();
}

TEST(Libraries, Ky) {
    Server server;
    expectPassing("ky", {server.url()}, "", {"--url", server.url()});
    EXPECT_EQ(server.request("POST /echo").header("x-client"), "zem");
    EXPECT_EQ(server.request("DELETE /echo").header("x-hook"), "1");
    EXPECT_THAT(server.request("POST /upload").body, holdsTheFile());
    EXPECT_EQ(std::ranges::count(server.lines(), "GET /flaky"), 2);
    server.waitUntilGone();
}

TEST(Libraries, TanStackQuery) {
    Server server;
    expectPassing("query-core", {server.url()});
    // Two who ask at once, and one who asks later, are one request.
    EXPECT_THAT(server.lines(),
                UnorderedElementsAre("GET /echo", "GET /missing", "GET /flaky", "GET /flaky",
                                     "GET /hang", "GET /asked", "GET /echo?observed"));
    server.waitUntilGone();
}

TEST(Libraries, ReduxToolkitThunks) {
    Server server;
    expectPassing("redux-toolkit", {server.url()});
    EXPECT_THAT(server.lines(),
                UnorderedElementsAre("GET /echo", "GET /missing", "GET /hang", "GET /asked"));
    server.waitUntilGone();
}

TEST(Libraries, RxJS) {
    Server server;
    expectPassing("rxjs", {server.url()});
    EXPECT_THAT(server.lines(), UnorderedElementsAre("GET /echo", "GET /hang", "GET /asked"));
    server.waitUntilGone();
}

TEST(Libraries, Comlink) {
    expectPassing("comlink");
}

TEST(Libraries, Kysely) {
    expectPassing("kysely", {},
                  "store: UNIQUE constraint failed: person.name (SQLite error 19), to: insert into "
                  "\"person\" (\"id\", \"name\") values (?, ?)\n");
}

TEST(Libraries, Drizzle) {
    expectPassing("drizzle");
}

TEST(Libraries, Zod) {
    expectPassing("zod");
}

TEST(Libraries, GraphQL) {
    expectPassing("graphql");
}

TEST(Libraries, Luxon) {
    expectPassing("luxon");
}

} // namespace
