#pragma once

// The calls of the runtime's draft queue, whether there is a runtime yet or not.

#include <zem/Core/DraftManagerBatch.h>

#include <memory>
#include <string>

namespace zem {

/// Every operation may be called on any thread. A completion is called at most once; never where
/// the runtime gives no answer, or a later request takes the place of one that was only recorded.
/// Callbacks throw nothing; what one throws is logged and goes no further.
class DraftManagerProtocol {
  public:
    virtual ~DraftManagerProtocol() = default;

    virtual void getDraftQueue(DraftManagerStateCallback response) = 0;

    /// Completes with the queue that is left.
    virtual void removeItem(std::string withId, DraftManagerStateCallback completion) = 0;

    /// Puts the action `withId` in the place of the action `actionId`. Completes with the item that
    /// has been replaced.
    virtual void replaceItem(std::string actionId, std::string withId,
                             DraftQueueItemCallback completion) = 0;

    /// Merges the action `sourceId` into the action `targetId`. Completes with the merged item.
    virtual void mergeAction(std::string sourceId, std::string targetId,
                             DraftQueueItemCallback completion) = 0;

    /// Completes with the item that has the metadata.
    virtual void setMetadata(std::string actionId, Metadata metadata,
                             DraftQueueItemCallback completion) = 0;

    /// Calls `listener` for every change of the queue, until that is ended through what is
    /// returned. Dropping what is returned ends nothing.
    virtual std::shared_ptr<DraftManagerUnsubscribe>
    registerOnChangedListener(DraftQueueChangedListener listener) = 0;

    virtual void startQueue() = 0;
    virtual void stopQueue() = 0;

    /// Has `executor` carry out the external actions from now on, in the place of the one before.
    virtual void setExternalActionExecutor(ExternalActionExecutor executor,
                                           DraftManagerCompletion completion) = 0;

    /// Queues an external action. Completes with its item.
    virtual void addExternalAction(std::string targetId, Metadata metadata,
                                   DraftQueueItemCallback completion) = 0;
};

class BatchingDraftManagerProtocol : public DraftManagerProtocol {
  public:
    /// For the one who takes over what it holds. See there for when it may be read.
    virtual std::shared_ptr<const DraftManagerBatch> batching() const = 0;
};

} // namespace zem
