// fetch over the host's network, seen from the server.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Support/LoopbackServer.h>
#include <Support/Wait.h>
#include <map>

namespace {

using test::Event;
using test::Host;
using test::LoopbackServer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

void respondDone(const LoopbackServer::Request&, LoopbackServer::Connection& connection) {
    connection.respond(200, "", "done");
}

/// show(promise) prints the text of its response, or its error.
constexpr const char* library = R"(
    const show = (promise) => promise.then(
        async (response) => console.log(response.status, await response.text()),
        (error) => console.log(error.name, error.message, error.cause?.type ?? ''));
)";

test::Process::Result run(const std::string& script, Host::Words words = {}) {
    const Host host;
    return host.runScript(library + script, std::move(words));
}

void expectOutput(const test::Process::Result& result, const std::string& output) {
    EXPECT_EQ(result.output, output);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Fetch, CarriesARequestToItsServerAndTheResponseBack) {
    LoopbackServer server([](const auto&, LoopbackServer::Connection& connection) {
        connection.respond(404,
                           "X-Own: 1\r\nContent-Type: text/plain\r\nSet-Cookie: a=1; Expires=Wed, "
                           "21 Oct 2026 07:28:00 GMT\r\nSet-Cookie: b=2\r\n",
                           "h\xC3\xA9");
    });
    expectOutput(run(R"(
        (async () => {
            const response = await fetch(')" +
                     server.url() + R"(/a/b?c=d#part', {
                method: 'post', body: 'text', headers: { 'X-Sent': 'yes', 'Accept': 'a/b' } });
            console.log(response instanceof Response, response.status, response.ok, response.type,
                response.redirected, response.statusText === '', response.bodyUsed, response.body);
            console.log(response.url.replace(/:\d+/, ''), response.headers.get('x-own'),
                JSON.stringify(response.headers.getSetCookie()));
            console.log([...await response.clone().bytes()].join(), await response.text());
        })();
    )"),
                 "true 404 false basic false true false null\n"
                 "http://127.0.0.1/a/b?c=d 1 "
                 "[\"a=1; Expires=Wed, 21 Oct 2026 07:28:00 GMT\",\"b=2\"]\n"
                 "104,195,169 h\xC3\xA9\n");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].method + " " + requests[0].target, "POST /a/b?c=d");
    EXPECT_EQ(requests[0].body, "text");
    EXPECT_EQ(requests[0].header("x-sent"), "yes");
    EXPECT_EQ(requests[0].header("accept"), "a/b");
    EXPECT_EQ(requests[0].header("content-type"), "text/plain;charset=UTF-8");
}

TEST(Fetch, SendsEveryMethodOfTheAdapter) {
    LoopbackServer server(respondDone);
    expectOutput(
        run("(async () => { for (const method of ['GET', 'PUT', 'POST', 'PATCH', 'DELETE', "
            "'HEAD', 'OPTIONS'])\n"
            "await show(fetch('" +
            server.url() + "/' + method, { method })) })()"),
        "200 done\n200 done\n200 done\n200 done\n200 done\n200 \n200 done\n");
    EXPECT_THAT(server.lines(), ElementsAre("GET /GET", "PUT /PUT", "POST /POST", "PATCH /PATCH",
                                            "DELETE /DELETE", "HEAD /HEAD", "OPTIONS /OPTIONS"));
}

TEST(Fetch, LeavesAQueryAsItIs) {
    LoopbackServer server(respondDone);
    const std::vector<std::string> targets = {"/",
                                              "/?",
                                              "/?a=1",
                                              "/?a=1&b=2",
                                              "/?b=2&a=1",
                                              "/?a=1&a=2",
                                              "/?a",
                                              "/?a=",
                                              "/?a&b=",
                                              "/?a=x%20y",
                                              "/?a=x+y",
                                              "/?a=%C3%BC",
                                              "/?%C3%BC=1",
                                              "/?a=b=c",
                                              "/?a=%zz",
                                              "/?a=1&&b=2",
                                              "/?__proto__=1",
                                              "/?=1",
                                              "/?a=(x)*!",
                                              "/?a[]=1&a[]=2",
                                              "/a%2Fb/c%20d?x=%2F",
                                              "/a;b=1/@c"};
    std::string script = "(async () => {";
    std::vector<std::string> expected;
    for (const std::string& target : targets) {
        script += "await fetch('" + server.url() + target + "');";
        // An empty query is none, and the bracket is one of the characters that a URL may not hold.
        std::string sent = target == "/?" ? "/" : target;
        for (std::size_t at = sent.find_first_of("[]"); at != std::string::npos;
             at = sent.find_first_of("[]")) {
            sent.replace(at, 1, sent[at] == '[' ? "%5B" : "%5D");
        }
        expected.push_back("GET " + sent);
    }
    expectOutput(run(script + "})()"), "");
    EXPECT_EQ(server.lines(), expected);
}

