// The turns of requests, cancelling, and the adapter's end.

#include <zem/Adapters/CurlNetworkAdapter.h>
#include <zem/Platform/Log.h>

#include <gmock/gmock.h>

#include <Adapters/NetworkCalls.h>
#include <Support/LoopbackServer.h>
#include <algorithm>
#include <thread>

using namespace zem;
using test::adapterFor;
using test::Call;
using test::get;
using test::LoopbackServer;
using testing::ElementsAre;
using testing::HasSubstr;
using Connection = LoopbackServer::Connection;

namespace {

std::shared_ptr<CurlNetworkAdapter> narrowAdapterFor(const std::string& url) {
    CurlNetworkAdapter::Options options;
    options.baseURL = url;
    options.mostAtOncePerHost = 1;
    return CurlNetworkAdapter::create(options);
}

Request getAt(RequestPriority priority, std::string path) {
    Request request = get(std::move(path));
    request.priority = priority;
    return request;
}

/// Answers each request when it is opened, with 200 "done".
class GatedServer {
  public:
    GatedServer()
        : server([this](const auto&, Connection& connection) {
            arrived.signal();
            opened.wait();
            connection.respond(200, "", "done");
        }) {}

    test::Event arrived{"a request at the gate"};
    test::Event opened{"the opening of the gate"};
    LoopbackServer server;
};

/// Answers no request.
class HangingServer {
  public:
    HangingServer()
        : server([this](const auto&, Connection& connection) {
            arrived.signal();
            connection.waitUntilClosed();
            closed.signal();
            connection.close();
        }) {}

    test::Event arrived{"a request at the hanging server"};
    test::Event closed{"the end of a connection to the hanging server"};
    LoopbackServer server;
};

/// Records the adapters' signposts while it lives.
class Signposts {
  public:
    Signposts() { platform::setSignpostSink(std::make_shared<Sink>(transcript)); }
    ~Signposts() { platform::setSignpostSink(nullptr); }
    Signposts(const Signposts&) = delete;
    Signposts& operator=(const Signposts&) = delete;

    std::vector<std::string> lines() const { return transcript.lines(); }

    std::size_t begun() const {
        const auto all = lines();
        return static_cast<std::size_t>(std::ranges::count_if(
            all, [](const std::string& line) { return line.starts_with("begin "); }));
    }

  private:
    class Sink final : public platform::SignpostSink {
      public:
        explicit Sink(test::Transcript& transcript)
            : transcript(transcript) {}
        void emit(const platform::Signpost& signpost) override {
            const bool begins = signpost.type == platform::SignpostType::intervalBegin;
            transcript.add((begins ? "begin " : "end ") + std::string(signpost.subsystem) + "/" +
                           std::string(signpost.category) + " " + std::string(signpost.name) + " " +
                           platform::formatLog(signpost.format, signpost.arguments));
        }

      private:
        test::Transcript& transcript;
    };

    test::Transcript transcript;
};

const std::string canceled = "unspecified: canceled";

} // namespace

TEST(CurlNetworkAdapterTurns, StartByPriorityThenInTheOrderOfTheCalls) {
    GatedServer gated;
    const auto adapter = narrowAdapterFor(gated.server.url());
    std::vector<Call> calls;
    calls.emplace_back(*adapter, get("/first"));
    gated.arrived.wait();
    calls.emplace_back(*adapter, getAt(RequestPriority::background, "/background"));
    calls.emplace_back(*adapter, get("/unsaid"));
    calls.emplace_back(*adapter, getAt(RequestPriority::normal, "/normal"));
    calls.emplace_back(*adapter, getAt(RequestPriority::high, "/high1"));
    calls.emplace_back(*adapter, getAt(RequestPriority::high, "/high2"));
    gated.opened.signal();
    for (const Call& call : calls) {
        EXPECT_EQ(call.text(), "200 done");
    }
    EXPECT_THAT(gated.server.lines(), ElementsAre("GET /first", "GET /high1", "GET /high2",
                                                  "GET /unsaid", "GET /normal", "GET /background"));
}

TEST(CurlNetworkAdapterTurns, RunAtMostSoManyAtOnceForEachHost) {
    for (const std::size_t most : {2U, 6U}) {
        GatedServer gated;
        LoopbackServer other(
            [](const auto&, Connection& connection) { connection.respond(200, "", "other"); });
        CurlNetworkAdapter::Options options;
        options.baseURL = gated.server.url();
        if (most != 6) { // else the default
            options.mostAtOncePerHost = static_cast<int>(most);
        }
        const auto adapter = CurlNetworkAdapter::create(options);
        Signposts signposts;
        std::vector<Call> calls;
        for (int count = 0; count < 8; ++count) {
            calls.emplace_back(*adapter, get("/" + std::to_string(count)));
        }
        Request elsewhere = get("/");
        elsewhere.host = other.url();
        // The last call to start: every other that may start has started before it.
        EXPECT_EQ(Call(*adapter, elsewhere).text(), "200 other");
        EXPECT_EQ(signposts.begun(), most + 1);
        gated.arrived.wait(static_cast<int>(most));
        gated.opened.signal();
        for (const Call& call : calls) {
            EXPECT_EQ(call.text(), "200 done");
        }
    }
}

