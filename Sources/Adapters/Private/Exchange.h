#pragma once

// One HTTP exchange, from its request to its outcome, by way of redirects.

#include <zem/Adapters/CurlNetworkAdapter.h>
#include <zem/Adapters/Private/HTTPAddress.h>
#include <zem/Adapters/Private/HTTPHeaders.h>
#include <zem/Platform/Log.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <curl/curl.h>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace zem {

/// The body grows in the form in which it is handed over.
using ReceivedBody = std::variant<std::string, platform::Bytes>;

struct FreeEasyHandle {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using EasyHandle = std::unique_ptr<CURL, FreeEasyHandle>;

/// A handle for one transfer after the other. Throws std::runtime_error where libcurl refuses one.
EasyHandle makeEasyHandle(const CurlNetworkAdapter::Options& options);

struct ReceivedResponse {
    std::int64_t status = 0;
    std::map<std::string, std::string> headers;
    ReceivedBody body;
};

/// Used on the transfer thread only, once it has been submitted.
class Exchange {
  public:
    using Outcome = std::expected<ReceivedResponse, NetworkError>;
    using OnOutcome = std::function<void(Outcome)>;

    /// An error in `address` or `headers` is the outcome; nothing is sent then. `body` is empty and
    /// says what is to be received.
    Exchange(Request request, std::expected<HTTPAddress, std::string> address,
             std::expected<HTTPHeaders, std::string> headers, ReceivedBody body,
             OnOutcome onOutcome);
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    const std::string token;
    /// Counts the exchanges of an adapter in the order in which they were asked for.
    std::uint64_t number = 0;

    RequestPriority priority() const { return request.priority.value_or(RequestPriority::normal); }
    const std::optional<std::string>& refusal() const { return refused; }
    const std::string& origin() const { return address.origin; }
    /// Null while there is no transfer.
    CURL* handle() const { return easy.get(); }

    /// Makes the transfer to the present address, with a handle as it was made or given back.
    /// Throws std::runtime_error where libcurl refuses an option.
    CURL* start(const CurlNetworkAdapter::Options& options, EasyHandle handle);

    /// After a transfer that ended with `code`: what came of it, or nothing when a redirect leads
    /// on, to where `start` goes next.
    std::optional<Outcome> finish(CURLcode code);

    /// Ends the transfer, which no libcurl multi handle may hold any more, and gives its handle
    /// back.
    EasyHandle stop();

    void answer(Outcome outcome);

  private:
    struct Free {
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };

    void setRequest();
    void setHeaders();
    void setTransfer(const CurlNetworkAdapter::Options& options);
    bool hasBody() const;

    static int noteProgress(void* exchange, curl_off_t toReceive, curl_off_t received,
                            curl_off_t toSend, curl_off_t sent);
    static std::size_t receive(char* data, std::size_t size, std::size_t count, void* exchange);
    bool keep(std::string_view piece);

    std::expected<bool, std::string> followRedirect(std::int64_t status);
    ReceivedResponse takeResponse(std::int64_t status);

    Request request;
    HTTPAddress address;
    HTTPHeaders headers;
    std::optional<std::string> refused;
    OnOutcome onOutcome;

    // The field lines outlive the handle that reads them.
    std::unique_ptr<curl_slist, Free> lines;
    EasyHandle easy;
    std::array<char, CURL_ERROR_SIZE> errorText{};
    std::optional<std::chrono::steady_clock::time_point> deadline;
    int redirects = 0;
    std::size_t mostResponseBytes = 0;
    std::size_t received = 0;
    ReceivedBody body;
    std::string failure; ///< why `receive` ended the transfer
    platform::SignpostID signpost;
    /// The options' observer, once the exchange has started; null where there is none.
    const std::function<void(const CurlNetworkAdapter::Progress&)>* onProgress = nullptr;
    CurlNetworkAdapter::Progress progress;
};

} // namespace zem
