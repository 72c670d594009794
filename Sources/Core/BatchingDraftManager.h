#pragma once

// The draft manager before there is a runtime: it records what is asked for.

#include <zem/Core/DraftManagerProtocol.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/RunLoop.h>

#include <memory>
#include <string>

namespace zem {

/// No callback is called while it batches: completions and events come from the draft manager that
/// is made of the batch. Of several removals of one action only the last counts, and so of several
/// metadata of one action and of several executors; the completions of those before are dropped
/// without being called. What is recorded is kept as long as the batch, also when that has been
/// handed over. Thread-safe.
class BatchingDraftManager final : public BatchingDraftManagerProtocol,
                                   public std::enable_shared_from_this<BatchingDraftManager> {
  public:
    /// The age of listeners is counted on the calling thread's run loop's clock.
    static std::shared_ptr<BatchingDraftManager> create();

    void getDraftQueue(DraftManagerStateCallback response) override;
    void removeItem(std::string withId, DraftManagerStateCallback completion) override;
    void replaceItem(std::string actionId, std::string withId,
                     DraftQueueItemCallback completion) override;
    void mergeAction(std::string sourceId, std::string targetId,
                     DraftQueueItemCallback completion) override;
    void setMetadata(std::string actionId, Metadata metadata,
                     DraftQueueItemCallback completion) override;
    std::shared_ptr<DraftManagerUnsubscribe>
    registerOnChangedListener(DraftQueueChangedListener listener) override;
    void startQueue() override;
    void stopQueue() override;
    void setExternalActionExecutor(ExternalActionExecutor executor,
                                   DraftManagerCompletion completion) override;
    void addExternalAction(std::string targetId, Metadata metadata,
                           DraftQueueItemCallback completion) override;

    std::shared_ptr<const DraftManagerBatch> batching() const override;

    /// Records into an empty batch from now on and gives the one before, which nobody writes to any
    /// more. Handing over that one loses nothing, whoever goes on asking meanwhile: what is asked
    /// later waits for another hand-over.
    [[nodiscard]] std::shared_ptr<const DraftManagerBatch> takeBatching();

  private:
    BatchingDraftManager() = default;
    void removeListener(const std::string& identifier);

    const std::shared_ptr<platform::RunLoop> runLoop = platform::RunLoop::current();
    mutable platform::Mutex lock;
    std::shared_ptr<DraftManagerBatch> batch = std::make_shared<DraftManagerBatch>();
};

} // namespace zem
