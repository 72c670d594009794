// "ZemNetworkAdapter": what reaches the network adapter, and how its results reach the runtime.

#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Platform/Log.h>
#include <zem/Tessel/Connection.h>
#include <zem/TesselPluginZEM/NetworkAdapter/MultipartForm.h>
#include <zem/TesselPluginZEM/NetworkAdapter/NetworkAdapterPlugin.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Support/BinaryStore.h>
#include <Support/Engine.h>
#include <Support/Wait.h>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using Lines = std::vector<std::string>;

/// Keeps what it is asked; the test answers.
class FakeNetworkAdapter final : public NetworkAdapter {
  public:
    struct Exchange {
        Request request;
        OnResponse onResponse;
        OnError onError;
    };

    std::string sendRequest(Request request, OnResponse onResponse, OnError onError) override {
        if (failing) {
            throw std::runtime_error("there is no network");
        }
        exchanges.push_back({std::move(request), std::move(onResponse), std::move(onError)});
        return "token-" + std::to_string(exchanges.size());
    }

    void cancelRequest(const std::string& token) override { cancelled.push_back(token); }

    bool failing = false;
    std::vector<Exchange> exchanges;
    Lines cancelled;
};

class NetworkAdapterPluginTest : public testing::Test {
  protected:
    NetworkAdapterPluginTest() {
        connection.emplace(context);
        connection->add(*plugin);
        test::setFunction(context, "heard", 1,
                          [this](js::Scope& scope, js::Local, js::Arguments arguments) {
                              transcript.add(scope.toText(arguments[0]));
                              threads.push_back(std::this_thread::get_id());
                              happened.signal();
                              return scope.undefined();
                          });
        test::evaluate(context, R"js(
            var response = (r) => heard("response " + JSON.stringify(r));
            var error = (e) => heard("error " + JSON.stringify(e));
            var request = (more) => ({ method: "POST", path: "/a", queryParams: {}, headers: {}, ...more });
            var send = (more) => ZemNetworkAdapter.sendRequest(request(more), response, error);
            var body = (...namedEntries) => JSON.stringify({ namedEntries });
        )js");
    }
    ~NetworkAdapterPluginTest() override {
        adapter->exchanges.clear();
        context.perform([](js::Scope&) {});
    }

    void evaluate(const std::string& script) const { test::evaluate(context, script); }

    const Request& sent(const std::string& script) {
        evaluate(script);
        return adapter->exchanges.back().request;
    }

    /// A request as the adapter receives it when the plugin builds no form.
    static Request asReceived(HTTPMethod method, std::optional<std::string> body) {
        Request request;
        request.method = method;
        request.path = "/a";
        request.body = std::move(body);
        return request;
    }

    Lines waitForHeard(int times) {
        happened.wait(times);
        return transcript.lines();
    }

    test::Transcript transcript;
    std::vector<std::thread::id> threads; // of those who called, in the engine
    test::Event happened{"a result in JavaScript"};
    const js::Context context = test::makeContext();
    std::shared_ptr<FakeNetworkAdapter> adapter = std::make_shared<FakeNetworkAdapter>();
    std::shared_ptr<test::BinaryStore> store = std::make_shared<test::BinaryStore>();
    std::shared_ptr<NetworkAdapterPlugin> plugin = NetworkAdapterPlugin::create(adapter, store);
    std::optional<tessel::Connection> connection;
};

TEST_F(NetworkAdapterPluginTest, BindsItsMethodsInOrder) {
    EXPECT_EQ(plugin->namespace_(), "ZemNetworkAdapter");
    test::expectEval(context, "Object.keys(ZemNetworkAdapter)", "array",
                     R"(["sendRequest","cancelRequest"])");
    test::expectEval(context, "Object.values(ZemNetworkAdapter).map((f) => [f.name, f.length])",
                     "array", R"([["sendRequest",3],["cancelRequest",1]])");
}

TEST_F(NetworkAdapterPluginTest, WantsAnAdapterAndAStore) {
    EXPECT_THROW((void)NetworkAdapterPlugin::create(nullptr, store), std::invalid_argument);
    EXPECT_THROW((void)NetworkAdapterPlugin::create(adapter, nullptr), std::invalid_argument);
}

TEST_F(NetworkAdapterPluginTest, ReturnsTheAdaptersToken) {
    test::expectEval(context, "[send(), send()]", "array", R"(["token-1","token-2"])");
}

TEST_F(NetworkAdapterPluginTest, ForwardsEveryTokenUnchanged) {
    test::expectEval(context, "ZemNetworkAdapter.cancelRequest('unknown é')", "undefined",
                     "undefined");
    evaluate("ZemNetworkAdapter.cancelRequest('')");
    EXPECT_EQ(adapter->cancelled, (Lines{"unknown é", ""}));
    EXPECT_EQ(transcript.lines(), Lines{});
}

TEST_F(NetworkAdapterPluginTest, ThrowsWhatTheAdapterThrows) {
    adapter->failing = true;
    test::expectEval(context, "send()", "exception", "Error: there is no network");
}

