#include <zem/Core/BatchingDataService.h>
#include <zem/Core/Private/CallbackQueue.h>
#include <zem/Core/Private/SubscriptionList.h>

#include <utility>

namespace zem {

BatchingDataService::BatchingDataService()
    : callbackQueue(makeCallbackQueue())
    , subscriptions(std::make_unique<SubscriptionList>()) {}

BatchingDataService::~BatchingDataService() = default;

std::shared_ptr<BatchingDataService> BatchingDataService::create() {
    return std::shared_ptr<BatchingDataService>(new BatchingDataService);
}

void BatchingDataService::record(MutatingWireSubscription call) {
    auto recorded = std::make_shared<MutatingWireSubscription>(std::move(call));
    const platform::Lock held(lock);
    mutatingSubscriptions.push_back(std::move(recorded));
}

void BatchingDataService::record(ContentVersionOperation operation) {
    auto recorded = std::make_shared<ContentVersionOperation>(std::move(operation));
    const platform::Lock held(lock);
    contentVersionOperations.push_back(std::move(recorded));
}

void BatchingDataService::invokeAdapter(std::string adapterId, std::string config,
                                        std::optional<AdapterRequestContext> requestContext,
                                        ResultCallback callback) {
    record(MutatingWireSubscription{std::move(adapterId), std::move(config), std::nullopt,
                                    std::move(requestContext), std::move(callback)});
}

void BatchingDataService::invokeAdapterWithMetadata(std::string adapterId, std::string config,
                                                    Metadata metadata, ResultCallback callback) {
    record(MutatingWireSubscription{std::move(adapterId), std::move(config),
                                    SpecialOperation::setMetadata(std::move(metadata)),
                                    std::nullopt, std::move(callback)});
}

void BatchingDataService::invokeAdapterWithDraftToReplace(std::string adapterId, std::string config,
                                                          std::string draftIdToReplace,
                                                          ResultCallback callback) {
    record(MutatingWireSubscription{std::move(adapterId), std::move(config),
                                    SpecialOperation::replaceDraft(std::move(draftIdToReplace)),
                                    std::nullopt, std::move(callback)});
}

Unsubscribe
BatchingDataService::subscribeToAdapter(std::string adapterId, std::string config,
                                        std::optional<AdapterRequestContext> requestContext,
                                        ResultCallback callback) {
    // A queue of its own: the one that the services share is for those with a runtime.
    const auto wire =
        WireSubscription::create(std::move(adapterId), std::move(config), std::move(requestContext),
                                 platform::OperationQueue::create(), callbackQueue);
    wire->setCleanupFunc([weak = weakSelf(), weakWire = std::weak_ptr(wire)] {
        const auto service = weak.lock();
        const auto removed = weakWire.lock();
        if (service != nullptr && removed != nullptr) {
            service->remove(*removed);
        }
    });
    auto subscription =
        std::make_shared<SubscriptionList::Subscription>(std::move(callback), runLoop->now(), wire);
    const platform::Lock held(lock);
    subscriptions->append(std::move(subscription));
    return wire->cleanupHandle();
}

void BatchingDataService::remove(const WireSubscription& unsubscribable) {
    std::shared_ptr<SubscriptionList::Subscription> removed;
    const platform::Lock held(lock);
    removed = subscriptions->remove(unsubscribable);
}

void BatchingDataService::setRimvoRecordTTL(std::int64_t ttl, std::function<void()> completion) {
    std::optional<TTLWrapper> superseded = TTLWrapper{ttl, std::move(completion)};
    const platform::Lock held(lock);
    recordTTL = ttl;
    std::swap(recordTTLBatch, superseded);
}

void BatchingDataService::setMetadataTTL(std::int64_t ttl, std::function<void()> completion) {
    std::optional<TTLWrapper> superseded = TTLWrapper{ttl, std::move(completion)};
    const platform::Lock held(lock);
    metadataTTL = ttl;
    std::swap(metadataTTLBatch, superseded);
}

void BatchingDataService::createContentDocumentAndVersion(
    CreateContentDocumentAndVersionConfig config, std::optional<Metadata> metadata,
    ResultCallback callback) {
    record(ContentVersionOperation{std::move(config), std::move(metadata), std::move(callback)});
}

void BatchingDataService::createContentVersion(CreateContentVersionConfig config,
                                               std::optional<Metadata> metadata,
                                               ResultCallback callback) {
    record(ContentVersionOperation{std::move(config), std::move(metadata), std::move(callback)});
}

DataServiceState BatchingDataService::takeState() {
    const platform::Lock held(lock);
    return DataServiceState{subscriptions->takeAll(), std::exchange(mutatingSubscriptions, {}),
                            std::exchange(contentVersionOperations, {}),
                            std::exchange(recordTTLBatch, std::nullopt),
                            std::exchange(metadataTTLBatch, std::nullopt)};
}

std::optional<std::int64_t> BatchingDataService::lastRecordTTL() const {
    const platform::Lock held(lock);
    return recordTTL;
}

std::optional<std::int64_t> BatchingDataService::lastMetadataTTL() const {
    const platform::Lock held(lock);
    return metadataTTL;
}

} // namespace zem