TEST(Fetch, TakesRelativeURLsAsBelowTheBase) {
    LoopbackServer server(respondDone);
    const std::string urls = "'/a', 'b?x=1', '?y=2', '', 'http:/"
                             "/' + authority + '/v2/c', "
                             "'/"
                             "/' + authority + '/d', '../e', './f', new URL('" +
                             server.url() + "/v2'), '" + server.url() + "/v2x'";
    expectOutput(
        run("const authority = '127.0.0.1:" + std::to_string(server.port()) +
                "'; (async () => { for (const url of [" + urls +
                "]) await fetch(url); console.log(new Request('/a').url.replace(authority, "
                "'')) })()",
            {"--url", server.url() + "/v2/"}),
        "http:///v2/a\n");
    EXPECT_THAT(server.lines(),
                ElementsAre("GET /v2/a", "GET /v2/b?x=1", "GET /v2/?y=2", "GET /v2/", "GET /v2/c",
                            "GET /d", "GET /e", "GET /v2/f", "GET /v2", "GET /v2x"));
}

TEST(Fetch, SendsTextOfEveryKind) {
    LoopbackServer server(respondDone);
    expectOutput(run(R"(
        const form = new FormData();
        form.append('"n"', 'one\ntwo');
        form.append('n', '\u00e9');
        (async () => {
            for (const body of ['\ufeff\u00e9\0\ud83d\ude00', new URLSearchParams('a=1&b=%20'), new Blob(['blob'], { type: 'a/b' }),
                new TextEncoder().encode('bytes'), new TextEncoder().encode('buffer').buffer, '', form]) {
                await fetch(')" +
                     server.url() + R"(', { method: 'PUT', body });
            }
            await fetch(new Request(')" +
                     server.url() + R"(', { method: 'POST', body: 'of a request' }));
        })();
    )"),
                 "");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 8U);
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"text/plain;charset=UTF-8", std::string("\xEF\xBB\xBF\xC3\xA9\0\xF0\x9F\x98\x80", 10)},
        {"application/x-www-form-urlencoded;charset=UTF-8", "a=1&b=+"},
        {"a/b", "blob"},
        {"", "bytes"},
        {"", "buffer"},
        {"text/plain;charset=UTF-8", ""},
    };
    for (std::size_t index = 0; index < expected.size(); ++index) {
        EXPECT_EQ(requests[index].header("content-type").value_or(""), expected[index].first);
        EXPECT_EQ(requests[index].body, expected[index].second);
    }
    const std::string type = requests[6].header("content-type").value_or("");
    ASSERT_THAT(type, MatchesRegex("multipart/form-data; boundary=[-0-9]+"));
    const std::string line = "--" + type.substr(type.find('=') + 1);
    EXPECT_EQ(requests[6].body,
              line + "\r\nContent-Disposition: form-data; name=\"%22n%22\"\r\n\r\none\r\ntwo\r\n" +
                  line + "\r\nContent-Disposition: form-data; name=\"n\"\r\n\r\n\xC3\xA9\r\n" +
                  line + "--");
    EXPECT_EQ(requests[7].body, "of a request");
}

TEST(Fetch, RefusesWhatWouldBeLostOrMisled) {
    LoopbackServer server(respondDone);
    const std::string base = server.url();
    const std::map<std::string, std::string> refusals = {
        {"body: new Uint8Array([255])",
         "the body is not valid UTF-8 text: bytes are sent as a File "
         "of a FormData, by POST"},
        {"body: JSON.stringify({ namedEntries: [{ name: 'a', value: 'b' }] })",
         "a JSON body with a list \"namedEntries\" is taken for a form by the network adapter: "
         "send a FormData"},
        {"redirect: 'manual'", "redirects are followed always, and the request has \"manual\""},
        {"redirect: 'error'", "redirects are followed always, and the request has \"error\""},
        {"integrity: 'sha256-x'", "the integrity of a response is not checked here"},
        {"method: 'PUT', body: files", "a form with files is sent by POST only"},
        {"body: files", "a form with files goes only to URLs below the base of the run (--url)"},
    };
    for (const auto& [options, reason] : refusals) {
        expectOutput(run("const files = new FormData(); files.append('f', new Blob(['x']));\n"
                         "show(fetch('" +
                         base + "', { method: 'POST', " + options + " }))"),
                     "TypeError fetch: " + reason + " \n");
    }
    expectOutput(run("show(fetch('ftp:/"
                     "/x.test/')); show(fetch()); show(fetch('" +
                     base + "', { method: 'BREW' }))"),
                 "TypeError fetch: expected an http or https URL \n"
                 "TypeError fetch: expected 1 arguments, found 0 \n"
                 "TypeError Request: expected a method of GET, PUT, POST, PATCH, DELETE, HEAD, "
                 "OPTIONS \n");
    EXPECT_THAT(server.lines(), IsEmpty());
    // Text that only mentions the word is text.
    expectOutput(run("show(fetch('" + base + "', { method: 'POST', body: 'namedEntries' }));"),
                 "200 done\n");
}

