#include <zem/Core/DataServiceProtocol.h>
#include <zem/Core/WirePublisher.h>

#include <atomic>
#include <utility>

namespace zem {

void WirePublisher::receive(std::shared_ptr<DictionarySubscriber> subscriber) const {
    auto subscription = std::make_shared<WirePublisherSubscription>(*service, adapterId, config,
                                                                    requestContext, subscriber);
    subscriber->receive(std::move(subscription));
}

WirePublisherSubscription::WirePublisherSubscription(
    DataServiceProtocol& dataService, std::string adapterId, std::string config,
    std::optional<AdapterRequestContext> requestContext,
    std::shared_ptr<DictionarySubscriber> target) {
    const auto failed = std::make_shared<std::atomic<bool>>(false);
    unsub = dataService.subscribeToAdapter(
        std::move(adapterId), std::move(config), std::move(requestContext),
        [target = std::move(target), failed](DataServiceResult result) {
            // The subscription stays open after a failure; the stream does not.
            if (target == nullptr || *failed) {
                return;
            }
            if (result) {
                (void)target->receive(*result);
            } else {
                *failed = true;
                target->receive(platform::Completion<DataServiceError>{std::move(result.error())});
            }
        });
}

void WirePublisherSubscription::cancel() {
    if (unsub) {
        unsub();
    }
}

} // namespace zem