TEST(CurlNetworkAdapterTurns, OfARedirectAreThoseOfTheServerItLeadsTo) {
    GatedServer gated;
    LoopbackServer redirecting([&](const auto&, Connection& connection) {
        connection.respond(302, "Location: " + gated.server.url() + "/there\r\n", "");
    });
    const auto adapter = narrowAdapterFor(redirecting.url());
    Request request = get("/here");
    request.host = gated.server.url();
    const Call holding(*adapter, request);
    gated.arrived.wait();
    const Call redirected(*adapter, get("/"));
    request.path = "/later";
    const Call later(*adapter, request);
    test::waitUntil("the redirect", [&] { return redirecting.lines().size() == 1; });
    Request again = get("/");
    again.priority = RequestPriority::background;
    const Call second(*adapter, again); // starts when the first has left its place
    test::waitUntil("the place at the first server",
                    [&] { return redirecting.lines().size() == 2; });
    gated.opened.signal();
    for (const Call* call : {&holding, &redirected, &later, &second}) {
        EXPECT_EQ(call->text(), "200 done");
    }
    EXPECT_THAT(gated.server.lines(),
                ElementsAre("GET /here", "GET /there", "GET /later", "GET /there"));
}

TEST(CurlNetworkAdapterCancel, StopsTheTransferAndAnswersOnce) {
    HangingServer hanging;
    const auto adapter = adapterFor(hanging.server.url());
    const Call call(*adapter, get("/"));
    hanging.arrived.wait();
    adapter->cancelRequest(call.token);
    adapter->cancelRequest(call.token);
    EXPECT_EQ(call.text(), canceled);
    hanging.closed.wait();
    adapter->cancelRequest(call.token);
    Request refused = get("\n");
    static_cast<void>(Call(*adapter, refused).text()); // all that came before has been done
    EXPECT_EQ(call.answers(), 1);
}

