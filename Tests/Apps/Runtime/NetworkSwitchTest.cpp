// Requests, cancellations and the switch at once, from several threads: each request is answered
// once.

#include <gmock/gmock.h>

#include <Apps/zem/Runtime/Network.h>
#include <Support/LoopbackServer.h>
#include <Support/Wait.h>
#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using test::LoopbackServer;
using zem::NetworkError;
using zem::Request;
using zem::Response;
using zem::host::Network;

constexpr std::size_t senders = 3;
constexpr std::size_t requestsOfEach = 60;

struct Answers {
    std::array<std::atomic<int>, senders * requestsOfEach> counts{};
    std::atomic<std::size_t> arrived = 0;
    std::atomic<std::size_t> unexpected = 0;
};

/// Answers "/now", and nothing else.
void respond(const LoopbackServer::Request& request, LoopbackServer::Connection& connection) {
    if (request.target == "/now") {
        connection.respond(200, "", "");
    } else {
        connection.waitUntilClosed();
    }
}

std::string send(Network& network, std::size_t number, const std::shared_ptr<Answers>& answers) {
    Request request;
    request.path = number % 2 == 0 ? "/now" : "/never";
    const auto note = [answers, number](bool isExpected) {
        ++answers->counts.at(number);
        answers->unexpected += isExpected ? 0 : 1;
        ++answers->arrived;
    };
    return network.sendRequest(
        std::move(request), [note](const Response& response) { note(response.status == 200); },
        [note](const NetworkError& error) {
            note(error == NetworkError{zem::NetworkErrorType::unspecified, "offline"} ||
                 error == NetworkError{zem::NetworkErrorType::unspecified, "canceled"});
        });
}

TEST(NetworkSwitch, EachRequestIsAnsweredOnceHoweverItEnds) {
    LoopbackServer server(respond);
    zem::host::Options options;
    options.url = server.url();
    const auto network = Network::create(options, nullptr);
    const auto answers = std::make_shared<Answers>();
    std::atomic<std::size_t> sent = 0;
    std::vector<std::thread> threads;
    for (std::size_t sender = 0; sender < senders; ++sender) {
        threads.emplace_back([&, sender] {
            for (std::size_t each = 0; each < requestsOfEach; ++each) {
                const std::string token = send(*network, sender * requestsOfEach + each, answers);
                if (each % 3 == 0) {
                    network->cancelRequest(token);
                }
                ++sent;
            }
        });
    }
    // Longer on than off, so that many exchanges are under way each time it goes off.
    bool isOnline = true;
    for (std::size_t next = 20; next < senders * requestsOfEach; next += isOnline ? 20 : 5) {
        test::waitUntil("more requests", [&] { return sent >= next; });
        isOnline = !isOnline;
        network->setOnline(isOnline);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    network->setOnline(false);
    test::waitUntil("all answers", [&] { return answers->arrived == senders * requestsOfEach; });
    for (const auto& count : answers->counts) {
        EXPECT_EQ(count, 1);
    }
    EXPECT_EQ(answers->unexpected, 0U);
}

} // namespace
