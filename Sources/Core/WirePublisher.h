#pragma once

// An adapter as a stream of dictionaries.

#include <zem/Core/AdapterRequestContext.h>
#include <zem/Core/DataServiceResult.h>
#include <zem/Platform/Publisher.h>

#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace zem {

class DataServiceProtocol;

using DictionarySubscriber = platform::Subscriber<Dictionary, DataServiceError>;

/// Gives each subscriber a subscription of its own to the adapter, open until it is cancelled.
/// Values come on the service's callback queue as the runtime produces them, whatever the demand.
/// The stream never finishes; a failure, a timeout among them, ends it, and nothing is delivered
/// after that.
class WirePublisher final : public platform::Publisher<Dictionary, DataServiceError> {
  public:
    /// The service is kept as long as the publisher; `dataService` is not null.
    WirePublisher(std::shared_ptr<DataServiceProtocol> dataService, std::string adapterId,
                  std::string config, std::optional<AdapterRequestContext> requestContext)
        : service(std::move(dataService))
        , adapterId(std::move(adapterId))
        , config(std::move(config))
        , requestContext(std::move(requestContext)) {}

    void receive(std::shared_ptr<DictionarySubscriber> subscriber) const override;

  private:
    std::shared_ptr<DataServiceProtocol> service;
    std::string adapterId;
    std::string config;
    std::optional<AdapterRequestContext> requestContext;
};

/// One subscriber's subscription, which the runtime is asked for when this is made.
class WirePublisherSubscription final : public platform::Subscription {
  public:
    WirePublisherSubscription(DataServiceProtocol& dataService, std::string adapterId,
                              std::string config,
                              std::optional<AdapterRequestContext> requestContext,
                              std::shared_ptr<DictionarySubscriber> target);

    /// Does nothing: the runtime cannot be held back.
    void request(platform::Demand) override {}

    /// Ends the runtime's subscription; again and again harmless.
    void cancel() override;

    platform::CombineIdentifier combineIdentifier() const override { return identifier; }

  private:
    const platform::CombineIdentifier identifier;
    Unsubscribe unsub;
};

/// An error of a provider of wires. There is no such provider in this layer.
struct WireProviderError {
    struct JSException {
        std::string message;
        bool operator==(const JSException&) const = default;
    };
    struct MissingJSObject {
        std::string name;
        bool operator==(const MissingJSObject&) const = default;
    };
    struct LoadingError {
        bool operator==(const LoadingError&) const = default;
    };
    struct WiresNotFound {
        bool operator==(const WiresNotFound&) const = default;
    };

    static WireProviderError jsException(std::string message) {
        return {JSException{std::move(message)}};
    }
    static WireProviderError missingJSObject(std::string name) {
        return {MissingJSObject{std::move(name)}};
    }
    static WireProviderError loadingError() { return {LoadingError{}}; }
    static WireProviderError wiresNotFound() { return {WiresNotFound{}}; }

    bool operator==(const WireProviderError&) const = default;

    std::variant<JSException, MissingJSObject, LoadingError, WiresNotFound> value;
};

/// The name that providers of wires will have.
class WireProvider {
  public:
    virtual ~WireProvider() = default;
};

} // namespace zem
