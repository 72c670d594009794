#include <zem/Core/DataServiceProtocol.h>
#include <zem/Core/WirePublisher.h>
#include <zem/Platform/Mutex.h>

#include <memory>
#include <utility>

namespace zem {

using platform::AnyPublisher;
using platform::Future;
using platform::Promise;

namespace {

/// The future of what `call` does with the callback that it is given.
template <class Call>
Future<DataServiceResult> promised(Call call) {
    const Promise<DataServiceResult> promise{std::unexpected(DataServiceError::unknown())};
    call([promise](DataServiceResult result) { promise.complete(std::move(result)); });
    return promise.future();
}

/// Joins the caller's wish to end with the means to, whichever comes first.
class SelfEnding {
  public:
    explicit SelfEnding(SelfEndingCallback callback)
        : callback(std::move(callback)) {}

    void deliver(DataServiceResult result) {
        if (isEnded()) {
            return;
        }
        if (callback && callback(std::move(result))) {
            end();
        }
    }

    void setUnsubscribe(const Unsubscribe& arrived) {
        {
            const platform::Lock lock(mutex);
            unsubscribe = arrived;
            if (!pending) {
                return;
            }
        }
        arrived();
    }

  private:
    bool isEnded() const {
        const platform::Lock lock(mutex);
        return ended;
    }

    void end() {
        Unsubscribe present;
        {
            const platform::Lock lock(mutex);
            ended = true;
            pending = !unsubscribe;
            present = unsubscribe;
        }
        if (present) {
            present();
        }
    }

    const SelfEndingCallback callback;
    mutable platform::Mutex mutex;
    bool ended = false;
    bool pending = false;
    Unsubscribe unsubscribe;
};

} // namespace

Future<DataServiceResult>
DataServiceProtocol::invokeAdapter(std::string adapterId, std::string config,
                                   std::optional<AdapterRequestContext> requestContext) {
    return promised([&](ResultCallback callback) {
        invokeAdapter(std::move(adapterId), std::move(config), std::move(requestContext),
                      std::move(callback));
    });
}

Future<DataServiceResult> DataServiceProtocol::invokeAdapterWithMetadata(std::string adapterId,
                                                                         std::string config,
                                                                         Metadata metadata) {
    return promised([&](ResultCallback callback) {
        invokeAdapterWithMetadata(std::move(adapterId), std::move(config), std::move(metadata),
                                  std::move(callback));
    });
}

Future<DataServiceResult>
DataServiceProtocol::invokeAdapterWithDraftToReplace(std::string adapterId, std::string config,
                                                     std::string draftIdToReplace) {
    return promised([&](ResultCallback callback) {
        invokeAdapterWithDraftToReplace(std::move(adapterId), std::move(config),
                                        std::move(draftIdToReplace), std::move(callback));
    });
}

AnyPublisher<Dictionary, DataServiceError>
DataServiceProtocol::subscribeToAdapter(std::string adapterId, std::string config,
                                        std::optional<AdapterRequestContext> requestContext) {
    return AnyPublisher<Dictionary, DataServiceError>(WirePublisher(
        shared_from_this(), std::move(adapterId), std::move(config), std::move(requestContext)));
}

Unsubscribe
DataServiceProtocolDeprecated::executeAdapter(std::string adapterId, std::string config,
                                              std::optional<AdapterRequestContext> requestContext,
                                              SelfEndingCallback callback) {
    const auto selfEnding = std::make_shared<SelfEnding>(std::move(callback));
    Unsubscribe unsubscribe = subscribeToAdapter(
        std::move(adapterId), std::move(config), std::move(requestContext),
        [selfEnding](DataServiceResult result) { selfEnding->deliver(std::move(result)); });
    selfEnding->setUnsubscribe(unsubscribe);
    return unsubscribe;
}

} // namespace zem