TEST(CurlNetworkAdapterCancel, StopsOneOfFiveUploads) {
    GatedServer gated;
    const auto adapter = adapterFor(gated.server.url());
    std::vector<Call> calls;
    for (int count = 0; count < 5; ++count) {
        Request request = get("/" + std::to_string(count));
        request.method = HTTPMethod::POST;
        request.bodyData = platform::Bytes(100'000, 'x');
        calls.emplace_back(*adapter, request);
    }
    gated.arrived.wait(5);
    adapter->cancelRequest(calls.at(2).token);
    EXPECT_EQ(calls.at(2).text(), canceled);
    gated.opened.signal();
    for (const int index : {0, 1, 3, 4}) {
        EXPECT_EQ(calls.at(static_cast<std::size_t>(index)).text(), "200 done");
    }
    for (const Call& call : calls) {
        EXPECT_EQ(call.answers(), 1);
    }
}

TEST(CurlNetworkAdapterCancel, SparesTheServerWhatHasNotStarted) {
    GatedServer gated;
    const auto adapter = narrowAdapterFor(gated.server.url());
    const Call first(*adapter, get("/first"));
    gated.arrived.wait();
    const Call waiting(*adapter, get("/waiting"));
    const Call last(*adapter, get("/last"));
    adapter->cancelRequest(waiting.token);
    EXPECT_EQ(waiting.text(), canceled);
    gated.opened.signal();
    EXPECT_EQ(first.text(), "200 done");
    EXPECT_EQ(last.text(), "200 done");
    EXPECT_THAT(gated.server.lines(), ElementsAre("GET /first", "GET /last"));
}

TEST(CurlNetworkAdapterCancel, GivesThePlaceToTheNext) {
    HangingServer hanging;
    const auto adapter = narrowAdapterFor(hanging.server.url());
    const Call first(*adapter, get("/first"));
    const Call second(*adapter, get("/second"));
    hanging.arrived.wait();
    adapter->cancelRequest(first.token);
    hanging.arrived.wait(2);
    EXPECT_EQ(first.text(), canceled);
    EXPECT_THAT(hanging.server.lines(), ElementsAre("GET /first", "GET /second"));
}

TEST(CurlNetworkAdapterCancel, IgnoresWhatItDoesNotKnow) {
    LoopbackServer server(
        [](const auto&, Connection& connection) { connection.respond(200, "", "done"); });
    const auto adapter = adapterFor(server.url());
    adapter->cancelRequest("");
    adapter->cancelRequest("no token of this adapter");
    const Call call(*adapter, get("/"));
    EXPECT_EQ(call.text(), "200 done");
    adapter->cancelRequest(call.token);
    EXPECT_EQ(Call(*adapter, get("/")).text(), "200 done");
    EXPECT_EQ(call.answers(), 1);
}

TEST(CurlNetworkAdapterEnd, AnswersEveryRequestThatIsStillOutInOrder) {
    HangingServer hanging;
    test::Transcript answers;
    test::Event last("the last answer");
    {
        const auto adapter = narrowAdapterFor(hanging.server.url());
        for (const std::string name : {"running", "waiting", "waiting too"}) {
            adapter->sendRequest(
                get("/"), [](const Response&) { FAIL() << "there is no response"; },
                [&, name](const NetworkError& error) {
                    answers.add(name + ": " + test::textOf(std::unexpected(error)));
                    last.signal();
                });
        }
        adapter->fetch(*platform::URL::parse(hanging.server.url()), [&](const auto& content) {
            answers.add("fetch: " + content.error());
            last.signal();
        });
        hanging.arrived.wait();
    }
    last.wait(4);
    EXPECT_THAT(answers.lines(), ElementsAre("running: " + canceled, "waiting: " + canceled,
                                             "waiting too: " + canceled, "fetch: canceled"));
    hanging.closed.wait();
}

TEST(CurlNetworkAdapterEnd, DoesNotWaitForACallback) {
    LoopbackServer server(
        [](const auto&, Connection& connection) { connection.respond(200, "", "done"); });
    test::Event entered("the callback");
    test::Event destroyed("the end of the adapter");
    test::Event left("the end of the callback");
    auto adapter = adapterFor(server.url());
    adapter->sendRequest(
        get("/"),
        [&](const Response&) {
            entered.signal();
            destroyed.wait();
            left.signal();
        },
        [](const NetworkError&) {});
    entered.wait();
    adapter.reset();
    destroyed.signal();
    left.wait();
}

TEST(CurlNetworkAdapterEnd, MayComeFromACallback) {
    HangingServer hanging;
    test::Arrival<std::string> other("the answer to the other request");
    test::Event ended("the end of the adapter");
    auto adapter = adapterFor(hanging.server.url());
    auto* const raw = adapter.get();
    raw->sendRequest(
        get("/"), [](const Response&) {},
        [&](const NetworkError& error) { other.put(error.message.value_or("")); });
    hanging.arrived.wait();
    raw->sendRequest(
        get("\n"), [](const Response&) {},
        [&ended, owner = std::move(adapter)](const NetworkError&) mutable {
            owner.reset();
            ended.signal();
        });
    ended.wait();
    EXPECT_EQ(other.get(), "canceled");
}

TEST(CurlNetworkAdapterEnd, MayComeWithTheLastCallback) {
    LoopbackServer server(
        [](const auto&, Connection& connection) { connection.respond(200, "", "done"); });
    test::Event answered("the answer");
    std::weak_ptr<CurlNetworkAdapter> weak;
    {
        auto adapter = adapterFor(server.url());
        weak = adapter;
        adapter->sendRequest(
            get("/"), [&answered, owner = adapter](const Response&) { answered.signal(); },
            [owner = adapter](const NetworkError&) {});
    }
    answered.wait();
    test::waitUntil("the end of the adapter", [&] { return weak.expired(); });
}

TEST(CurlNetworkAdapterCallbacks, ComeOnTheAdaptersOwnThreadAndMayUseTheAdapter) {
    LoopbackServer server([](const LoopbackServer::Request& request, Connection& connection) {
        if (request.target == "/hang") {
            connection.waitUntilClosed();
        } else {
            connection.respond(200, "", "done");
        }
    });
    const auto adapter = adapterFor(server.url());
    test::Arrival<std::thread::id> first("the first answer");
    test::Arrival<std::thread::id> second("the second answer");
    test::Arrival<std::thread::id> third("the answer to what was canceled");
    const std::string hanging = adapter->sendRequest(
        get("/hang"), [](const Response&) {},
        [&](const NetworkError&) { third.put(std::this_thread::get_id()); });
    adapter->sendRequest(
        get("/"),
        [&](const Response&) {
            first.put(std::this_thread::get_id());
            adapter->cancelRequest(hanging);
            adapter->sendRequest(
                get("\n"), [](const Response&) {},
                [&](const NetworkError&) { second.put(std::this_thread::get_id()); });
        },
        [](const NetworkError&) {});
    EXPECT_NE(first.get(), std::this_thread::get_id());
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(first.get(), third.get());
}

TEST(CurlNetworkAdapterCallbacks, AreOneForEachRequestOfManyThreads) {
    LoopbackServer server([](const LoopbackServer::Request& request, Connection& connection) {
        connection.respond(200, "", request.target);
    });
    const auto adapter = adapterFor(server.url());
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            std::vector<Call> calls;
            for (int count = 0; count < 50; ++count) {
                calls.emplace_back(*adapter, get("/" + std::to_string(thread * 100 + count)));
                if (count % 5 == 4) {
                    adapter->cancelRequest(calls.back().token);
                }
            }
            for (int count = 0; count < 50; ++count) {
                const Call& call = calls.at(static_cast<std::size_t>(count));
                const std::string done = "200 /" + std::to_string(thread * 100 + count);
                if (count % 5 == 4) {
                    EXPECT_THAT(call.text(), testing::AnyOf(done, canceled));
                } else {
                    EXPECT_EQ(call.text(), done);
                }
                EXPECT_EQ(call.answers(), 1);
            }
        });
    }
}

