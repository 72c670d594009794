#pragma once

// The data service before there is a runtime: it records what is asked for.

#include <zem/Core/DataServiceProtocol.h>
#include <zem/Core/DataServiceState.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>

#include <memory>
#include <vector>

namespace zem {

class SubscriptionList;

/// No callback is called while it batches: results come after `takeState`, from the service that
/// is made of the state. Of a TTL that is set more than once, only the last request counts; the
/// completions of those before are dropped without being called. Thread-safe.
class BatchingDataService final : public DataServiceProtocolDeprecated,
                                  public DataServiceStateProviding {
  public:
    /// The age of subscriptions is counted on the calling thread's run loop's clock.
    static std::shared_ptr<BatchingDataService> create();
    ~BatchingDataService() override;

    using DataServiceProtocol::invokeAdapter;
    using DataServiceProtocol::invokeAdapterWithDraftToReplace;
    using DataServiceProtocol::invokeAdapterWithMetadata;
    using DataServiceProtocol::subscribeToAdapter;

    void invokeAdapter(std::string adapterId, std::string config,
                       std::optional<AdapterRequestContext> requestContext,
                       ResultCallback callback) override;
    void invokeAdapterWithMetadata(std::string adapterId, std::string config, Metadata metadata,
                                   ResultCallback callback) override;
    void invokeAdapterWithDraftToReplace(std::string adapterId, std::string config,
                                         std::string draftIdToReplace,
                                         ResultCallback callback) override;
    [[nodiscard]] Unsubscribe
    subscribeToAdapter(std::string adapterId, std::string config,
                       std::optional<AdapterRequestContext> requestContext,
                       ResultCallback callback) override;
    void setRimvoRecordTTL(std::int64_t ttl, std::function<void()> completion) override;
    void setMetadataTTL(std::int64_t ttl, std::function<void()> completion) override;
    void createContentDocumentAndVersion(CreateContentDocumentAndVersionConfig config,
                                         std::optional<Metadata> metadata,
                                         ResultCallback callback) override;
    void createContentVersion(CreateContentVersionConfig config, std::optional<Metadata> metadata,
                              ResultCallback callback) override;

    /// The requests recorded since the last time. Requests that come later stay recorded here.
    [[nodiscard]] DataServiceState takeState() override;

    /// The last values asked for; a hand-over does not clear them.
    std::optional<std::int64_t> lastRecordTTL() const;
    std::optional<std::int64_t> lastMetadataTTL() const;

  private:
    std::weak_ptr<BatchingDataService> weakSelf() {
        return std::static_pointer_cast<BatchingDataService>(shared_from_this());
    }
    BatchingDataService();
    void record(MutatingWireSubscription call);
    void record(ContentVersionOperation operation);
    void remove(const WireSubscription& unsubscribable);

    const std::shared_ptr<platform::RunLoop> runLoop = platform::RunLoop::current();
    /// The service that is made of the state calls back on it.
    const std::shared_ptr<platform::SerialQueue> callbackQueue;
    mutable platform::Mutex lock;
    std::unique_ptr<SubscriptionList> subscriptions;
    std::vector<std::shared_ptr<MutatingWireSubscription>> mutatingSubscriptions;
    std::vector<std::shared_ptr<ContentVersionOperation>> contentVersionOperations;
    std::optional<std::int64_t> recordTTL;
    std::optional<std::int64_t> metadataTTL;
    std::optional<TTLWrapper> recordTTLBatch;
    std::optional<TTLWrapper> metadataTTLBatch;
};

} // namespace zem
