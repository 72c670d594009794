#include <zem/Core/BatchingDraftManager.h>
#include <zem/Platform/UUID.h>

#include <optional>
#include <utility>

namespace zem {

// A replaced request is destroyed after the lock was given back: its destructor runs the
// application's code. So it is swapped with the new one, never assigned.

std::shared_ptr<BatchingDraftManager> BatchingDraftManager::create() {
    return std::shared_ptr<BatchingDraftManager>(new BatchingDraftManager);
}

void BatchingDraftManager::getDraftQueue(DraftManagerStateCallback response) {
    const platform::Lock held(lock);
    batch->queueRequest.push_back(std::move(response));
}

void BatchingDraftManager::removeItem(std::string withId, DraftManagerStateCallback completion) {
    const platform::Lock held(lock);
    batch->removeRequest[std::move(withId)].swap(completion);
}

void BatchingDraftManager::replaceItem(std::string actionId, std::string withId,
                                       DraftQueueItemCallback completion) {
    const platform::Lock held(lock);
    batch->replaceRequest.push_back(
        {std::move(actionId), std::move(withId), std::move(completion)});
}

void BatchingDraftManager::mergeAction(std::string sourceId, std::string targetId,
                                       DraftQueueItemCallback completion) {
    const platform::Lock held(lock);
    batch->mergeRequests.push_back(
        {std::move(sourceId), std::move(targetId), std::move(completion)});
}

void BatchingDraftManager::setMetadata(std::string actionId, Metadata metadata,
                                       DraftQueueItemCallback completion) {
    const platform::Lock held(lock);
    auto& [recordedMetadata, recordedCompletion] = batch->setMetadataRequest[std::move(actionId)];
    recordedMetadata.swap(metadata);
    recordedCompletion.swap(completion);
}

std::shared_ptr<DraftManagerUnsubscribe>
BatchingDraftManager::registerOnChangedListener(DraftQueueChangedListener listener) {
    const std::string identifier = platform::makeUUID();
    const auto handle =
        std::make_shared<DraftManagerUnsubscribe>([weak = weak_from_this(), identifier] {
            if (const auto manager = weak.lock()) {
                manager->removeListener(identifier);
            }
        });
    auto subscription = std::make_shared<DraftManagerBatch::Subscription>(std::move(listener),
                                                                          runLoop->now(), handle);
    const platform::Lock held(lock);
    batch->subscriptions.emplace(identifier, std::move(subscription));
    return handle;
}

void BatchingDraftManager::removeListener(const std::string& identifier) {
    decltype(batch->subscriptions)::node_type removed;
    const platform::Lock held(lock);
    removed = batch->subscriptions.extract(identifier);
}

void BatchingDraftManager::startQueue() {
    const platform::Lock held(lock);
    batch->started = true;
}

void BatchingDraftManager::stopQueue() {
    const platform::Lock held(lock);
    batch->started = false;
}

void BatchingDraftManager::setExternalActionExecutor(ExternalActionExecutor executor,
                                                     DraftManagerCompletion completion) {
    std::optional superseded =
        BatchExternalActionExecutor{std::move(executor), std::move(completion)};
    const platform::Lock held(lock);
    batch->externalActionExecutor.swap(superseded);
}

void BatchingDraftManager::addExternalAction(std::string targetId, Metadata metadata,
                                             DraftQueueItemCallback completion) {
    const platform::Lock held(lock);
    batch->externalActions.push_back(
        {std::move(targetId), std::move(metadata), std::move(completion)});
}

std::shared_ptr<const DraftManagerBatch> BatchingDraftManager::batching() const {
    const platform::Lock held(lock);
    return batch;
}

std::shared_ptr<const DraftManagerBatch> BatchingDraftManager::takeBatching() {
    const platform::Lock held(lock);
    return std::exchange(batch, std::make_shared<DraftManagerBatch>());
}

} // namespace zem
