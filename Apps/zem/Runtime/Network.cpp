#include "Network.h"

#include "Process/Failure.h"
#include <zem/Platform/UUID.h>

#include <fmt/format.h>

#include <stdexcept>
#include <string_view>
#include <utility>

namespace zem::host {

namespace {

constexpr const char* offline = "offline";

/// Gives hosts without a scheme theirs. No name in this domain exists.
constexpr const char* noBase = "https://no-base.invalid";

CurlNetworkAdapter::Options adapterOptions(const Options& options, Network::OnProgress onProgress) {
    CurlNetworkAdapter::Options made;
    made.baseURL = options.url.value_or(noBase);
    made.totalTimeout = platform::Seconds(options.timeout);
    made.onProgress = std::move(onProgress);
    return made;
}

/// The adapter's error about one of its options, in the words of the command line.
Failure wrongOption(const Options& options, std::string_view error) {
    const std::string_view reason = error.substr(error.find(": ") + 2);
    return {exitUsage, error.find(", totalTimeout: ") == std::string_view::npos
                           ? fmt::format("--url {}: {}", options.url.value_or(""), reason)
                           : fmt::format("--timeout {:g}: {}", options.timeout, reason)};
}

std::string refuse(const NetworkAdapter::OnError& onError, std::string message) {
    onError({NetworkErrorType::unspecified, std::move(message)});
    return platform::makeUUID();
}

} // namespace

std::shared_ptr<Network> Network::create(const Options& options, OnProgress onProgress) {
    std::shared_ptr<Network> network(
        new Network(adapterOptions(options, std::move(onProgress)), options.url.has_value()));
    try {
        network->setOnline(true);
    } catch (const std::invalid_argument& error) {
        throw wrongOption(options, error.what());
    }
    network->setOnline(!options.offline);
    return network;
}

Network::Network(CurlNetworkAdapter::Options options, bool hasBase)
    : options(std::move(options))
    , hasBase(hasBase) {}

void Network::setOnline(bool isOnline) {
    Line next;
    if (isOnline) {
        if (current().adapter != nullptr) {
            return;
        }
        next = {CurlNetworkAdapter::create(options), std::make_shared<std::atomic<bool>>(false)};
    }
    {
        const platform::Lock lock(mutex);
        std::swap(line, next);
    }
    if (next.adapter != nullptr) {
        *next.isCut = true; // before its exchanges are answered
    }
}

Network::Line Network::current() const {
    const platform::Lock lock(mutex);
    return line;
}

std::string Network::sendRequest(Request request, OnResponse onResponse, OnError onError) {
    const Line used = current();
    if (used.adapter == nullptr) {
        return refuse(onError, offline);
    }
    if (!request.host && !hasBase) {
        return refuse(onError, "the request names no host: expected --url BASE");
    }
    return used.adapter->sendRequest(
        std::move(request), std::move(onResponse),
        [isCut = used.isCut, onError = std::move(onError)](NetworkError error) {
            onError(*isCut ? NetworkError{NetworkErrorType::unspecified, offline}
                           : std::move(error));
        });
}

void Network::cancelRequest(const std::string& token) {
    if (const Line used = current(); used.adapter != nullptr) {
        used.adapter->cancelRequest(token);
    }
}

void Network::fetch(const platform::URL& url, Completion completion) {
    const Line used = current();
    if (used.adapter == nullptr) {
        completion(std::unexpected(offline));
        return;
    }
    used.adapter->fetch(url, [isCut = used.isCut, completion = std::move(completion)](
                                 std::expected<FetchedContent, std::string> fetched) {
        if (!fetched && *isCut) {
            fetched = std::unexpected(offline);
        }
        completion(std::move(fetched));
    });
}

} // namespace zem::host
