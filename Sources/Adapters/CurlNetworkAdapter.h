#pragma once

// HTTP for applications that bring no network stack of their own.

#include <zem/Adapters/Fetcher.h>
#include <zem/Platform/RunLoop.h>
#include <zem/TesselPluginZEM/NetworkAdapter/NetworkAdapter.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace zem {

class Transfers;
struct HTTPAddress;

/// Exchanges run on one thread of the adapter's own, and every callback comes on that thread: one
/// that takes long holds up the other exchanges. A callback may come before the function that took
/// it has returned. It may use the adapter, and may drop the last reference to it.
///
/// - Requests start by priority, first come first served within one, and at most
///   `mostAtOncePerHost` run at once with one server (scheme, host and port). HTTP/2 is spoken
///   where a server offers it over TLS.
/// - Only http and https are spoken, certificates are verified, and the proxies and credentials of
///   the environment are not used. Compressed responses are unpacked.
/// - A redirect (301, 302, 303, 307, 308) is followed at most ten times, to http or https, and from
///   https only to https. Credentials ("Authorization", "Cookie") stay with the server that the
///   request names. POST becomes GET after 301 and 302, and every method but HEAD after 303.
/// - Repeated fields of a response are joined with ", ", under the name as it first came.
///
/// Where there is no response the error is `timeout` when a timeout has passed, else
/// `unspecified`. Its message holds no path, no query, no field and no credentials.
class CurlNetworkAdapter final : public NetworkAdapter, public Fetcher {
  public:
    /// How far an exchange has come: bytes of bodies as they travel, which may be compressed.
    struct Progress {
        std::string token = {}; ///< that of `sendRequest`; a token of its own for a fetch
        std::uint64_t sent = 0;
        std::uint64_t toSend = 0; ///< 0 if there is no body
        std::uint64_t received = 0;
        std::uint64_t toReceive = 0; ///< 0 while it is not known
        bool isOver = false;
    };

    struct Options {
        /// Where requests go that name no host: an http or https URL. Its path, if it has one,
        /// leads theirs: "https://x.example/v2" and "/records" make "https://x.example/v2/records".
        std::string baseURL;
        int mostAtOncePerHost = 6;
        /// Until the connection stands, TLS included.
        platform::Seconds connectTimeout{30};
        /// From the start of an exchange to its end, redirects included. The time that a request
        /// waits for its turn does not count.
        platform::Seconds totalTimeout{600};
        /// The most bytes of a response's body, unpacked. A longer body is an error.
        std::size_t mostResponseBytes = std::size_t{256} * 1024 * 1024;
        /// A PEM file of the authorities that are trusted; the system's when empty.
        std::filesystem::path certificateAuthorities = {};
        /// Hears of every exchange that was started: often while bytes travel, and once with
        /// `isOver`, before its callback. After a redirect it counts anew. Called on the transfer
        /// thread; it returns soon and throws nothing. Without it nothing is counted.
        std::function<void(const Progress&)> onProgress = {};
    };

    /// Throws std::invalid_argument, which says what was expected, for options that make no sense.
    static std::shared_ptr<CurlNetworkAdapter> create(Options options);

    /// Every exchange that is still out is answered with `unspecified` and "canceled". Waits for no
    /// server and for no callback: the last answers may come after this returns.
    ~CurlNetworkAdapter() override;

    /// Refuses, by way of `onError` and before anything is sent, a path, a host and header fields
    /// that could not be sent as they are, or that would begin another request. The fields
    /// "Content-Length" and "Transfer-Encoding" are the adapter's to write; given ones are left
    /// out. The body is sent from `request`, without a copy. A body of HEAD is not sent.
    ///
    /// A response body that is not valid UTF-8 is an error: text cannot hold it.
    std::string sendRequest(Request request, OnResponse onResponse, OnError onError) override;

    /// Stops the transfer. `onError` follows with `unspecified` and "canceled", unless a callback
    /// was called already or is being called.
    void cancelRequest(const std::string& token) override;

    /// A GET at normal priority. Any response but a 2xx is an error.
    void fetch(const platform::URL& url, Completion completion) override;

  private:
    CurlNetworkAdapter(std::unique_ptr<const HTTPAddress> base,
                       std::shared_ptr<Transfers> transfers);

    const std::unique_ptr<const HTTPAddress> base;
    const std::shared_ptr<Transfers> transfers;
};

} // namespace zem