TEST(CurlNetworkAdapterSignposts, TellOfEachExchange) {
    LoopbackServer server([](const LoopbackServer::Request& request, Connection& connection) {
        if (request.target.starts_with("/lost")) {
            connection.reset();
        } else {
            connection.respond(request.target == "/" ? 302 : 404, "Location: /there\r\n", "");
        }
    });
    const auto adapter = adapterFor(server.url());
    const Signposts signposts;
    Request traced = get("/");
    traced.method = HTTPMethod::PUT;
    traced.observabilityContext = ObservabilityContext{"root", true, "trace"};
    static_cast<void>(Call(*adapter, traced).text());
    static_cast<void>(Call(*adapter, get("/lost?secret")).text());
    static_cast<void>(Call(*adapter, get("\n")).text()); // refused before it begins
    EXPECT_THAT(
        signposts.lines(),
        ElementsAre("begin com.quorvane.ZEM/NetworkAdapter exchange ::method:PUT traceId:trace "
                    "rootId:root",
                    "end com.quorvane.ZEM/NetworkAdapter exchange ::status:404",
                    "begin com.quorvane.ZEM/NetworkAdapter exchange ::method:GET traceId: rootId:",
                    "end com.quorvane.ZEM/NetworkAdapter exchange ::error:unspecified"));
}

namespace {

std::expected<FetchedContent, std::string> fetchedFrom(const std::string& url) {
    LoopbackServer unused([](const auto&, Connection& connection) { connection.close(); });
    test::Arrival<std::expected<FetchedContent, std::string>> arrival("the content");
    const auto adapter = adapterFor(unused.url());
    adapter->fetch(*platform::URL::parse(url), [&](auto content) { arrival.put(content); });
    return arrival.get();
}

std::expected<FetchedContent, std::string> fetchedAs(const std::string& response) {
    LoopbackServer server([&](const auto&, Connection& connection) {
        connection.send(response);
        connection.close();
    });
    const auto content = fetchedFrom(server.url() + "/picture?size=1");
    EXPECT_THAT(server.lines(), ElementsAre("GET /picture?size=1"));
    return content;
}

} // namespace

TEST(CurlNetworkAdapterFetch, KeepsEveryByte) {
    EXPECT_EQ(fetchedAs(std::string("HTTP/1.1 200 OK\r\nContent-Type: image/png ; a=b\r\n\r\n"
                                    "\x89PNG\0\xFF\r\n",
                                    58)),
              (FetchedContent{{0x89, 'P', 'N', 'G', 0x00, 0xFF, '\r', '\n'}, "image/png"}));
    EXPECT_EQ(fetchedAs("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"), FetchedContent());
}

TEST(CurlNetworkAdapterFetch, TakesNoFailureForContent) {
    EXPECT_EQ(fetchedAs("HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\ngone").error(),
              "the server answered with status 404");
    EXPECT_EQ(fetchedAs("HTTP/1.1 300 Choose\r\nContent-Length: 0\r\n\r\n").error(),
              "the server answered with status 300");
    EXPECT_TRUE(fetchedAs("HTTP/1.1 299 Fine\r\nContent-Length: 0\r\n\r\n"));
    EXPECT_EQ(fetchedAs("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nhal").error(),
              "transfer closed with 1 bytes remaining to read");
    EXPECT_EQ(fetchedFrom("file:///etc/passwd").error(),
              "expected an http or https URL, found the scheme \"file\"");
}
