#pragma once

// The runtime's way to the application's network stack.

#include <zem/Core/BinaryStore.h>
#include <zem/Platform/Operation.h>
#include <zem/Tessel/Callback.h>
#include <zem/Tessel/Plugin.h>
#include <zem/TesselPluginZEM/NetworkAdapter/NetworkAdapter.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zem {

/// The priority at which an exchange's result waits for the engine: 8 less 8 for each case before
/// its own, and that of `normal` where there is none.
platform::QueuePriority queuePriority(std::optional<RequestPriority> priority);

/// Offers `sendRequest(request, onResponse, onError)`, which returns the network adapter's token,
/// and `cancelRequest(token)`. An upload that names files in the binary store is sent as a
/// multipart form; where that cannot be built, it is sent as it was received.
///
/// Results reach the runtime one at a time, of those that wait the highest priority first, in the
/// context's lane: never on the thread on which the network adapter calls back, which does not wait
/// for the engine. They reach it also when the plugin is gone. Thread-safe.
class NetworkAdapterPlugin final : public tessel::Plugin,
                                   public std::enable_shared_from_this<NetworkAdapterPlugin> {
  public:
    /// Neither may be null.
    static std::shared_ptr<NetworkAdapterPlugin>
    create(std::shared_ptr<NetworkAdapter> networkAdapter,
           std::shared_ptr<BinaryStore> binaryStore);

    std::string_view namespace_() const override { return "ZemNetworkAdapter"; }
    void bind(tessel::Connection& to) override;

    /// Whether the body is taken for a list of form fields. A plain search for text: a body that
    /// mentions "namedEntries" elsewhere is taken for one too, and then sent as it is.
    static bool shouldBuildFormDataRequest(const Request& request);

  private:
    NetworkAdapterPlugin(std::shared_ptr<NetworkAdapter> networkAdapter,
                         std::shared_ptr<BinaryStore> binaryStore);

    std::string sendRequest(Request request, const tessel::Callback<Response>& onResponse,
                            const tessel::Callback<NetworkError>& onError);
    void cancelRequest(const std::string& token);

    /// The request with its form, or as it was received where there is no form to build.
    Request multipartFormRequest(Request request) const;

    const std::shared_ptr<NetworkAdapter> networkAdapter;
    const std::shared_ptr<BinaryStore> binaryStore;
    const std::shared_ptr<platform::OperationQueue> responseQueue;
};

} // namespace zem