TEST(Fetch, SendsFilesAsAMultipartForm) {
    LoopbackServer server(respondDone);
    expectOutput(run(R"(
        const form = new FormData();
        form.append('file', new File([new Uint8Array([0, 255, 10])], 'a "b"\n\u00fc.bin', { type: 'image/x' }));
        form.append('empty', new Blob([]));
        form.append('text\n', 'one\ntwo');
        show(fetch('/upload?to=1', { method: 'POST', body: form, headers: { 'X-Own': '1' } }));
    )",
                     {"--url", server.url() + "/v2"}),
                 "200 done\n");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(server.lines().front(), "POST /v2/upload?to=1");
    EXPECT_EQ(requests[0].header("x-own"), "1");
    const std::string type = requests[0].header("content-type").value_or("");
    ASSERT_THAT(type, MatchesRegex("multipart/form-data; boundary=[-0-9A-F]+"));
    const std::string line = "--" + type.substr(type.find('=') + 1);
    using std::string_literals::operator""s;
    EXPECT_EQ(requests[0].body,
              line +
                  "\r\nContent-Disposition: form-data; name=\"text%0D%0A\"\r\n"
                  "Content-Type: text/plain; charset=ISO-8859-1\r\n"
                  "Content-Transfer-Encoding: 8bit\r\n\r\none\r\ntwo\r\n" +
                  line +
                  "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a "
                  "%22b%22%0A\xC3\xBC.bin\"\r\nContent-Type: image/x\r\n\r\n\0\xFF\n\r\n"s +
                  line +
                  "\r\nContent-Disposition: form-data; name=\"empty\"; filename=\"blob\"\r\n"
                  "Content-Type: application/octet-stream\r\n\r\n\r\n" +
                  line + "--");
}

TEST(Fetch, LeavesNoFileOfAFormBehind) {
    LoopbackServer server(respondDone);
    const test::RefusingPort refusing;
    for (const std::string& url : {server.url(), refusing.url()}) {
        const Host host;
        const auto result = host.runCommands(R"(
            globalThis.upload = async () => {
                const form = new FormData();
                form.append('f', new Blob(['x']));
                try {
                    return (await fetch('/', { method: 'POST', body: form })).status;
                } catch {
                    return 'failed';
                }
            };
        )",
                                             "eval upload()\nwait\nbinary list\n", {"--url", url});
        const bool isSent = url == server.url();
        expectOutput(result, std::string("eval: ") + (isSent ? "200" : "'failed'") +
                                 "\nbinary list: no binaries\n");
    }
}

/// Leaves "/hang" without an answer; answers "/asked" when that has been asked for.
class HangingServer {
  public:
    std::string url() const { return server.url(); }
    std::vector<std::string> lines() const { return server.lines(); }
    void waitUntilGone() { gone.wait(); }

  private:
    Event asked{"the request for /hang"};
    Event gone{"the end of its connection"};
    LoopbackServer server{[this](const auto& request, LoopbackServer::Connection& connection) {
        if (request.target == "/hang") {
            asked.signal();
            connection.waitUntilClosed();
            gone.signal();
        } else {
            asked.wait();
            connection.respond(200, "", "asked");
        }
    }};
};

TEST(Fetch, AbortingStopsTheExchangeAtOnce) {
    HangingServer server;
    expectOutput(run(R"(
        const controller = new AbortController();
        const promise = fetch('/hang', { signal: controller.signal });
        promise.catch((error) => console.log(error === controller.signal.reason, error.name));
        fetch('/asked').then(() => {
            setTimeout(() => console.log('a turn later'));
            controller.abort();
            controller.abort();
            queueMicrotask(() => queueMicrotask(() => console.log('microtasks later')));
        });
    )",
                     {"--url", server.url()}),
                 "true AbortError\nmicrotasks later\na turn later\n");
    server.waitUntilGone();
}

