#include <zem/Platform/Log.h>
#include <zem/Platform/UUID.h>
#include <zem/Tessel/Connection.h>
#include <zem/Tessel/JSON.h>
#include <zem/TesselPluginZEM/NetworkAdapter/MultipartForm.h>
#include <zem/TesselPluginZEM/NetworkAdapter/NetworkAdapterPlugin.h>

#include <stdexcept>
#include <utility>

namespace zem {

namespace {

/// Makes a callback for the network adapter. It hands its argument to JavaScript by the queue. The
/// operation ends after JavaScript has heard of the result: one that comes meanwhile overtakes
/// those of lower priority that wait.
template <class Outcome>
auto deliver(const std::shared_ptr<platform::OperationQueue>& queue,
             platform::QueuePriority priority, const tessel::Callback<Outcome>& callback) {
    return [queue, priority, callback](Outcome outcome) {
        queue->addOperation(
            [callback = callback, outcome = std::move(outcome)]() mutable {
                std::move(callback).callInLane(std::move(outcome));
            },
            priority, callback.target().context().lane());
    };
}

} // namespace

platform::QueuePriority queuePriority(std::optional<RequestPriority> priority) {
    const int position = static_cast<int>(priority.value_or(RequestPriority::normal));
    return static_cast<platform::QueuePriority>(8 - 8 * position);
}

std::shared_ptr<NetworkAdapterPlugin>
NetworkAdapterPlugin::create(std::shared_ptr<NetworkAdapter> networkAdapter,
                             std::shared_ptr<BinaryStore> binaryStore) {
    if (networkAdapter == nullptr || binaryStore == nullptr) {
        throw std::invalid_argument(
            "NetworkAdapterPlugin: expected a network adapter and a binary store, found none");
    }
    return std::shared_ptr<NetworkAdapterPlugin>(
        new NetworkAdapterPlugin(std::move(networkAdapter), std::move(binaryStore)));
}

NetworkAdapterPlugin::NetworkAdapterPlugin(std::shared_ptr<NetworkAdapter> networkAdapter,
                                           std::shared_ptr<BinaryStore> binaryStore)
    : networkAdapter(std::move(networkAdapter))
    , binaryStore(std::move(binaryStore))
    , responseQueue(platform::OperationQueue::create(1)) {}

void NetworkAdapterPlugin::bind(tessel::Connection& to) {
    to.bind<"sendRequest", &NetworkAdapterPlugin::sendRequest>(*this);
    to.bind<"cancelRequest", &NetworkAdapterPlugin::cancelRequest>(*this);
}

bool NetworkAdapterPlugin::shouldBuildFormDataRequest(const Request& request) {
    return request.method == HTTPMethod::POST && request.body &&
           request.body->find("namedEntries") != std::string::npos;
}

std::string NetworkAdapterPlugin::sendRequest(Request request,
                                              const tessel::Callback<Response>& onResponse,
                                              const tessel::Callback<NetworkError>& onError) {
    const platform::QueuePriority priority = queuePriority(request.priority);
    if (shouldBuildFormDataRequest(request)) {
        request = multipartFormRequest(std::move(request));
    }
    return networkAdapter->sendRequest(std::move(request),
                                       deliver(responseQueue, priority, onResponse),
                                       deliver(responseQueue, priority, onError));
}

void NetworkAdapterPlugin::cancelRequest(const std::string& token) {
    networkAdapter->cancelRequest(token);
}

Request NetworkAdapterPlugin::multipartFormRequest(Request request) const {
    const auto json = tessel::parse(*request.body);
    if (!json) {
        return request;
    }
    const auto body = tessel::fromAny<MultiPartBody>(*json);
    if (!body) {
        return request;
    }
    auto fields = body->fields(*binaryStore);
    if (!fields) {
        static const auto& log = *new platform::Log("com.quorvane.ZEM", "NetworkAdapter");
        log.debug("Unable to create a multipart form request");
        return request;
    }
    if (fields->empty()) {
        return request;
    }
    return zem::multipartFormRequest(request, std::move(*fields), platform::makeUUID());
}

} // namespace zem
