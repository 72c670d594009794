#pragma once

// The native entry into the runtime's draft queue.

#include <zem/Core/DraftManagerProtocol.h>
#include <zem/JavaScript/Context.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>

#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zem {

/// Calls the runtime's draft manager, before an operation returns, on the calling thread (or on the
/// engine's while that waits, where the context is bound to a thread). What the runtime throws goes
/// to the context's uncaught handler. Thread-safe.
///
/// Completions and listeners are called on a serial queue of the manager's own, in the order in
/// which the runtime settled and reported; those of external actions and of the executor are not:
/// they are called on the thread on which the runtime settles its promise, inside the engine, or
/// else before the operation returns, when the runtime returns no promise. Any other completion is
/// not called then, and none is when the runtime never settles its promise.
///
/// Destroying it, on any thread, drops what the runtime has not settled or reported by then, but
/// for the completions of external actions and the failure of an executor's registration. What is
/// on its way to the serial queue is still called, after the manager is gone. The runtime's
/// registrations are ended from the main queue; until then the runtime may call the executor.
///
/// Listeners, the executor and its completion are kept until they are unsubscribed or replaced, and
/// other completions until they have been called or the engine has collected what could settle
/// them. One that holds the manager keeps it for as long: they hold it weakly.
class DraftManager final : public BatchingDraftManagerProtocol,
                           public std::enable_shared_from_this<DraftManager> {
  public:
    /// The name under which external actions and their executor are registered in the runtime.
    static constexpr std::string_view externalActionHandlerId = "EXTERNAL_ACTION";

    /// The manager of the runtime's object `draftManager`. Replays `batching`, which is left as it
    /// is but for the listeners, in this order: start or stop, the executor, external actions,
    /// listeners, requests of the queue, removals, replacements, mergers, metadata. The executor's
    /// completion is called on `queue`, every other as if it had been given to this manager; so
    /// those of external actions, and the executor itself, may be called before this returns. They
    /// may ask the batching manager for more: what is of a kind that has been replayed stays there.
    ///
    /// Throws std::invalid_argument when `draftManager` holds nothing or there is no queue.
    static std::shared_ptr<DraftManager> create(js::Value draftManager,
                                                const DraftManagerBatch& batching,
                                                const std::shared_ptr<platform::Queue>& queue);
    ~DraftManager() override;
    DraftManager(const DraftManager&) = delete;
    DraftManager& operator=(const DraftManager&) = delete;

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

    /// The live registry: the listeners, the executor and the last word on starting or stopping.
    std::shared_ptr<const DraftManagerBatch> batching() const override;

  private:
    using Subscription = DraftManagerBatch::Subscription;

    explicit DraftManager(js::Value draftManager);
    void registerChangeListener();
    void replay(const DraftManagerBatch& batching, const std::shared_ptr<platform::Queue>& queue);
    void adopt(const std::string& identifier, std::shared_ptr<Subscription> subscription);

    template <class T, class... Arguments>
    void request(const js::Name& function,
                 std::function<void(std::expected<T, DraftManagerNativeError>)> completion,
                 const Arguments&... arguments);
    void setStarted(const js::Name& function, bool started);
    void queueChanged(js::Scope& scope, js::Arguments arguments);

    std::function<void()> removal(const std::string& identifier);
    bool hasListeners() const;
    std::vector<std::shared_ptr<Subscription>> listeners() const;

    const js::Value draftManager;
    const std::shared_ptr<platform::SerialQueue> notificationQueue = platform::SerialQueue::create(
        "DraftManagerNotification", platform::QualityOfService::userInitiated);
    const std::shared_ptr<platform::RunLoop> runLoop = platform::RunLoop::current();
    mutable platform::Mutex lock;
    const std::shared_ptr<DraftManagerBatch> registry = std::make_shared<DraftManagerBatch>();
    js::Function externalActionUnsubscribe;
    js::Function unsubscribe;
};

} // namespace zem
