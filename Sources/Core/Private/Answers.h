#pragma once

// The runtime's answers on their way to the caller. Each is reached by the engine function that the
// runtime was given, and owned by it.

#include <zem/Core/AdapterInvokeOperation.h>
#include <zem/Core/DataService.h>
#include <zem/Core/Private/ResultMapping.h>
#include <zem/JavaScript/Scope.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace zem {

/// A slot on the shared queue. Given back when the call was answered, and when it no longer can
/// be: the call was dropped, or the runtime let go of the function without calling it.
class AdapterCallSlot {
  public:
    explicit AdapterCallSlot(std::weak_ptr<AdapterInvokeOperation> operation)
        : operation(std::move(operation)) {}
    ~AdapterCallSlot() { giveBack(); }
    AdapterCallSlot(const AdapterCallSlot&) = delete;
    AdapterCallSlot& operator=(const AdapterCallSlot&) = delete;

    void giveBack() {
        if (const auto held = operation.lock()) {
            held->finish();
        }
    }

    const std::weak_ptr<AdapterInvokeOperation> operation;
};

/// The answer of a call that has one: those after the first are dropped.
class DataService::OneShot : public std::enable_shared_from_this<OneShot> {
  public:
    OneShot(std::weak_ptr<DataService> service, ResultCallback callback,
            std::weak_ptr<AdapterInvokeOperation> operation = {})
        : service(std::move(service))
        , slot(std::move(operation))
        , callback(std::move(callback)) {}

    /// The function that the runtime calls.
    js::Local function(js::Scope& scope);
    void fail(DataServiceError error) { arrived(std::unexpected(std::move(error))); }

    /// The runtime has called the function.
    void answer(js::Scope& scope, js::Arguments arguments);

  protected:
    const std::weak_ptr<DataService> service;
    AdapterCallSlot slot;

  private:
    void arrived(Outcome arrival);
    void deliver();

    ResultCallback callback;
    std::atomic<bool> answered = false;
    Outcome outcome; ///< from when it has been answered
};

/// A call of "invokeAdapter": its arguments beside its answer, in one allocation. Many calls may
/// wait, and they are made on one thread and destroyed on another.
class DataService::Invocation : public OneShot {
  public:
    Invocation(std::weak_ptr<DataService> service, ResultCallback callback,
               std::weak_ptr<AdapterInvokeOperation> operation, std::string adapterId,
               std::string config, std::optional<AdapterRequestContext> requestContext)
        : OneShot(std::move(service), std::move(callback), std::move(operation))
        , adapterId(std::move(adapterId))
        , config(std::move(config))
        , requestContext(std::move(requestContext)) {}

    /// Calls the runtime. The arguments are dropped then: the runtime may keep the function, and
    /// with it this object, for long.
    void start();

  private:
    std::string adapterId;
    std::string config;
    std::optional<AdapterRequestContext> requestContext;
};

/// The answers of a subscription, for as long as somebody owns that. It is held weakly: it holds
/// the runtime's unsubscribe function, which may hold the function that holds this.
class DataService::Emissions : public std::enable_shared_from_this<Emissions> {
  public:
    Emissions(std::weak_ptr<DataService> service, const std::shared_ptr<Subscription>& subscription)
        : service(std::move(service))
        , subscription(subscription)
        , slot(subscription->adapterOperation) {}

    js::Local function(js::Scope& scope);
    void fail(DataServiceError error) { arrived(std::unexpected(std::move(error))); }

    /// The runtime has called the function.
    void answer(js::Scope& scope, js::Arguments arguments);

  private:
    void arrived(Outcome outcome);

    const std::weak_ptr<DataService> service;
    const std::weak_ptr<Subscription> subscription;
    AdapterCallSlot slot;
};

} // namespace zem
