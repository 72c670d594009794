// How far an exchange has come, as the observer hears it.

#include <zem/Adapters/CurlNetworkAdapter.h>

#include <gmock/gmock.h>

#include <Adapters/NetworkCalls.h>
#include <Support/LoopbackServer.h>
#include <Support/Wait.h>
#include <map>
#include <mutex>
#include <vector>

namespace {

using namespace zem;
using test::Call;
using test::Event;
using test::LoopbackServer;
using Progress = CurlNetworkAdapter::Progress;

/// The observer's reports by token.
class Heard {
  public:
    void note(const Progress& progress) {
        {
            const std::scoped_lock lock(mutex);
            all[progress.token].push_back(progress);
        }
        event.signal();
    }

    std::vector<Progress> of(const std::string& token) {
        const std::scoped_lock lock(mutex);
        return all[token];
    }

    Event event{"a report"};

  private:
    std::mutex mutex;
    std::map<std::string, std::vector<Progress>> all;
};

std::shared_ptr<CurlNetworkAdapter> adapterFor(const std::string& url, Heard& heard) {
    CurlNetworkAdapter::Options options;
    options.baseURL = url;
    options.onProgress = [&heard](const Progress& progress) {
        heard.note(progress);
    };
    return CurlNetworkAdapter::create(options);
}

/// Counts never fall, and the last report is the only one that says so.
void expectOrder(const std::vector<Progress>& reports) {
    for (std::size_t index = 1; index < reports.size(); ++index) {
        EXPECT_LE(reports[index - 1].sent, reports[index].sent);
        EXPECT_LE(reports[index - 1].received, reports[index].received);
        EXPECT_FALSE(reports[index - 1].isOver);
    }
    ASSERT_FALSE(reports.empty());
    EXPECT_TRUE(reports.back().isOver);
}

TEST(CurlNetworkAdapterProgress, CountsBothBodies) {
    LoopbackServer server([](const auto&, LoopbackServer::Connection& connection) {
        connection.respond(200, "", std::string(300'000, 'y'));
    });
    Heard heard;
    const auto adapter = adapterFor(server.url(), heard);
    Request request = test::get("/");
    request.method = HTTPMethod::POST;
    request.body = std::string(500'000, 'x');
    const Call call(*adapter, request);
    EXPECT_EQ(call.outcome()->status, 200);
    const auto reports = heard.of(call.token);
    expectOrder(reports);
    EXPECT_EQ(reports.back().sent, 500'000U);
    EXPECT_EQ(reports.back().toSend, 500'000U);
    EXPECT_EQ(reports.back().received, 300'000U);
    EXPECT_EQ(reports.back().toReceive, 300'000U);
}

TEST(CurlNetworkAdapterProgress, HearsOfBytesWhileTheyTravel) {
    Event half("the first half");
    LoopbackServer server([&](const auto&, LoopbackServer::Connection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4000\r\n\r\n" + std::string(2000, 'x'));
        half.wait();
        connection.send(std::string(2000, 'x'));
    });
    Heard heard;
    const auto adapter = adapterFor(server.url(), heard);
    const Call call(*adapter, test::get("/"));
    test::waitUntil("half of the body", [&] {
        const auto reports = heard.of(call.token);
        return !reports.empty() && reports.back().received == 2000;
    });
    EXPECT_EQ(heard.of(call.token).back().toReceive, 4000U);
    half.signal();
    EXPECT_EQ(call.outcome()->status, 200);
    expectOrder(heard.of(call.token));
}

TEST(CurlNetworkAdapterProgress, EndsForWhatIsCanceledAndForWhatTheAdapterEnds) {
    Event asked("two requests");
    LoopbackServer server([&](const auto&, LoopbackServer::Connection& connection) {
        asked.signal();
        connection.waitUntilClosed();
    });
    Heard heard;
    auto adapter = adapterFor(server.url(), heard);
    const Call first(*adapter, test::get("/first"));
    const Call second(*adapter, test::get("/second"));
    asked.wait(2);
    adapter->cancelRequest(first.token);
    EXPECT_EQ(first.text(), "unspecified: canceled");
    expectOrder(heard.of(first.token));
    adapter.reset();
    EXPECT_EQ(second.text(), "unspecified: canceled");
    expectOrder(heard.of(second.token));
}

TEST(CurlNetworkAdapterProgress, HearsNothingOfWhatIsRefused) {
    Heard heard;
    const auto adapter = adapterFor("http://127.0.0.1:1", heard);
    const Call call(*adapter, test::get("/\r\n"));
    EXPECT_FALSE(call.outcome().has_value());
    EXPECT_TRUE(heard.of(call.token).empty());
}

} // namespace
