#include <zem/Core/AdapterInvokeOperation.h>
#include <zem/Core/DataService.h>
#include <zem/Core/Private/Answers.h>
#include <zem/Core/Private/CallOut.h>
#include <zem/Core/Private/CallbackQueue.h>
#include <zem/Core/Private/EnterRuntime.h>
#include <zem/Core/Private/Once.h>
#include <zem/Core/Private/Promise.h>
#include <zem/Core/Private/SubscriptionList.h>
#include <zem/Core/SharedPriorityQueue.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Tessel/JSON.h>
#include <zem/Tessel/JSValueCoder.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <exception>
#include <expected>
#include <stdexcept>
#include <string>
#include <utility>

namespace zem {

namespace {

/// An age that no process reaches, in seconds: a longer timeout is as good.
constexpr double longestTimeout = 1e9;

constexpr double shortestWatchdogInterval = 1.0;
constexpr double watchdogIntervalShare = 0.25;

/// The handle of the bytes in the binary store.
std::expected<std::string, DataServiceError> keep(BinaryStore& store, const platform::Bytes& bytes,
                                                  const std::string& type) {
    try {
        return store.store(bytes, type, bytes.size());
    } catch (const std::exception& error) {
        return std::unexpected(DataServiceError::executeAdapter(error.what()));
    } catch (...) {
        return std::unexpected(DataServiceError::executeAdapter(
            "the binary store threw something that is no std::exception"));
    }
}

/// The queue that the subscriptions have had, so that they share it with what is asked for later.
std::shared_ptr<platform::SerialQueue> callbackQueueOf(const DataServiceState& state) {
    return state.subscriptions.empty() ? makeCallbackQueue()
                                       : state.subscriptions.front()->unsubscribable->callbackQueue;
}

} // namespace

std::shared_ptr<DataService> DataService::create(js::Value zem,
                                                 std::shared_ptr<BinaryStore> binaryStore,
                                                 DataServiceState state, double watchdogTimeout) {
    if (!zem) {
        throw std::invalid_argument("DataService: expected the runtime's object, found no value");
    }
    if (std::isnan(watchdogTimeout)) {
        throw std::invalid_argument(
            "DataService: expected a timeout in seconds, found one that is no number");
    }
    std::shared_ptr<DataService> service(new DataService(std::move(zem), std::move(binaryStore),
                                                         callbackQueueOf(state), watchdogTimeout));
    service->startWatchdog();
    service->replay(std::move(state));
    return service;
}

DataService::DataService(js::Value zem, std::shared_ptr<BinaryStore> binaryStore,
                         std::shared_ptr<platform::SerialQueue> callbackQueue,
                         double watchdogTimeout)
    : subscriptions(std::make_unique<SubscriptionList>())
    , lockQueue(platform::SerialQueue::create("com.quorvane.data.service.subscription-lock-queue"))
    , callbackQueue(std::move(callbackQueue))
    , zem(std::move(zem))
    , runLoop(platform::RunLoop::current())
    , watchdogTimeout(std::max(0.0, std::min(watchdogTimeout, longestTimeout)))
    , adapterCallQueue(SharedPriorityQueue::priority())
    , binaryStore(std::move(binaryStore)) {}

DataService::~DataService() {
    for (const auto& waiting : unanswered) {
        if (const auto operation = waiting.lock()) {
            operation->finish();
        }
    }
}

void DataService::startWatchdog() {
    const platform::Seconds interval(
        std::max(shortestWatchdogInterval, watchdogTimeout.count() * watchdogIntervalShare));
    watchdogTimer = runLoop->scheduleTimer(interval, true, [weak = weakSelf()] {
        if (const auto service = weak.lock()) {
            service->sweep();
        }
    });
}

void DataService::replay(DataServiceState state) {
    if (state.recordTTL) {
        setRimvoRecordTTL(state.recordTTL->ttlValue, std::move(state.recordTTL->ttlCompletion));
    }
    if (state.metadataTTL) {
        setMetadataTTL(state.metadataTTL->ttlValue, std::move(state.metadataTTL->ttlCompletion));
    }
    for (const auto& call : state.mutatingSubscriptions) {
        if (!call->specialOperation) {
            invokeAdapter(call->adapterId, call->config, call->requestContext, call->callback);
        } else if (const auto* set =
                       std::get_if<SpecialOperation::SetMetadata>(&call->specialOperation->value)) {
            invokeAdapterWithMetadata(call->adapterId, call->config, set->metadata, call->callback);
        } else {
            const auto& replace =
                std::get<SpecialOperation::ReplaceDraft>(call->specialOperation->value);
            invokeAdapterWithDraftToReplace(call->adapterId, call->config, replace.draftIdToReplace,
                                            call->callback);
        }
    }
    for (const auto& operation : state.contentVersionOperations) {
        if (auto* document =
                std::get_if<CreateContentDocumentAndVersionConfig>(&operation->operation)) {
            createContentDocumentAndVersion(*document, operation->metadata, operation->callback);
        } else {
            createContentVersion(std::get<CreateContentVersionConfig>(operation->operation),
                                 operation->metadata, operation->callback);
        }
    }
    if (state.subscriptions.empty()) {
        return;
    }
    enterRuntime(zem.context(), [&](js::Scope& scope) {
        for (const auto& subscription : state.subscriptions) {
            prepareSnapshotSubscription(scope, scope.local(zem), weakSelf(), subscription,
                                        std::make_shared<Emissions>(weakSelf(), subscription));
        }
    });
    for (const auto& subscription : state.subscriptions) {
        add(subscription);
    }
}

js::Local DataService::serializedAdapterRequestContext(
    const std::optional<AdapterRequestContext>& requestContext, js::Scope& context) {
    return requestContext ? tessel::encodeValue(context, *requestContext) : context.undefined();
}

void DataService::invokeAdapter(std::string adapterId, std::string config,
                                std::optional<AdapterRequestContext> requestContext,
                                ResultCallback callback) {
    const auto operation = AdapterInvokeOperation::create(priorityOf(requestContext));
    operation->setWorkBlock(
        [call = std::make_shared<Invocation>(
             weakSelf(), std::move(callback), std::weak_ptr(operation), std::move(adapterId),
             std::move(config), std::move(requestContext))] { call->start(); });
    operation->setLane(zem.context().lane());
    adapterCallQueue->addOperation(operation);
}

void DataService::Invocation::start() {
    static const js::Name method("invokeAdapter");
    if (const auto alive = service.lock()) {
        alive->addUnanswered(slot.operation);
    }
    const std::string adapter = std::move(adapterId);
    const std::string text = std::move(config);
    const auto context = std::exchange(requestContext, std::nullopt);
    callRuntime(runtimeOf(service), method, shared_from_this(),
                [&](js::Scope& scope, js::Local result) {
                    return std::array{scope.string(adapter), scope.string(text), result,
                                      serializedAdapterRequestContext(context, scope)};
                });
}

void DataService::addUnanswered(std::weak_ptr<AdapterInvokeOperation> operation) {
    const platform::Lock held(lock);
    // No more than have a slot on the shared queue are alive.
    std::erase_if(unanswered, [](const auto& answered) { return answered.expired(); });
    unanswered.push_back(std::move(operation));
}

/// The runtime object, empty if the service is gone. Pending calls do not keep a service alive; the
/// answers that come when it is gone are dropped.
js::Value DataService::runtimeOf(const std::weak_ptr<DataService>& service) {
    const auto alive = service.lock();
    return alive ? alive->zem : js::Value();
}

/// Has `method` called with what `encode` makes of the callback.
template <class Encode>
void DataService::callRuntime(const js::Value& zem, const js::Name& method,
                              const std::shared_ptr<OneShot>& call, const Encode& encode) {
    if (!zem) {
        return;
    }
    enterRuntime(zem.context(), [&](js::Scope& scope) {
        const js::Sequence sequence(scope);
        const auto arguments = encode(scope, call->function(scope));
        if (const auto answer = scope.callMethod(scope.local(zem), method, arguments); !answer) {
            call->fail(DataServiceError::executeAdapter(answer.error().text()));
        }
    });
}

template <class Encode>
void DataService::addMutatingCall(const js::Name& method, ResultCallback callback, Encode encode) {
    adapterCallQueue->addOperation(
        [weak = weakSelf(), &method,
         call = std::make_shared<OneShot>(weakSelf(), std::move(callback)),
         encode = std::move(encode)] { callRuntime(runtimeOf(weak), method, call, encode); },
        platform::QueuePriority::veryHigh, zem.context().lane());
}

void DataService::invokeAdapterWithMetadata(std::string adapterId, std::string config,
                                            Metadata metadata, ResultCallback callback) {
    static const js::Name method("invokeAdapterWithMetadata");
    addMutatingCall(method, std::move(callback),
                    [adapterId = std::move(adapterId), config = std::move(config),
                     metadata = std::move(metadata)](js::Scope& scope, js::Local result) {
                        return std::array{scope.string(adapterId), scope.string(config),
                                          tessel::encodeValue(scope, metadata), result};
                    });
}

void DataService::invokeAdapterWithDraftToReplace(std::string adapterId, std::string config,
                                                  std::string draftIdToReplace,
                                                  ResultCallback callback) {
    static const js::Name method("invokeAdapterWithDraftToReplace");
    addMutatingCall(
        method, std::move(callback),
        [adapterId = std::move(adapterId), config = std::move(config),
         draftIdToReplace = std::move(draftIdToReplace)](js::Scope& scope, js::Local result) {
            return std::array{scope.string(adapterId), scope.string(config),
                              scope.string(draftIdToReplace), result};
        });
}

Unsubscribe DataService::subscribeToAdapter(std::string adapterId, std::string config,
                                            std::optional<AdapterRequestContext> requestContext,
                                            ResultCallback callback) {
    const auto operation = AdapterInvokeOperation::create(priorityOf(requestContext));
    const auto wire =
        WireSubscription::create(std::move(adapterId), std::move(config), std::move(requestContext),
                                 adapterCallQueue, callbackQueue);
    auto subscription =
        std::make_shared<Subscription>(std::move(callback), runLoop->now(), wire, operation);
    operation->setWorkBlock([weak = weakSelf(), subscription = std::move(subscription)] {
        // Made first: whatever becomes of the call, the operation ends with it.
        const auto emissions = std::make_shared<Emissions>(weak, subscription);
        const js::Value runtime = runtimeOf(weak);
        if (!runtime) {
            return;
        }
        enterRuntime(runtime.context(), [&](js::Scope& scope) {
            prepareSnapshotSubscription(scope, scope.local(runtime), weak, subscription, emissions);
        });
        if (const auto service = weak.lock()) {
            service->add(subscription);
        }
    });
    operation->setLane(zem.context().lane());
    adapterCallQueue->addOperation(operation);
    return [weakOperation = std::weak_ptr(operation), cleanup = wire->cleanupHandle()] {
        if (const auto waiting = weakOperation.lock()) {
            waiting->setShouldNotStart();
        }
        cleanup();
    };
}

void DataService::prepareSnapshotSubscription(js::Scope& scope, js::Local zem,
                                              const std::weak_ptr<DataService>& service,
                                              const std::shared_ptr<Subscription>& subscription,
                                              const std::shared_ptr<Emissions>& emissions) {
    static const js::Name method("subscribeToAdapter");
    const std::shared_ptr<WireSubscription>& wire = subscription->unsubscribable;
    if (wire->wasCleanedUp() || service.expired()) {
        return;
    }
    js::Function unsubscribeFunc;
    {
        const js::Sequence sequence(scope);
        const auto answer = scope.callMethod(
            zem, method,
            {scope.string(wire->adapterId), scope.string(wire->config), emissions->function(scope),
             serializedAdapterRequestContext(wire->requestContext, scope)});
        if (answer) {
            unsubscribeFunc = js::Function::from(scope, *answer).value_or(js::Function());
        } else {
            emissions->fail(DataServiceError::executeAdapter(answer.error().text()));
        }
    }
    wire->functionArrived(std::move(unsubscribeFunc), [service, weakWire = std::weak_ptr(wire)] {
        const auto alive = service.lock();
        const auto removed = weakWire.lock();
        if (alive != nullptr && removed != nullptr) {
            alive->remove(*removed);
        }
    });
}

void DataService::add(const std::shared_ptr<Subscription>& subscription) {
    const WireSubscription& wire = *subscription->unsubscribable;
    const platform::Lock held(lock);
    if (!wire.wasRemovedFromDataService() && !wire.wasCleanedUp()) {
        subscriptions->append(subscription);
    }
}

void DataService::remove(WireSubscription& unsubscribable) {
    std::shared_ptr<Subscription> removed;
    const platform::Lock held(lock);
    unsubscribable.setWasRemovedFromDataService();
    removed = subscriptions->remove(unsubscribable);
}

std::size_t DataService::subscriptionCount() const {
    const platform::Lock held(lock);
    return subscriptions->size();
}

void DataService::settle(const Subscription& subscription) {
    const platform::Lock held(lock);
    subscriptions->settle(*subscription.unsubscribable);
}

DataServiceState DataService::takeState() {
    DataServiceState state;
    lockQueue->sync([&] {
        {
            const platform::Lock held(lock);
            state.subscriptions = subscriptions->takeAll();
        }
        coreLog().event(platform::SignpostID::null(), "takeState");
    });
    return state;
}

void DataService::sweep() {
    // The date and the list are those of the tick, however long the task has to wait.
    const auto latest =
        runLoop->now() -
        std::chrono::duration_cast<platform::RunLoop::TimePoint::duration>(watchdogTimeout);
    std::uint64_t mark = 0;
    {
        const platform::Lock held(lock);
        mark = subscriptions->appended();
    }
    platform::globalQueue().async([weak = weakSelf(), latest, mark] {
        if (const auto service = weak.lock()) {
            service->failOverdue(latest, mark);
        }
    });
}

void DataService::failOverdue(platform::RunLoop::TimePoint latest, std::uint64_t mark) {
    SubscriptionList::Entries overdue;
    {
        const platform::Lock held(lock);
        overdue = subscriptions->takeOverdue(latest, mark);
    }
    for (const std::shared_ptr<Subscription>& subscription : overdue) {
        if (subscription->hasEmitted.exchange(true)) {
            continue; // it has just emitted
        }
        const WireSubscription& wire = *subscription->unsubscribable;
        coreLog().error("ZEM failed to emit in a timely manner for %{public}s config: %{public}s",
                        {wire.adapterId, wire.config});
        deliver(subscription, std::unexpected(DataServiceError::executeAdapterTimeout()));
        if (const auto operation = subscription->adapterOperation.lock()) {
            operation->finish();
        }
    }
}

void DataService::setRimvoRecordTTL(std::int64_t ttl, std::function<void()> completion) {
    static const js::Name method("setRimvoRecordTTL");
    setTTL(method, ttl, std::move(completion));
}

void DataService::setMetadataTTL(std::int64_t ttl, std::function<void()> completion) {
    static const js::Name method("setMetadataTTL");
    setTTL(method, ttl, std::move(completion));
}

void DataService::setTTL(const js::Name& method, std::int64_t ttl,
                         std::function<void()> completion) {
    const auto self = shared_from_this(); // the runtime may drop the last reference
    const Once<> complete("a completion", std::move(completion));
    bool isPromised = false;
    enterRuntime(zem.context(), [&](js::Scope& scope) {
        const auto answer =
            scope.callMethod(scope.local(zem), method, {scope.number(static_cast<double>(ttl))});
        isPromised =
            followPromise(scope, answer, [complete](js::Scope&, js::Local) { complete(); });
    });
    if (!isPromised) {
        complete();
    }
}

void DataService::createContentDocumentAndVersion(CreateContentDocumentAndVersionConfig config,
                                                  std::optional<Metadata> metadata,
                                                  ResultCallback callback) {
    createContent("createContentDocumentAndVersion", std::nullopt, config, std::move(metadata),
                  std::move(callback));
}

void DataService::createContentVersion(CreateContentVersionConfig config,
                                       std::optional<Metadata> metadata, ResultCallback callback) {
    createContent("createContentVersion", config.contentDocumentId, config, std::move(metadata),
                  std::move(callback));
}

template <class Config>
void DataService::createContent(const char* adapterId, std::optional<std::string> contentDocumentId,
                                const Config& config, std::optional<Metadata> metadata,
                                ResultCallback callback) {
    const auto self = shared_from_this(); // the store may drop the last reference
    const auto fail = [&](DataServiceError error) {
        callOut("a result callback", callback,
                DataServiceResult(std::unexpected(std::move(error))));
    };
    if (binaryStore == nullptr) {
        fail(DataServiceError::binaryStoreUnavailable());
        return;
    }
    const std::string type = config.mimeType.value_or("application/octet-stream");
    const auto handle = keep(*binaryStore, config.fileData, type);
    if (!handle) {
        fail(handle.error());
        return;
    }
    const ZEMContentVersionConfig described{
        config.title, config.description, std::move(contentDocumentId),
        FileData{*handle, config.fileName.value_or(config.title), true,
                 static_cast<std::int64_t>(config.fileData.size()), type}};
    std::string text = tessel::toText(tessel::toAny(described));
    // Text that is not valid UTF-8 would reach the runtime as something else.
    if (!tessel::parse(text)) {
        const std::function<void()> remove = [&] {
            binaryStore->remove(*handle);
        };
        callOut("BinaryStore::remove", remove);
        fail(DataServiceError::executeAdapterJSON("unable to build json config"));
        return;
    }
    if (metadata) {
        invokeAdapterWithMetadata(adapterId, std::move(text), *std::move(metadata),
                                  std::move(callback));
    } else {
        invokeAdapter(adapterId, std::move(text), std::nullopt, std::move(callback));
    }
}

} // namespace zem
