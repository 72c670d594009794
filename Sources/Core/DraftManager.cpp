#include <zem/Core/DraftManager.h>
#include <zem/Core/Private/CallOut.h>
#include <zem/Core/Private/EnterRuntime.h>
#include <zem/Core/Private/ExternalActionFunction.h>
#include <zem/Core/Private/Once.h>
#include <zem/Core/Private/Promise.h>
#include <zem/Platform/UUID.h>
#include <zem/Tessel/JSValueCoder.h>

#include <array>
#include <optional>
#include <stdexcept>
#include <utility>

namespace zem {

namespace {

using Error = DraftManagerNativeError;

constexpr const char* completionName = "a completion";

void report(js::Scope& scope, const js::Exception& exception) {
    scope.context().reportUncaught(scope, exception);
}

template <class T>
tessel::Decoded<T> decodePromised(js::Scope& scope, js::Local value) {
    return tessel::decodeValue<T>(scope, value);
}

/// A whole queue.
template <>
tessel::Decoded<DraftManagerState> decodePromised(js::Scope& scope, js::Local value) {
    return tessel::decodeLarge<DraftManagerState>(scope, value);
}

template <class T>
std::expected<T, Error> failed(Error error) {
    return std::unexpected(std::move(error));
}

/// `textless` is the text of a reason that has none.
template <class T>
js::SettledFunction reject(Once<std::expected<T, Error>> complete, const char* textless) {
    return [complete = std::move(complete), textless](js::Scope& scope, js::Local reason) {
        complete(failed<T>(Error::promiseRejection(scope.stringForm(reason).value_or(textless))));
    };
}

} // namespace

std::shared_ptr<DraftManager> DraftManager::create(js::Value draftManager,
                                                   const DraftManagerBatch& batching,
                                                   const std::shared_ptr<platform::Queue>& queue) {
    if (!draftManager) {
        throw std::invalid_argument("DraftManager: expected the runtime's object, found no value");
    }
    if (queue == nullptr) {
        throw std::invalid_argument("DraftManager: expected a queue, found none");
    }
    std::shared_ptr<DraftManager> manager(new DraftManager(std::move(draftManager)));
    manager->registerChangeListener();
    manager->replay(batching, queue);
    return manager;
}

DraftManager::DraftManager(js::Value draftManager)
    : draftManager(std::move(draftManager)) {}

DraftManager::~DraftManager() {
    if (!unsubscribe && !externalActionUnsubscribe) {
        return;
    }
    platform::mainQueue()->async(
        [registrations = std::array{std::move(unsubscribe), std::move(externalActionUnsubscribe)}] {
            for (const js::Function& registration : registrations) {
                if (registration) {
                    // Not waited for: the main thread has other things to do.
                    registration.context().async([registration](js::Scope& scope) {
                        if (const auto answer = registration.call(scope); !answer) {
                            report(scope, answer.error());
                        }
                    });
                }
            }
        });
}

void DraftManager::registerChangeListener() {
    static const js::Name method("registerDraftQueueChangedListener");
    enterRuntime(draftManager.context(), [&](js::Scope& scope) {
        const js::Local listener = scope.function(
            "listener", 3,
            [weak = weak_from_this()](js::Scope& inner, js::Local, js::Arguments arguments) {
                if (const auto manager = weak.lock()) {
                    manager->queueChanged(inner, arguments);
                }
                return inner.undefined();
            });
        const auto answer = scope.callMethod(scope.local(draftManager), method, {listener});
        if (answer) {
            unsubscribe = js::Function::from(scope, *answer).value_or(js::Function());
        } else {
            report(scope, answer.error());
        }
    });
}

// Of copies: who is adopted is taken out of the batch, and what is called meanwhile may ask the
// batching manager for more, of which those kinds that have had their turn wait.
void DraftManager::replay(const DraftManagerBatch& batching,
                          const std::shared_ptr<platform::Queue>& queue) {
    if (batching.started) {
        *batching.started ? startQueue() : stopQueue();
    }
    if (const auto& recorded = batching.externalActionExecutor) {
        setExternalActionExecutor(recorded->executor,
                                  [queue, completion = recorded->completion](auto result) {
                                      queue->async([completion, result = std::move(result)] {
                                          callOut(completionName, completion, result);
                                      });
                                  });
    }
    for (const BatchExternalAction& action : std::vector(batching.externalActions)) {
        addExternalAction(action.targetId, action.metadata, action.completion);
    }
    for (const auto& [identifier, subscription] : std::map(batching.subscriptions)) {
        adopt(identifier, subscription);
    }
    for (const DraftManagerStateCallback& response : std::vector(batching.queueRequest)) {
        getDraftQueue(response);
    }
    for (const auto& [actionId, completion] : std::map(batching.removeRequest)) {
        removeItem(actionId, completion);
    }
    for (const BatchReplaceAction& action : std::vector(batching.replaceRequest)) {
        replaceItem(action.actionId, action.withActionId, action.completion);
    }
    for (const BatchMergeAction& action : std::vector(batching.mergeRequests)) {
        mergeAction(action.sourceId, action.targetId, action.completion);
    }
    for (const auto& [actionId, request] : std::map(batching.setMetadataRequest)) {
        setMetadata(actionId, request.first, request.second);
    }
}

void DraftManager::adopt(const std::string& identifier,
                         std::shared_ptr<Subscription> subscription) {
    DraftManagerUnsubscribe::Moved moved; // and `subscription`: dropped after the lock
    const platform::Lock held(lock);
    registry->subscriptions.emplace(identifier, subscription);
    moved = subscription->unsubscribable->move(removal(identifier));
    if (moved.wasUnsubscribed) {
        registry->subscriptions.erase(identifier);
    }
}

std::function<void()> DraftManager::removal(const std::string& identifier) {
    return [weak = weak_from_this(), identifier] {
        if (const auto manager = weak.lock()) {
            decltype(registry->subscriptions)::node_type removed;
            const platform::Lock held(manager->lock);
            removed = manager->registry->subscriptions.extract(identifier);
        }
    };
}

/// For the calls whose completions are called on the notification queue.
template <class T, class... Arguments>
void DraftManager::request(const js::Name& function,
                           std::function<void(std::expected<T, Error>)> completion,
                           const Arguments&... arguments) {
    const auto self = shared_from_this(); // the runtime may drop the last reference
    using Result = std::expected<T, Error>;
    const Once<Result> complete(completionName, [weak = weak_from_this(),
                                                 completion =
                                                     std::move(completion)](Result result) {
        if (const auto manager = weak.lock()) {
            manager->notificationQueue->async([completion, result = std::move(result)]() mutable {
                callOut(completionName, completion, std::move(result));
            });
        }
    });
    enterRuntime(draftManager.context(), [&](js::Scope& scope) {
        const js::Sequence sequence(scope);
        const std::array<js::Local, sizeof...(Arguments)> encoded{
            tessel::encodeValue(scope, arguments)...};
        callForPromise(
            scope, scope.local(draftManager), function, encoded,
            [complete](js::Scope& inner, js::Local value) {
                tessel::Decoded<T> decoded = decodePromised<T>(inner, value);
                complete(decoded
                             ? Result(*std::move(decoded))
                             : failed<T>(Error::decodingPromiseError(std::move(decoded.error()))));
            },
            [complete](js::Scope& inner, js::Local reason) {
                std::optional<std::string> text;
                if (inner.kind(reason) != js::Kind::undefined) {
                    text = inner.stringForm(reason);
                }
                complete(failed<T>(Error::promiseRejection(
                    std::move(text).value_or("An unspecified error occured"))));
            });
    });
}

void DraftManager::getDraftQueue(DraftManagerStateCallback response) {
    static const js::Name function("getQueue");
    request(function, std::move(response));
}

void DraftManager::removeItem(std::string withId, DraftManagerStateCallback completion) {
    static const js::Name function("removeDraftAction");
    request(function, std::move(completion), withId);
}

void DraftManager::replaceItem(std::string actionId, std::string withId,
                               DraftQueueItemCallback completion) {
    static const js::Name function("replaceAction");
    request(function, std::move(completion), actionId, withId);
}

void DraftManager::mergeAction(std::string sourceId, std::string targetId,
                               DraftQueueItemCallback completion) {
    static const js::Name function("mergeActions");
    // Target first: the runtime merges into its first argument.
    request(function, std::move(completion), targetId, sourceId);
}

void DraftManager::setMetadata(std::string actionId, Metadata metadata,
                               DraftQueueItemCallback completion) {
    static const js::Name function("setMetadata");
    request(function, std::move(completion), actionId, metadata);
}

void DraftManager::startQueue() {
    static const js::Name function("startQueue");
    setStarted(function, true);
}

void DraftManager::stopQueue() {
    static const js::Name function("stopQueue");
    setStarted(function, false);
}

void DraftManager::setStarted(const js::Name& function, bool started) {
    const auto self = shared_from_this(); // the runtime may drop the last reference
    enterRuntime(draftManager.context(), [&](js::Scope& scope) {
        const auto answer = scope.callMethod(scope.local(draftManager), function, js::Arguments());
        if (!answer) {
            report(scope, answer.error());
        }
    });
    const platform::Lock held(lock);
    registry->started = started;
}

std::shared_ptr<DraftManagerUnsubscribe>
DraftManager::registerOnChangedListener(DraftQueueChangedListener listener) {
    const std::string identifier = platform::makeUUID();
    const auto handle = std::make_shared<DraftManagerUnsubscribe>(removal(identifier));
    auto subscription = std::make_shared<Subscription>(std::move(listener), runLoop->now(), handle);
    const platform::Lock held(lock);
    registry->subscriptions.emplace(identifier, std::move(subscription));
    return handle;
}

bool DraftManager::hasListeners() const {
    const platform::Lock held(lock);
    return !registry->subscriptions.empty();
}

std::vector<std::shared_ptr<DraftManager::Subscription>> DraftManager::listeners() const {
    std::vector<std::shared_ptr<Subscription>> all;
    const platform::Lock held(lock);
    all.reserve(registry->subscriptions.size());
    for (const auto& [identifier, subscription] : registry->subscriptions) {
        all.push_back(subscription);
    }
    return all;
}

void DraftManager::queueChanged(js::Scope& scope, js::Arguments arguments) {
    const auto argument = [&](std::size_t index) {
        return index < arguments.size() ? arguments[index] : scope.undefined();
    };
    if (!hasListeners()) {
        return;
    }
    auto state = tessel::decodeLarge<DraftManagerState>(scope, argument(0));
    const auto kind = tessel::decodeValue<DraftQueueItemOperationType>(scope, argument(1));
    if (!state || !kind) {
        return;
    }
    std::optional<DraftQueueItem> item;
    if (auto decoded = tessel::decodeValue<DraftQueueItem>(scope, argument(2))) {
        item = *std::move(decoded);
    }
    notificationQueue->async(
        [called = listeners(), state = *std::move(state), kind = *kind, item = std::move(item)] {
            for (const auto& subscription : called) {
                callOut("a draft queue listener", subscription->callback, state, kind, item);
            }
        });
}

void DraftManager::addExternalAction(std::string targetId, Metadata metadata,
                                     DraftQueueItemCallback completion) {
    static const js::Name function("addCustomAction");
    const auto self = shared_from_this(); // the runtime may drop the last reference
    using Result = std::expected<DraftQueueItem, Error>;
    const Once<Result> complete(completionName, std::move(completion));
    bool isPromised = false;
    enterRuntime(draftManager.context(), [&](js::Scope& scope) {
        const js::Sequence sequence(scope);
        const auto answer =
            scope.callMethod(scope.local(draftManager), function,
                             {scope.string(externalActionHandlerId), scope.string(targetId),
                              scope.string({}), tessel::encodeValue(scope, metadata)});
        isPromised = followPromise(
            scope, answer,
            [complete](js::Scope& inner, js::Local value) {
                tessel::Decoded<DraftQueueItem> item =
                    tessel::decodeValue<DraftQueueItem>(inner, value);
                complete(item ? Result(*std::move(item))
                              : failed<DraftQueueItem>(
                                    Error::unknownError("Unable to decode added item")));
            },
            reject<DraftQueueItem>(complete, "uknown error adding custom action"));
    });
    if (!isPromised) {
        complete(failed<DraftQueueItem>(
            Error::unknownError("addCustomAction did not return a promise")));
    }
}

void DraftManager::setExternalActionExecutor(ExternalActionExecutor executor,
                                             DraftManagerCompletion completion) {
    static const js::Name function("setCustomActionExecutor");
    const auto self = shared_from_this(); // the runtime may drop the last reference
    const Once<std::expected<void, Error>> complete(completionName, completion);
    std::optional superseded = BatchExternalActionExecutor{executor, std::move(completion)};
    js::Function ended;
    {
        const platform::Lock held(lock);
        registry->externalActionExecutor.swap(superseded);
        ended = externalActionUnsubscribe;
    }
    bool isPromised = false;
    const bool isEntered = enterRuntime(draftManager.context(), [&](js::Scope& scope) {
        // A promise that is rejected already is heard of before it counts as one that nobody hears.
        const js::Sequence sequence(scope);
        if (ended) {
            if (const auto answer = ended.call(scope); !answer) {
                report(scope, answer.error());
            }
        }
        const auto answer = scope.callMethod(scope.local(draftManager), function,
                                             {scope.string(externalActionHandlerId),
                                              externalActionFunction(scope, std::move(executor))});
        isPromised = followPromise(
            scope, answer,
            [weak = weak_from_this(), complete](js::Scope& inner, js::Local value) {
                const auto manager = weak.lock();
                if (manager == nullptr) {
                    return;
                }
                js::Function registration =
                    js::Function::from(inner, value).value_or(js::Function());
                {
                    const platform::Lock held(manager->lock);
                    std::swap(manager->externalActionUnsubscribe, registration);
                }
                complete({});
            },
            reject<void>(complete, "uknown error when setting executor"));
    });
    if (!isEntered) {
        complete(failed<void>(Error::unknownError("an unknown JSContext error occurred")));
    } else if (!isPromised) {
        // The words are those of the other operation that adds to what the runtime carries out.
        complete(failed<void>(Error::unknownError("addExternalAction did not return a promise")));
    }
}

std::shared_ptr<const DraftManagerBatch> DraftManager::batching() const {
    return registry;
}

} // namespace zem
