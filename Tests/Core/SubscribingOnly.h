#pragma once

// A service of which a test needs nothing but its way of subscribing.

#include <zem/Core/DataServiceProtocol.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace test {

class SubscribingOnly final : public zem::DataServiceProtocolDeprecated {
  public:
    using Subscribe = std::function<zem::Unsubscribe(zem::ResultCallback)>;

    explicit SubscribingOnly(Subscribe subscribe)
        : subscribe(std::move(subscribe)) {}

    zem::Unsubscribe subscribeToAdapter(std::string, std::string,
                                        std::optional<zem::AdapterRequestContext>,
                                        zem::ResultCallback callback) override {
        return subscribe(std::move(callback));
    }
    void invokeAdapter(std::string, std::string, std::optional<zem::AdapterRequestContext>,
                       zem::ResultCallback) override {}
    void invokeAdapterWithMetadata(std::string, std::string, zem::Metadata,
                                   zem::ResultCallback) override {}
    void invokeAdapterWithDraftToReplace(std::string, std::string, std::string,
                                         zem::ResultCallback) override {}
    void setRimvoRecordTTL(std::int64_t, std::function<void()>) override {}
    void setMetadataTTL(std::int64_t, std::function<void()>) override {}
    void createContentDocumentAndVersion(zem::CreateContentDocumentAndVersionConfig,
                                         std::optional<zem::Metadata>,
                                         zem::ResultCallback) override {}
    void createContentVersion(zem::CreateContentVersionConfig, std::optional<zem::Metadata>,
                              zem::ResultCallback) override {}

  private:
    const Subscribe subscribe;
};

} // namespace test
