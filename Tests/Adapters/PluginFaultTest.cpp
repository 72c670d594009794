// Network faults as JavaScript hears of them: one clear error each, and nothing is stored by half.

#include <zem/Adapters/CurlNetworkAdapter.h>
#include <zem/Adapters/EncryptedBinaryStore.h>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <Adapters/NetworkCalls.h>
#include <Adapters/NetworkRuntime.h>
#include <SqliteStore/Store.h>
#include <Support/LoopbackServer.h>
#include <Support/TemporaryFolder.h>

namespace {

using namespace zem;
using test::LoopbackServer;
using test::NetworkRuntime;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Connection = LoopbackServer::Connection;

/// More than a connection takes that nobody reads from.
constexpr std::size_t largeSize = 16'000'000;

void respondDone(const LoopbackServer::Request&, Connection& connection) {
    connection.respond(200, "", "done");
}

class PluginFaultTest : public testing::Test {
  protected:
    std::shared_ptr<CurlNetworkAdapter> adapterFor(const LoopbackServer& server,
                                                   double totalTimeout = 100'000) const {
        CurlNetworkAdapter::Options options;
        options.baseURL = server.url();
        options.totalTimeout = platform::Seconds(totalTimeout);
        return CurlNetworkAdapter::create(options);
    }

    std::shared_ptr<EncryptedBinaryStore> open(std::shared_ptr<Fetcher> fetcher = {}) const {
        EncryptedBinaryStore::Options options(folder.path(), test::keyAndSalt());
        options.fetcher = std::move(fetcher);
        return EncryptedBinaryStore::create(options);
    }

    /// The script that uploads a file, stored under a fresh handle.
    static std::string upload(EncryptedBinaryStore& store, const std::string& name,
                              std::size_t size = 1000) {
        const platform::Bytes bytes(size, static_cast<std::uint8_t>(name.back()));
        return fmt::format("upload('{}', ['file', '{}', 'plan.pdf', 'application/pdf']);", name,
                           store.store(bytes, "application/pdf", size));
    }

    /// All that JavaScript hears of an upload.
    std::vector<std::string> heardOfUpload(const LoopbackServer& server,
                                           double totalTimeout = 100'000) const {
        const auto store = open();
        NetworkRuntime runtime(adapterFor(server, totalTimeout), store);
        runtime.evaluate(upload(*store, "plan", largeSize));
        runtime.waitForHeard(1);
        auto heard = runtime.waitForAll();
        EXPECT_EQ(store->blobs().value().size(), 1u); // the file, to be uploaded again
        return heard;
    }

    /// All that JavaScript hears of caching a server's file. The store keeps no part of it.
    std::vector<std::string> heardOfCaching(const LoopbackServer& server,
                                            double totalTimeout = 100'000) const {
        std::vector<std::string> heard;
        {
            const auto adapter = adapterFor(server, totalTimeout);
            const auto store = open(adapter);
            NetworkRuntime runtime(adapter, store);
            runtime.evaluate("cache('" + server.url() + "/photo')");
            runtime.waitForHeard(1);
            heard = runtime.waitForAll();
            EXPECT_THAT(store->blobs().value(), IsEmpty());
        }
        EXPECT_THAT(open()->blobs().value(), IsEmpty());
        return heard;
    }

