#pragma once

// The application's network stack, as the runtime reaches it.

#include <zem/TesselPluginZEM/NetworkAdapter/Request.h>

#include <functional>
#include <string>

namespace zem {

/// Performs HTTP exchanges. Implemented by the application, or ready-made: see
/// Adapters/CurlNetworkAdapter.h. Called from any thread, several at once, with no lock held.
///
/// An exchange addresses `host`, or the adapter's default host, with `path`, appends `queryParams`
/// as the query, sends `headers` as given, and as its body `bodyData`, else `body` as UTF-8. With a
/// `boundary` it sends the "Content-Type" of a multipart form, too. `priority` and
/// `observabilityContext` are hints.
class NetworkAdapter {
  public:
    using OnResponse = std::function<void(Response)>;
    using OnError = std::function<void(NetworkError)>;

    virtual ~NetworkAdapter() = default;

    /// Starts the exchange and returns at once with a token that identifies it. Calls exactly one
    /// of the callbacks, once, on any thread, and keeps both until then. It may call it before
    /// returning.
    virtual std::string sendRequest(Request request, OnResponse onResponse, OnError onError) = 0;

    /// Abandons the exchange; a callback may follow all the same. An unknown token is ignored.
    virtual void cancelRequest(const std::string& token) = 0;
};

} // namespace zem
