#pragma once

// The calls of the runtime's adapters, whether there is a runtime yet or not.

#include <zem/Core/AdapterRequestContext.h>
#include <zem/Core/ContentAdapterConfigs.h>
#include <zem/Core/DataServiceResult.h>
#include <zem/Platform/Future.h>
#include <zem/Platform/Publisher.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace zem {

/// Every operation returns at once and may be called on any thread. `config` is the adapter's
/// configuration, JSON by agreement; it is passed on as it is. Callbacks throw nothing; what one
/// throws is logged and goes no further.
class DataServiceProtocol : public std::enable_shared_from_this<DataServiceProtocol> {
  public:
    virtual ~DataServiceProtocol() = default;

    /// Calls back once, on the service's callback queue, with the runtime's answer. Never when the
    /// service is destroyed before, or the runtime does not answer.
    virtual void invokeAdapter(std::string adapterId, std::string config,
                               std::optional<AdapterRequestContext> requestContext,
                               ResultCallback callback) = 0;

    /// The same for a call that attaches `metadata` to the draft that it creates. It overtakes all
    /// calls that are not mutating.
    virtual void invokeAdapterWithMetadata(std::string adapterId, std::string config,
                                           Metadata metadata, ResultCallback callback) = 0;

    /// The same for a call that replaces a draft.
    virtual void invokeAdapterWithDraftToReplace(std::string adapterId, std::string config,
                                                 std::string draftIdToReplace,
                                                 ResultCallback callback) = 0;

    /// Calls back, on the service's callback queue, for every answer of the runtime until the
    /// subscription is ended: no call begins once the returned callback has returned, or, where it
    /// runs on another thread just then, when that call is over. A subscription that is silent for
    /// too long hears of a timeout, once, and stays open: see `DataService::create` for the run
    /// loop that this takes.
    [[nodiscard]] virtual Unsubscribe
    subscribeToAdapter(std::string adapterId, std::string config,
                       std::optional<AdapterRequestContext> requestContext,
                       ResultCallback callback) = 0;

    /// How long records count as fresh, in the runtime's unit. `completion` is called once: before
    /// returning, or on the engine's thread when the runtime's promise is fulfilled; never when
    /// that is rejected.
    virtual void setRimvoRecordTTL(std::int64_t ttl, std::function<void()> completion) = 0;
    virtual void setMetadataTTL(std::int64_t ttl, std::function<void()> completion) = 0;

    /// Upload a file. The bytes go into the application's binary store, the runtime gets their
    /// handle. Call back like `invokeAdapter`, or on the calling thread, before returning, when
    /// there is no binary store, when that throws, or when the file cannot be described as JSON.
    virtual void createContentDocumentAndVersion(CreateContentDocumentAndVersionConfig config,
                                                 std::optional<Metadata> metadata,
                                                 ResultCallback callback) = 0;
    virtual void createContentVersion(CreateContentVersionConfig config,
                                      std::optional<Metadata> metadata,
                                      ResultCallback callback) = 0;

    /// The same calls without a request context.
    void invokeAdapter(std::string adapterId, std::string config, ResultCallback callback) {
        invokeAdapter(std::move(adapterId), std::move(config), std::nullopt, std::move(callback));
    }
    [[nodiscard]] Unsubscribe subscribeToAdapter(std::string adapterId, std::string config,
                                                 ResultCallback callback) {
        return subscribeToAdapter(std::move(adapterId), std::move(config), std::nullopt,
                                  std::move(callback));
    }

    /// The same calls with a future of the result, completed on the callback queue. When the call
    /// is dropped without a result (the service is gone, the runtime never answers), the future
    /// fails with `unknown`.
    platform::Future<DataServiceResult>
    invokeAdapter(std::string adapterId, std::string config,
                  std::optional<AdapterRequestContext> requestContext);
    platform::Future<DataServiceResult>
    invokeAdapterWithMetadata(std::string adapterId, std::string config, Metadata metadata);
    platform::Future<DataServiceResult>
    invokeAdapterWithDraftToReplace(std::string adapterId, std::string config,
                                    std::string draftIdToReplace);

    /// The adapter as a stream, see `WirePublisher`; the service is kept as long as that.
    platform::AnyPublisher<Dictionary, DataServiceError>
    subscribeToAdapter(std::string adapterId, std::string config,
                       std::optional<AdapterRequestContext> requestContext);
};

/// True when the caller wants no further results.
using SelfEndingCallback = std::function<bool(DataServiceResult)>;

class DataServiceProtocolDeprecated : public DataServiceProtocol {
  public:
    /// A subscription that ends itself when `callback` answers true; what comes after that is not
    /// delivered. Otherwise like `subscribeToAdapter`.
    Unsubscribe executeAdapter(std::string adapterId, std::string config,
                               std::optional<AdapterRequestContext> requestContext,
                               SelfEndingCallback callback);
    Unsubscribe executeAdapter(std::string adapterId, std::string config,
                               SelfEndingCallback callback) {
        return executeAdapter(std::move(adapterId), std::move(config), std::nullopt,
                              std::move(callback));
    }
};

} // namespace zem