TEST(Fetch, RejectsWithTheReasonOfTheSignal) {
    HangingServer server;
    expectOutput(run(R"(
        const controller = new AbortController();
        const request = new Request('/hang', { signal: AbortSignal.any([controller.signal]) });
        fetch(request).catch((reason) => console.log(reason));
        fetch('/asked').then(() => controller.abort('own reason'));
    )",
                     {"--url", server.url()}),
                 "own reason\n");
    server.waitUntilGone();
}

TEST(Fetch, ATimeoutSignalEndsAnExchangeThatHangs) {
    HangingServer server;
    expectOutput(run("show(fetch('/hang', { signal: AbortSignal.timeout(50) }));"
                     "AbortSignal.timeout(1e9);",
                     {"--url", server.url()}),
                 "TimeoutError The operation timed out \n");
}

TEST(Fetch, SendsNothingWithAnAbortedSignal) {
    LoopbackServer server(respondDone);
    expectOutput(run("show(fetch('/', { signal: AbortSignal.abort() }));"
                     "const controller = new AbortController(); controller.abort(new Error('own'));"
                     "show(fetch(new Request('/', { signal: controller.signal })));"
                     "show(fetch(new Request('/', { signal: controller.signal }), "
                     "{ signal: null }));",
                     {"--url", server.url()}),
                 "AbortError The operation was aborted \nError own \n200 done\n");
    EXPECT_THAT(server.lines(), ElementsAre("GET /"));
}

TEST(Fetch, AnAbortAfterTheResponseChangesNothing) {
    LoopbackServer server(respondDone);
    expectOutput(run("const controller = new AbortController();"
                     "fetch('/', { signal: controller.signal }).then(async (response) => {"
                     "controller.abort(); console.log(await response.text()) })",
                     {"--url", server.url()}),
                 "done\n");
}

TEST(Fetch, FailsWithATypeErrorThatBearsTheAdaptersMessage) {
    const test::RefusingPort refusing;
    const auto result = run("show(fetch('" + refusing.url() + "'))");
    EXPECT_THAT(result.output,
                MatchesRegex("TypeError fetch failed: .*(refused|connect).* unspecified\n"));
    EXPECT_EQ(result.code, 0);
    expectOutput(run("show(fetch('/'))", {"--url", refusing.url(), "--offline"}),
                 "TypeError fetch failed: offline unspecified\n");
    expectOutput(
        run("fetch('/').catch(({ cause }) => console.log(cause instanceof Error, cause.name, "
            "cause.message))",
            {"--url", refusing.url(), "--offline"}),
        "true NetworkError offline\n");
}

TEST(Fetch, RefusesBytesThatAreNoTextAndNamesTheWayToThem) {
    LoopbackServer server([](const auto&, LoopbackServer::Connection& connection) {
        connection.respond(200, "Content-Type: image/x\r\n", "\xFF\x01");
    });
    expectOutput(run("const cache = () => ZemBinaryStorePlugin.cacheBinary(new URL('/', "
                     "host.args[0]).href, 60, (handle) => console.log(typeof handle), "
                     "console.error);"
                     "show(fetch(host.args[0])).then(cache)",
                     {"--", server.url()}),
                 "TypeError fetch failed: the response body is not valid UTF-8 text; the binary "
                 "store's cacheBinary keeps its bytes unspecified\nstring\n");
}

TEST(Fetch, IsNotMisledByWhatABundleDoesToThePlugins) {
    LoopbackServer server(respondDone);
    expectOutput(run(R"(
        ZemNetworkAdapter.sendRequest = () => console.log('never');
        ZemNetworkAdapter = undefined;
        Promise.prototype.then = undefined;
        delete globalThis.URL;
        delete globalThis.TextDecoder;
        (async () => console.log(await (await fetch('/a', { method: 'POST', body: new Uint8Array([97]) })).text()))();
    )",
                     {"--url", server.url()}),
                 "done\n");
    EXPECT_EQ(server.requests().at(0).body, "a");
}

TEST(Fetch, AResponseMayBeginTheNextRequest) {
    LoopbackServer server(respondDone);
    expectOutput(
        run("(async () => { for (let i = 0; i < 5; i += 1) await show(fetch('/' + i)) })()",
            {"--url", server.url()}),
        "200 done\n200 done\n200 done\n200 done\n200 done\n");
    EXPECT_THAT(server.lines(), ElementsAre("GET /0", "GET /1", "GET /2", "GET /3", "GET /4"));
}

TEST(Fetch, AnsweredRequestsEndTheRun) {
    LoopbackServer server(respondDone);
    std::string expected;
    for (int count = 0; count < 40; ++count) {
        expected += "200 done\n";
    }
    expectOutput(
        run("for (let i = 0; i < 40; i += 1) show(fetch('/' + i))", {"--url", server.url()}),
        expected);
    EXPECT_EQ(server.lines().size(), 40U);
}

} // namespace
