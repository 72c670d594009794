#pragma once

// Requests to a network adapter, and the one answer that each gets.

#include <zem/Adapters/CurlNetworkAdapter.h>

#include <Support/Wait.h>
#include <expected>
#include <memory>
#include <string>
#include <utility>

namespace test {

using Outcome = std::expected<zem::Response, zem::NetworkError>;

/// "200 body", "timeout: message".
inline std::string textOf(const Outcome& outcome) {
    if (outcome) {
        return std::to_string(outcome->status) + " " + outcome->body.value_or("(none)");
    }
    const bool timedOut = outcome.error().type == zem::NetworkErrorType::timeout;
    return std::string(timedOut ? "timeout: " : "unspecified: ") +
           outcome.error().message.value_or("(none)");
}

/// One exchange on its way. A second answer of it fails the test that looks at `answers`.
class Call {
  public:
    Call(zem::NetworkAdapter& adapter, zem::Request request)
        : what(std::string("the answer to ") + request.path)
        , arrival(std::make_shared<Arrival<Outcome>>(what)) {
        token = adapter.sendRequest(
            std::move(request), [to = arrival](zem::Response response) { to->put(response); },
            [to = arrival](zem::NetworkError error) { to->put(std::unexpected(error)); });
    }

    std::string token;

    Outcome outcome() const { return arrival->get(); }
    std::string text() const { return textOf(outcome()); }
    int answers() const { return arrival->count(); }

  private:
    std::string what;
    std::shared_ptr<Arrival<Outcome>> arrival;
};

inline zem::Request get(std::string path) {
    zem::Request request;
    request.path = std::move(path);
    return request;
}

inline std::shared_ptr<zem::CurlNetworkAdapter> adapterFor(const std::string& baseURL) {
    zem::CurlNetworkAdapter::Options options;
    options.baseURL = baseURL;
    return zem::CurlNetworkAdapter::create(options);
}

} // namespace test