TEST_F(NetworkAdapterPluginTest, ReportsARequestThatDoesNotDecode) {
    test::expectEval(context, "send({ method: 'get' })", "exception",
                     "TypeError: ZemNetworkAdapter.sendRequest, argument 1: method: expected one "
                     R"(of "GET", "PUT", "POST", "PATCH", "DELETE", "HEAD", "OPTIONS", found )"
                     "another string");
    test::expectEval(context, "send({ priority: 'urgent' })", "exception",
                     "TypeError: ZemNetworkAdapter.sendRequest, argument 1: priority: expected one "
                     R"(of "high", "normal", "background", found another string)");
    EXPECT_TRUE(adapter->exchanges.empty());
}

// --- Multipart forms

TEST_F(NetworkAdapterPluginTest, RebuildsPostsOnly) {
    for (const auto& [method, text] : httpMethodTexts) {
        const std::string script =
            "send({ method: '" + std::string(text) + "', body: body({ name: 'a', value: '1' }) })";
        const Request& request = sent(script);
        if (method == HTTPMethod::POST) {
            EXPECT_EQ(request.body, std::nullopt);
            EXPECT_TRUE(request.bodyData);
        } else {
            EXPECT_EQ(request,
                      asReceived(method, R"({"namedEntries":[{"name":"a","value":"1"}]})"));
        }
    }
}

TEST_F(NetworkAdapterPluginTest, TakesThePlainTextForAListOfFields) {
    const auto isTaken = [](HTTPMethod method, std::optional<std::string> body) {
        return NetworkAdapterPlugin::shouldBuildFormDataRequest(
            asReceived(method, std::move(body)));
    };
    EXPECT_TRUE(isTaken(HTTPMethod::POST, "{\"namedEntries\" : []}"));
    EXPECT_TRUE(isTaken(HTTPMethod::POST, "not JSON, but namedEntries in it"));
    EXPECT_FALSE(isTaken(HTTPMethod::POST, "{\"namedentries\": []}"));
    EXPECT_FALSE(isTaken(HTTPMethod::POST, std::nullopt));
    EXPECT_FALSE(isTaken(HTTPMethod::PUT, "namedEntries"));
}