    const test::TemporaryFolder folder;
};

constexpr double soon = 0.3; // seconds

const auto isTimeout = AllOf(StartsWith("plan: timeout, "), HasSubstr(" timed out after "));

TEST_F(PluginFaultTest, AServerThatHangsIsOneTimeout) {
    const auto hanging = [](const auto&, Connection& connection) {
        connection.waitUntilClosed();
        connection.close();
    };
    const LoopbackServer server(hanging);
    EXPECT_THAT(heardOfCaching(server, soon), ElementsAre(HasSubstr(" timed out after ")));
    EXPECT_THAT(heardOfUpload(server, soon), ElementsAre(isTimeout));
}

TEST_F(PluginFaultTest, AServerThatDoesNotReadAnUploadIsOneTimeout) {
    test::Event over{"the end of the upload"};
    const LoopbackServer server(respondDone, [&](const auto&, Connection& connection) {
        over.wait();
        connection.reset();
    });
    EXPECT_THAT(heardOfUpload(server, soon), ElementsAre(isTimeout));
    over.signal();
    EXPECT_THAT(server.lines(), IsEmpty());
}

TEST_F(PluginFaultTest, AConnectionThatIsLostInTheMiddleOfAnUploadIsOneError) {
    const LoopbackServer server(respondDone,
                                [](const auto&, Connection& connection) { connection.reset(); });
    EXPECT_THAT(heardOfUpload(server), ElementsAre(StartsWith("plan: unspecified, ")));
    EXPECT_THAT(server.lines(), IsEmpty());
}

TEST_F(PluginFaultTest, AnAnswerToAnUploadThatIsNotReadArrives) {
    test::Event over{"the end of the upload"};
    const LoopbackServer server(respondDone, [&](const auto&, Connection& connection) {
        connection.respond(413, "", "too large");
        over.wait();
        connection.close();
    });
    EXPECT_THAT(heardOfUpload(server), ElementsAre("plan: 413 too large"));
    over.signal();
}

TEST_F(PluginFaultTest, AConnectionThatIsLostInTheMiddleOfADownloadIsOneError) {
    const LoopbackServer server([](const auto&, Connection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 3000000\r\n\r\n" +
                        std::string(2'000'000, 'x'));
        connection.close();
    });
    EXPECT_THAT(heardOfCaching(server),
                ElementsAre("not cached: transfer closed with 1000000 bytes remaining to read"));
    EXPECT_THAT(heardOfUpload(server),
                ElementsAre("plan: unspecified, transfer closed with 1000000 bytes remaining to "
                            "read"));
}

TEST_F(PluginFaultTest, CancellingOneOfFiveUploadsStopsThatOneOnly) {
    test::Event arrived{"the head of an upload"};
    test::Event cancelled{"the end of the cancelled upload"};
    const LoopbackServer server(respondDone, [&](const auto&, Connection&) {
        arrived.signal();
        cancelled.wait();
    });
    const auto store = open();
    NetworkRuntime runtime(adapterFor(server), store);
    for (const char* name : {"a", "b", "c", "d", "e"}) {
        runtime.evaluate(upload(*store, name, largeSize));
    }
    arrived.wait(5);
    runtime.evaluate("cancel('c')");
    EXPECT_THAT(runtime.waitForHeard(1), ElementsAre("c: unspecified, canceled"));
    cancelled.signal();
    runtime.waitForHeard(5);
    EXPECT_THAT(runtime.waitForAll(),
                testing::UnorderedElementsAre("c: unspecified, canceled", "a: 200 done",
                                              "b: 200 done", "d: 200 done", "e: 200 done"));
    // The server has received these requests whole.
    EXPECT_THAT(server.lines(),
                testing::UnorderedElementsAre("POST /a", "POST /b", "POST /d", "POST /e"));
    for (const auto& request : server.requests()) {
        EXPECT_THAT(request.body, HasSubstr(std::string(largeSize, request.target.back())));
    }
}

TEST_F(PluginFaultTest, TheTotalTimeoutHoldsAcrossRedirects) {
    using namespace std::chrono_literals;
    // Each answer takes a fifth of the time that the exchange has.
    const LoopbackServer server([](const auto& request, Connection& connection) {
        connection.waitUntilClosed(100ms);
        connection.respond(307, "Location: " + request.target + "x\r\n", "");
    });
    NetworkRuntime runtime(adapterFor(server, 0.5), open());
    runtime.evaluate("send('go', { body: 'text' })");
    runtime.waitForHeard(1);
    EXPECT_THAT(runtime.waitForAll(), ElementsAre(StartsWith("go: timeout, ")));
}

} // namespace
