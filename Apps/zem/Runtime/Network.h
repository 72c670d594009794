#pragma once

// The run's way to the network.

#include "Process/Options.h"
#include <zem/Adapters/CurlNetworkAdapter.h>
#include <zem/Adapters/Fetcher.h>
#include <zem/Platform/Mutex.h>
#include <zem/TesselPluginZEM/NetworkAdapter/NetworkAdapter.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace zem::host {

/// HTTP that can be switched off. While it is off every request is answered with `unspecified` and
/// "offline", before `sendRequest` returns. Switching it off ends the exchanges under way, as
/// losing coverage does: they are answered the same, each once. Thread-safe.
///
/// Otherwise it does what CurlNetworkAdapter does. Without `--url` a request that names no host is
/// answered with an error, and a host without a scheme is reached by https.
class Network final : public NetworkAdapter, public Fetcher {
  public:
    using OnProgress = std::function<void(const CurlNetworkAdapter::Progress&)>;

    /// Throws a Failure if the base URL or the timeout makes no sense. `onProgress` is as that of a
    /// CurlNetworkAdapter, and may be empty.
    static std::shared_ptr<Network> create(const Options& options, OnProgress onProgress);

    /// Closes all connections before it returns when it switches off; waits for no server. Answers
    /// of exchanges that it ends may come a moment later, on the adapter's thread. Throws
    /// std::runtime_error when the adapter cannot be started.
    void setOnline(bool isOnline);

    std::string sendRequest(Request request, OnResponse onResponse, OnError onError) override;
    void cancelRequest(const std::string& token) override;
    void fetch(const platform::URL& url, Completion completion) override;

  private:
    /// From switching on to switching off.
    struct Line {
        std::shared_ptr<CurlNetworkAdapter> adapter; ///< null while it is off
        std::shared_ptr<std::atomic<bool>> isCut;
    };

    Network(CurlNetworkAdapter::Options options, bool hasBase);
    Line current() const;

    const CurlNetworkAdapter::Options options;
    const bool hasBase;
    mutable platform::Mutex mutex;
    Line line; // guarded by `mutex`
};

} // namespace zem::host
