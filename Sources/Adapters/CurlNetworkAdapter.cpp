#include <zem/Adapters/CurlNetworkAdapter.h>
#include <zem/Adapters/Private/Transfers.h>
#include <zem/Platform/UTF8.h>

#include <stdexcept>
#include <utility>

namespace zem {

namespace {

/// Far above any use, and within what libcurl counts in.
constexpr platform::Seconds longestTimeout = std::chrono::hours(24 * 24);

[[noreturn]] void refuse(const std::string& option, const std::string& expectation) {
    throw std::invalid_argument("CurlNetworkAdapter, " + option + ": " + expectation);
}

void checkTimeout(const std::string& option, platform::Seconds timeout) {
    if (!(timeout > platform::Seconds(0) && timeout <= longestTimeout)) {
        refuse(option, "expected more than 0 and at most 2073600 seconds");
    }
}

void check(const CurlNetworkAdapter::Options& options) {
    if (options.mostAtOncePerHost < 1) {
        refuse("mostAtOncePerHost",
               "expected at least 1, found " + std::to_string(options.mostAtOncePerHost));
    }
    checkTimeout("connectTimeout", options.connectTimeout);
    checkTimeout("totalTimeout", options.totalTimeout);
    if (!options.certificateAuthorities.empty() &&
        !std::filesystem::is_regular_file(options.certificateAuthorities)) {
        refuse("certificateAuthorities",
               "expected a file, found none at " + options.certificateAuthorities.string());
    }
}

HTTPAddress checkedBase(const std::string& url) {
    auto base = parseBase(url);
    if (!base) {
        refuse("baseURL", base.error());
    }
    return *std::move(base);
}

void answer(Exchange::Outcome outcome, const NetworkAdapter::OnResponse& onResponse,
            const NetworkAdapter::OnError& onError) {
    if (!outcome) {
        onError(std::move(outcome.error()));
        return;
    }
    auto& text = std::get<std::string>(outcome->body);
    if (!platform::isUTF8(text)) {
        onError({NetworkErrorType::unspecified,
                 "the response body is not valid UTF-8 text; the binary store's cacheBinary keeps "
                 "its bytes"});
        return;
    }
    Response response{outcome->status, std::move(outcome->headers), std::nullopt};
    if (!text.empty()) {
        response.body = std::move(text);
    }
    onResponse(std::move(response));
}

/// "text/html" of "text/html; charset=utf-8"; empty when there is no such field.
std::string mimeTypeOf(const std::map<std::string, std::string>& headers) {
    for (const auto& [name, value] : headers) {
        if (isSameField(name, "Content-Type")) {
            const std::string type = value.substr(0, value.find(';'));
            return type.substr(0, type.find_last_not_of(" \t") + 1);
        }
    }
    return {};
}

std::expected<FetchedContent, std::string> contentOf(Exchange::Outcome outcome) {
    if (!outcome) {
        return std::unexpected(outcome.error().message.value_or(""));
    }
    if (outcome->status < 200 || outcome->status > 299) {
        return std::unexpected("the server answered with status " +
                               std::to_string(outcome->status));
    }
    return FetchedContent{std::get<platform::Bytes>(std::move(outcome->body)),
                          mimeTypeOf(outcome->headers)};
}

} // namespace

std::shared_ptr<CurlNetworkAdapter> CurlNetworkAdapter::create(Options options) {
    check(options);
    auto base = std::make_unique<const HTTPAddress>(checkedBase(options.baseURL));
    return std::shared_ptr<CurlNetworkAdapter>(
        new CurlNetworkAdapter(std::move(base), Transfers::start(std::move(options))));
}

CurlNetworkAdapter::CurlNetworkAdapter(std::unique_ptr<const HTTPAddress> base,
                                       std::shared_ptr<Transfers> transfers)
    : base(std::move(base))
    , transfers(std::move(transfers)) {}

CurlNetworkAdapter::~CurlNetworkAdapter() {
    transfers->end();
}

std::string CurlNetworkAdapter::sendRequest(Request request, OnResponse onResponse,
                                            OnError onError) {
    auto address = addressOf(request, *base);
    auto headers = headersOf(request);
    auto exchange = std::make_unique<Exchange>(
        std::move(request), std::move(address), std::move(headers), std::string(),
        [onResponse = std::move(onResponse), onError = std::move(onError)](
            Exchange::Outcome outcome) { answer(std::move(outcome), onResponse, onError); });
    std::string token = exchange->token;
    transfers->submit(std::move(exchange));
    return token;
}

void CurlNetworkAdapter::cancelRequest(const std::string& token) {
    transfers->cancel(token);
}

void CurlNetworkAdapter::fetch(const platform::URL& url, Completion completion) {
    transfers->submit(std::make_unique<Exchange>(
        Request(), parseAddress(url.absoluteString()), HTTPHeaders(), platform::Bytes(),
        [completion = std::move(completion)](Exchange::Outcome outcome) {
            completion(contentOf(std::move(outcome)));
        }));
}

} // namespace zem
