#pragma once

// The runtime's answers on their way to the caller. Each is reached by the engine function that the
// runtime was given, and owned by it.

#include <zem/Core/AdapterInvokeOperation.h>
#include <zem/Core/DataService.h>
#include <zem/Core/Private/ResultMapping.h>
#include <zem/JavaScript/Scope.h>

#include <atomic>
#include <memory>

namespace zem {

/// A place on the shared queue. Given back when the call was answered, and when it no longer can
/// be: the call was dropped, or the runtime let go of the function without calling it.
class AdapterCallPlace {
  public:
    explicit AdapterCallPlace(std::weak_ptr<AdapterInvokeOperation> operation)
        : operation(std::move(operation)) {}
    ~AdapterCallPlace() { giveBack(); }
    AdapterCallPlace(const AdapterCallPlace&) = delete;
    AdapterCallPlace& operator=(const AdapterCallPlace&) = delete;

    void giveBack() {
        if (const auto held = operation.lock()) {
            held->finish();
        }
    }

  private:
    const std::weak_ptr<AdapterInvokeOperation> operation;
};

/// The answer of a call that has one: those after the first are dropped.
class DataService::OneShot : public std::enable_shared_from_this<OneShot> {
  public:
    OneShot(std::weak_ptr<DataService> service, ResultCallback callback,
            std::weak_ptr<AdapterInvokeOperation> operation = {})
        : service(std::move(service))
        , callback(std::move(callback))
        , place(std::move(operation)) {}

    /// The function that the runtime calls.
    js::Local function(js::Scope& scope);
    void fail(DataServiceError error) { arrived(std::unexpected(std::move(error))); }

    /// The runtime has called the function.
    void answer(js::Scope& scope, js::Arguments arguments);

  private:
    void arrived(Outcome arrival);
    void deliver();

    const std::weak_ptr<DataService> service;
    ResultCallback callback;
    std::atomic<bool> answered = false;
    Outcome outcome; ///< from when it has been answered
    AdapterCallPlace place;
};

/// The answers of a subscription, for as long as somebody owns that. It is held weakly: it holds
/// the runtime's unsubscribe function, which may hold the function that holds this.
class DataService::Emissions : public std::enable_shared_from_this<Emissions> {
  public:
    Emissions(std::weak_ptr<DataService> service, const std::shared_ptr<Subscription>& subscription)
        : service(std::move(service))
        , subscription(subscription)
        , place(subscription->adapterOperation) {}

    js::Local function(js::Scope& scope);
    void fail(DataServiceError error) { arrived(std::unexpected(std::move(error))); }

    /// The runtime has called the function.
    void answer(js::Scope& scope, js::Arguments arguments);

  private:
    void arrived(Outcome outcome);

    const std::weak_ptr<DataService> service;
    const std::weak_ptr<Subscription> subscription;
    AdapterCallPlace place;
};

} // namespace zem
