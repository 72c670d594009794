#include "Runtime.h"

#include <zem/Core/BatchingDataService.h>
#include <zem/Core/DataService.h>

#include <utility>

namespace zem::host {

/// Used on the thread only, but for `whyNotReady`.
class Runtime::Services {
  public:
    explicit Services(Listener listener)
        : listener(std::move(listener)) {}

    void make() { batching = BatchingDataService::create(); }

    void close() { closed = true; }
    bool isClosed() const { return closed; }

    void perform(const std::function<void(DataServiceProtocol&)>& work) {
        if (service != nullptr) {
            work(*service);
            return;
        }
        work(*batching);
        if (failure) {
            failRecorded();
        }
    }

    void expect() {
        if (service == nullptr) {
            failure.reset();
            setWhyNot("the promise in globalThis.runtime is not settled");
        }
    }

    void handOver(js::Value dataService) {
        if (service != nullptr) {
            return;
        }
        service = DataService::create(std::move(dataService), nullptr, batching->takeState(),
                                      DataService::defaultWatchdogTimeout);
        setWhyNot(std::nullopt);
        if (listener.ready) {
            listener.ready();
        }
    }

    void fail(std::string why) {
        if (service != nullptr) {
            return;
        }
        failure = why;
        setWhyNot(std::move(why));
        failRecorded();
    }

    std::optional<std::string> whyNotReady() const {
        const platform::Lock lock(mutex);
        return whyNot;
    }

  private:
    void setWhyNot(std::optional<std::string> why) {
        const platform::Lock lock(mutex);
        whyNot.swap(why);
    }

    void failRecorded() {
        // Not replayed, should another runtime come: it has been said that they failed.
        static_cast<void>(batching->takeState());
        if (listener.failed) {
            listener.failed(*failure);
        }
    }

    const Listener listener;
    std::shared_ptr<BatchingDataService> batching;
    std::shared_ptr<DataService> service;
    std::optional<std::string> failure;
    bool closed = false;
    mutable platform::Mutex mutex;
    std::optional<std::string> whyNot = "the bundle has set no globalThis.runtime";
};

Runtime::Runtime(std::shared_ptr<tessel::Activity> activity, Listener listener)
    : activity(std::move(activity))
    , thread("data service")
    , services(std::make_shared<Services>(std::move(listener))) {
    post([](Services& made) { made.make(); });
}

Runtime::~Runtime() = default;

void Runtime::perform(std::function<void(DataServiceProtocol&)> work) {
    post([work = std::move(work)](Services& made) { made.perform(work); });
}

void Runtime::promised() {
    post([](Services& made) { made.expect(); });
}

void Runtime::arrived(js::Value dataService) {
    post([dataService = std::move(dataService)](Services& made) { made.handOver(dataService); });
}

void Runtime::failed(std::string why) {
    post([why = std::move(why)](Services& made) { made.fail(why); });
}

void Runtime::close(std::function<void()> quiet) {
    post([quiet = std::move(quiet)](Services& made) {
        made.close();
        quiet();
    });
}

std::optional<std::string> Runtime::whyNotReady() const {
    return services->whyNotReady();
}

void Runtime::post(std::function<void(Services&)> work) {
    // The run does not end before it is done.
    thread.runLoop()->perform(
        [work = std::move(work), services = services,
         token = std::make_unique<tessel::ActivityToken>(activity)]() mutable {
            if (!services->isClosed()) {
                work(*services);
            }
            work = nullptr;
        });
}

} // namespace zem::host