TEST_F(NetworkAdapterPluginTest, BuildsTheFormWithAFreshBoundary) {
    const std::string handle = store->store({'x', 'y'}, "text/plain", 2);
    const Request first = sent("send({ host: 'other.example', headers: { X: 'y' }, "
                               "queryParams: { q: '1' }, priority: 'high', "
                               "observabilityContext: { rootId: 'r' }, "
                               "body: body({ name: 'f', value: { handle: '" +
                               handle + "', name: 'n.txt', type: 'text/plain' } }, " +
                               "{ name: 'a', value: '1' }) })");
    const Request second = sent("send({ body: body({ name: 'a', value: '1' }) })");
    ASSERT_TRUE(first.boundary && second.boundary);
    EXPECT_THAT(*first.boundary, testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-"
                                                       "[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
    EXPECT_NE(first.boundary, second.boundary);

    Request expected;
    expected.method = HTTPMethod::POST;
    expected.path = "/a";
    expected.queryParams = {{"q", "1"}};
    expected.headers = {{"X", "y"}};
    expected.priority = RequestPriority::high;
    expected =
        multipartFormRequest(expected,
                             {MultipartFormField::text("a", "1"),
                              MultipartFormField::data("f", {'x', 'y'}, "n.txt", "text/plain")},
                             *first.boundary);
    EXPECT_EQ(first, expected);
}

TEST_F(NetworkAdapterPluginTest, SendsAsReceivedWhatHoldsNoFields) {
    const std::vector<std::string> bodies{
        R"({"note": "see namedEntries"})",
        R"({"namedEntries": [{"name": "a"}]})",
        R"({"namedEntries": 1})",
        R"(namedEntries)",
        R"({"namedEntries": []})",
        R"({"named_entries": [{"name": "a", "value": "1"}]})",
        "",
    };
    test::Transcript logged;
    platform::setLogWriter(
        [&](const platform::LogLine& line) { logged.add(std::string(line.text)); });
    for (const std::string& body : bodies) {
        EXPECT_EQ(sent("send({ body: '" + body + "' })"), asReceived(HTTPMethod::POST, body));
    }
    EXPECT_EQ(sent("send()"), asReceived(HTTPMethod::POST, std::nullopt));
    platform::setLogWriter(nullptr);
    EXPECT_EQ(logged.lines(), Lines{});
}

TEST_F(NetworkAdapterPluginTest, SendsAsReceivedAndLogsAFileThatIsNotThere) {
    test::Transcript logged;
    platform::setLogWriter([&](const platform::LogLine& line) {
        logged.add(std::string(line.level == platform::LogLevel::debug ? "debug " : "") +
                   std::string(line.text));
    });
    const Request& request = sent(
        "send({ host: 'h', body: body({ name: 'f', value: { handle: 'gone', name: '', type: '' } "
        "}) })");
    platform::setLogWriter(nullptr);
    Request expected = asReceived(
        HTTPMethod::POST,
        R"({"namedEntries":[{"name":"f","value":{"handle":"gone","name":"","type":""}}]})");
    expected.host = "h";
    EXPECT_EQ(request, expected);
    EXPECT_EQ(logged.lines(), (Lines{"debug Unable to create a multipart form request"}));
}

// --- Results

TEST_F(NetworkAdapterPluginTest, PassesResultsThroughUnchanged) {
    evaluate("send(); send();");
    adapter->exchanges[0].onResponse(Response{404, {{"A", "b"}}, "é"});
    waitForHeard(1);
    adapter->exchanges[1].onError(NetworkError{NetworkErrorType::timeout, "too late"});
    EXPECT_EQ(waitForHeard(2), (Lines{R"(response {"status":404,"headers":{"A":"b"},"body":"é"})",
                                      R"(error {"type":"timeout","message":"too late"})"}));
}

TEST_F(NetworkAdapterPluginTest, OrdersResultsByEightForEachPriority) {
    EXPECT_EQ(queuePriority(RequestPriority::high), platform::QueuePriority{8});
    EXPECT_EQ(queuePriority(RequestPriority::normal), platform::QueuePriority{0});
    EXPECT_EQ(queuePriority(RequestPriority::background), platform::QueuePriority{-8});
    EXPECT_EQ(queuePriority(std::nullopt), platform::QueuePriority{0});
}

TEST_F(NetworkAdapterPluginTest, DeliversTheHighestPriorityFirst) {
    evaluate(R"js(
        for (const priority of ["high", "background", "normal", undefined, "high", "background", "normal"]) {
            send({ priority });
        }
    )js");
    // While this thread is inside, results can only wait. The first may have been taken already.
    context.perform([&](js::Scope& scope) {
        int number = 0;
        for (const auto& exchange : adapter->exchanges) {
            if (number % 2 == 0) {
                exchange.onResponse(Response{number, {}, std::nullopt});
            } else {
                exchange.onError(NetworkError{NetworkErrorType::timeout, std::to_string(number)});
            }
            ++number;
            test::letOthersIn(scope);
        }
        EXPECT_EQ(transcript.lines(), Lines{});
    });
    Lines expected;
    for (const int number : {0, 4, 2, 3, 6, 1, 5}) {
        expected.push_back(
            number % 2 == 0
                ? "response {\"status\":" + std::to_string(number) + ",\"headers\":{}}"
                : "error {\"type\":\"timeout\",\"message\":\"" + std::to_string(number) + "\"}");
    }
    EXPECT_EQ(waitForHeard(7), expected);
}

TEST_F(NetworkAdapterPluginTest, AResultThatComesMeanwhileOvertakesThoseThatWait) {
    evaluate(R"js(
        var urgent = () => { if (answerUrgently) { const answer = answerUrgently; answerUrgently = undefined; answer(); } };
        response = (r) => { heard(String(r.status)); urgent(); };
        for (let n = 0; n < 4; ++n) send({ priority: "background" });
        send({ priority: "high" });
    )js");
    test::setFunction(context, "answerUrgently", 0,
                      [this](js::Scope& scope, js::Local, js::Arguments) {
                          adapter->exchanges[4].onResponse(Response{4, {}, std::nullopt});
                          return scope.undefined();
                      });
    context.perform([&](js::Scope&) {
        for (std::size_t index = 0; index < 4; ++index) {
            const auto status = static_cast<std::int64_t>(index);
            adapter->exchanges[index].onResponse(Response{status, {}, std::nullopt});
        }
    });
    EXPECT_EQ(waitForHeard(5), (Lines{"0", "4", "1", "2", "3"}));
}

TEST_F(NetworkAdapterPluginTest, CallsJavaScriptOnNoThreadOfTheAdapter) {
    evaluate("send()");
    std::thread answering([&] { adapter->exchanges[0].onResponse(Response{200, {}, ""}); });
    const std::thread::id id = answering.get_id();
    answering.join();
    waitForHeard(1);
    EXPECT_NE(threads[0], id);
    EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST_F(NetworkAdapterPluginTest, DeliversWhenItIsGone) {
    evaluate("send()");
    plugin.reset();
    connection.reset();
    adapter->exchanges[0].onResponse(Response{200, {}, std::nullopt});
    EXPECT_EQ(waitForHeard(1), (Lines{R"(response {"status":200,"headers":{}})"}));
    test::expectEval(context, "send()", "exception",
                     "Error: ZemNetworkAdapter.sendRequest: the plugin is gone");
}

TEST_F(NetworkAdapterPluginTest, CountsAnExchangeUntilItIsAnswered) {
    evaluate("send()");
    EXPECT_EQ(connection->activity().outstanding(), 2u);
    adapter->exchanges[0].onResponse(Response{200, {}, std::nullopt});
    adapter->exchanges.clear();
    waitForHeard(1);
    test::waitUntil("the functions are let go of",
                    [&] { return connection->activity().outstanding() == 0; });
}

} // namespace
