#pragma once

// The requests to a batching draft manager, and the live registry of a draft manager.

#include <zem/Core/BatchingSubscription.h>
#include <zem/Core/CustomActionResult.h>
#include <zem/Core/DataServiceResult.h>
#include <zem/Core/DraftManagerNativeError.h>
#include <zem/Core/DraftManagerState.h>
#include <zem/Core/DraftManagerUnsubscribe.h>

#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zem {

using DraftManagerStateCallback =
    std::function<void(std::expected<DraftManagerState, DraftManagerNativeError>)>;
using DraftQueueItemCallback =
    std::function<void(std::expected<DraftQueueItem, DraftManagerNativeError>)>;
using DraftManagerCompletion = std::function<void(std::expected<void, DraftManagerNativeError>)>;

/// The item is the one that the change is about; absent where it is about none, or could not be
/// read.
using DraftQueueChangedListener =
    std::function<void(const DraftManagerState& state, DraftQueueItemOperationType kind,
                       const std::optional<DraftQueueItem>& item)>;

/// Called on any thread, at any time, with what became of an action; only the first call counts,
/// and none need come.
using CustomActionReply = std::function<void(CustomActionResult)>;

/// Carries out an external action. Called on the thread that runs the JavaScript, inside the
/// engine, so it only begins what takes long; once for each time that the runtime asks, also when
/// the manager is gone, until the runtime has heard of that or has been given another.
using ExternalActionExecutor = std::function<void(DraftQueueItem action, CustomActionReply reply)>;

struct BatchReplaceAction {
    std::string actionId;
    std::string withActionId;
    DraftQueueItemCallback completion;
};

struct BatchMergeAction {
    std::string sourceId;
    std::string targetId;
    DraftQueueItemCallback completion;
};

struct BatchExternalActionExecutor {
    ExternalActionExecutor executor;
    DraftManagerCompletion completion;
};

struct BatchExternalAction {
    std::string targetId;
    Metadata metadata;
    DraftQueueItemCallback completion;
};

/// Shared by reference, and guarded by the lock of the manager whose it is: others read it, and
/// only while nothing more is asked of that manager.
struct DraftManagerBatch {
    using Subscription = BatchingSubscription<DraftQueueChangedListener, DraftManagerUnsubscribe>;

    DraftManagerBatch() = default;
    DraftManagerBatch(const DraftManagerBatch&) = delete;
    DraftManagerBatch& operator=(const DraftManagerBatch&) = delete;

    /// The last word on whether the queue is to run; absent where there was none.
    std::optional<bool> started;
    std::map<std::string, std::shared_ptr<Subscription>> subscriptions; ///< by their identifiers
    std::vector<DraftManagerStateCallback> queueRequest;
    std::map<std::string, DraftManagerStateCallback> removeRequest; ///< by the actions' ids
    std::vector<BatchReplaceAction> replaceRequest;
    std::vector<BatchMergeAction> mergeRequests;
    std::map<std::string, std::pair<Metadata, DraftQueueItemCallback>>
        setMetadataRequest; ///< by the actions' ids
    std::optional<BatchExternalActionExecutor> externalActionExecutor;
    std::vector<BatchExternalAction> externalActions;
};

} // namespace zem
