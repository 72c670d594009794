#include <zem/Core/DataServiceProtocol.h>
#include <zem/Platform/Mutex.h>

#include <memory>
#include <utility>

namespace zem {

namespace {

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
