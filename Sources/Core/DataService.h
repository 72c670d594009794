#pragma once

// The native entry into the runtime's adapters.

#include <zem/Core/BinaryStore.h>
#include <zem/Core/DataServiceProtocol.h>
#include <zem/Core/DataServiceState.h>
#include <zem/JavaScript/Context.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/Operation.h>
#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>

#include <memory>
#include <vector>

namespace zem {

class AdapterInvokeOperation;
class SubscriptionList;

/// Calls the runtime's data-service object from the queue that all services of the process share:
/// at most five calls are unanswered at once, a more urgent one goes first, and mutating calls go
/// before all others. Every result is delivered on this service's callback queue, in the order in
/// which the runtime produced them. A service that is made of another one's subscriptions shares
/// that one's callback queue. Thread-safe.
///
/// Destroying it, on any thread, ends the watchdog. Calls that have not reached the runtime are
/// dropped, answers that come later are dropped, and so are the callbacks, without being called;
/// what was on its way to a callback is still delivered. The runtime's subscriptions stay open
/// until the callers end them, which they still can.
class DataService final : public DataServiceProtocolDeprecated, public DataServiceStateProviding {
  public:
    /// Seconds.
    static constexpr double defaultWatchdogTimeout = 180.0;

    /// The service of the runtime's object `zem`. `binaryStore` may be null: uploads then fail.
    ///
    /// THE CALLING THREAD HAS TO RUN ITS RUN LOOP: the watchdog is a timer there. Without it no
    /// subscription ever times out, and a silent one keeps its slot on the shared queue. Call this
    /// on a thread that runs one, or run `platform::RunLoop::current()` there afterwards.
    ///
    /// The watchdog looks every quarter of the timeout, but not more often than every second, and
    /// fails subscriptions that have been silent for `watchdogTimeout` seconds. A timeout of 0 or
    /// less fails them when it looks for the first time, an infinite one never.
    ///
    /// Replays `state`, in this order: the TTLs, the one-shot calls, the uploads, and the
    /// subscriptions, which are prepared in the runtime before this returns. Uploads keep their
    /// bytes in the binary store before this returns; one that cannot calls back with its failure
    /// before this returns, too.
    ///
    /// Throws std::invalid_argument, and drops `state`, when `zem` holds nothing or the timeout is
    /// not a number. When `zem` is not an object or has not the function that is called, the calls
    /// fail.
    static std::shared_ptr<DataService> create(js::Value zem,
                                               std::shared_ptr<BinaryStore> binaryStore,
                                               DataServiceState state, double watchdogTimeout);
    ~DataService() override;

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
    /// The runtime is called before these return.
    void setRimvoRecordTTL(std::int64_t ttl, std::function<void()> completion) override;
    void setMetadataTTL(std::int64_t ttl, std::function<void()> completion) override;
    void createContentDocumentAndVersion(CreateContentDocumentAndVersionConfig config,
                                         std::optional<Metadata> metadata,
                                         ResultCallback callback) override;
    void createContentVersion(CreateContentVersionConfig config, std::optional<Metadata> metadata,
                              ResultCallback callback) override;

    /// Hands over the live subscriptions, which are not cancelled in the runtime: the service that
    /// is made of them prepares them again. Calls that wait for their turn or their answer stay
    /// with this service, and so do subscriptions that the runtime has not been asked for.
    [[nodiscard]] DataServiceState takeState() override;

    /// How many subscriptions the runtime was asked for that have not ended.
    std::size_t subscriptionCount() const;

  private:
    std::weak_ptr<DataService> weakSelf() {
        return std::static_pointer_cast<DataService>(shared_from_this());
    }
    using Subscription = BatchingSubscription<ResultCallback, WireSubscription>;
    class OneShot;
    class Invocation;
    class Emissions;

    DataService(js::Value zem, std::shared_ptr<BinaryStore> binaryStore,
                std::shared_ptr<platform::SerialQueue> callbackQueue, double watchdogTimeout);
    void startWatchdog();
    void replay(DataServiceState state);

    static js::Local
    serializedAdapterRequestContext(const std::optional<AdapterRequestContext>& requestContext,
                                    js::Scope& context);

    static js::Value runtimeOf(const std::weak_ptr<DataService>& service);
    void addUnanswered(std::weak_ptr<AdapterInvokeOperation> operation);
    template <class Encode>
    static void callRuntime(const js::Value& zem, const js::Name& method,
                            const std::shared_ptr<OneShot>& call, const Encode& encode);
    template <class Encode>
    void addMutatingCall(const js::Name& method, ResultCallback callback, Encode encode);
    void setTTL(const js::Name& method, std::int64_t ttl, std::function<void()> completion);
    template <class Config>
    void createContent(const char* adapterId, std::optional<std::string> contentDocumentId,
                       const Config& config, std::optional<Metadata> metadata,
                       ResultCallback callback);

    static void prepareSnapshotSubscription(js::Scope& scope, js::Local zem,
                                            const std::weak_ptr<DataService>& service,
                                            const std::shared_ptr<Subscription>& subscription,
                                            const std::shared_ptr<Emissions>& emissions);
    void add(const std::shared_ptr<Subscription>& subscription);
    void remove(WireSubscription& unsubscribable);
    void settle(const Subscription& subscription);
    static void deliver(const std::shared_ptr<Subscription>& subscription,
                        std::expected<std::optional<std::string>, DataServiceError> outcome);
    void sweep();
    void failOverdue(platform::RunLoop::TimePoint latest, std::uint64_t mark);

    mutable platform::Mutex lock;
    const std::unique_ptr<SubscriptionList> subscriptions;
    /// The one-shot calls that hold a slot on the shared queue, given back when nobody is left to
    /// hear the answer.
    std::vector<std::weak_ptr<AdapterInvokeOperation>> unanswered;
    const std::shared_ptr<platform::SerialQueue> lockQueue;
    const std::shared_ptr<platform::SerialQueue> callbackQueue;
    const js::Value zem;
    const std::shared_ptr<platform::RunLoop> runLoop;
    const platform::Seconds watchdogTimeout;
    const std::shared_ptr<platform::OperationQueue> adapterCallQueue;
    const std::shared_ptr<BinaryStore> binaryStore;
    std::unique_ptr<platform::Timer> watchdogTimer;
};

} // namespace zem
