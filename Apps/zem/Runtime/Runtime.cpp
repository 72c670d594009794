#include "Runtime.h"

#include <zem/Core/BatchingDataService.h>
#include <zem/Core/BatchingDraftManager.h>
#include <zem/Core/DataService.h>
#include <zem/Core/DraftManager.h>
#include <zem/Core/DraftQueueProxy.h>
#include <zem/Platform/Queue.h>

#include <utility>
#include <vector>

namespace zem::host {

namespace {

MissingParts allMissing(const std::string& why) {
    return {{RuntimePart::dataService, why},
            {RuntimePart::draftManager, why},
            {RuntimePart::draftQueue, why}};
}

MissingParts missingOf(const RuntimeParts& parts) {
    MissingParts missing;
    const auto look = [&](RuntimePart name, const RuntimeParts::Part& part) {
        if (!part) {
            missing.emplace(name, part.error());
        }
    };
    look(RuntimePart::dataService, parts.dataService);
    look(RuntimePart::draftManager, parts.draftManager);
    look(RuntimePart::draftQueue, parts.draftQueue);
    return missing;
}

} // namespace

/// Used on the services' thread only, except `missing`.
class Runtime::Services final : public RuntimeServices {
  public:
    Services(std::shared_ptr<DraftQueuePlugin> draftQueuePlugin,
             std::shared_ptr<BinaryStore> binaryStore, Listener listener)
        : listener(std::move(listener))
        , draftQueuePlugin(std::move(draftQueuePlugin))
        , binaryStore(std::move(binaryStore)) {}

    void make() {
        batchingDataService = BatchingDataService::create();
        currentDataService = batchingDataService;
        batchingDraftManager = BatchingDraftManager::create();
        currentDraftManager = batchingDraftManager;
    }

    void close() {
        closed = true;
        // Dropped here: work still queued on them must not reach an engine whose thread has ended.
        currentDataService.reset();
        currentDraftManager.reset();
    }
    bool isClosed() const { return closed; }

    DataServiceProtocol& dataService() override {
        isRecorded |= currentDataService == batchingDataService;
        return *currentDataService;
    }

    DraftManagerProtocol& draftManager() override {
        isRecorded |= currentDraftManager == batchingDraftManager;
        return *currentDraftManager;
    }

    void processNextAction(ProcessActionCallback response) override {
        if (draftQueue == nullptr) {
            isRecorded = true;
            recordedProcessing.push_back(std::move(response));
        } else {
            draftQueue->processNextAction(std::move(response));
        }
    }

    void perform(const std::function<void(RuntimeServices&)>& work) {
        isRecorded = false;
        work(*this);
        if (partsKnown && isRecorded) {
            tell();
        }
    }

    void expect() {
        if (!hasRuntime) {
            partsKnown = false;
            setMissing(allMissing("the promise in globalThis.runtime is not settled"));
        }
    }

    void arrive(const RuntimeParts& parts) {
        if (hasRuntime) {
            return;
        }
        hasRuntime = parts.dataService || parts.draftManager || parts.draftQueue;
        handOver(parts);
        publish(missingOf(parts));
    }

    void fail(const std::string& why) {
        if (!hasRuntime) {
            publish(allMissing(why));
        }
    }

    MissingParts missing() const {
        const platform::Lock lock(mutex);
        return missingParts;
    }

  private:
    void handOver(const RuntimeParts& parts) {
        if (parts.draftQueue) {
            // First: the runtime may call it while the other parts receive their recorded calls.
            draftQueuePlugin->setDraftQueue(DraftQueueProxy::create(*parts.draftQueue));
        }
        if (parts.dataService) {
            currentDataService = DataService::create(*parts.dataService, binaryStore,
                                                     batchingDataService->takeState(),
                                                     DataService::defaultWatchdogTimeout);
        }
        if (parts.draftManager) {
            currentDraftManager = DraftManager::create(
                *parts.draftManager, *batchingDraftManager->takeBatching(), platform::mainQueue());
        }
        if (parts.draftQueue) {
            draftQueue = DraftQueue::create(*parts.draftQueue);
            for (ProcessActionCallback& response : std::exchange(recordedProcessing, {})) {
                draftQueue->processNextAction(std::move(response));
            }
        }
    }

    void publish(MissingParts found) {
        partsKnown = true;
        setMissing(std::move(found));
        tell();
    }

    void tell() {
        // Taken out, so that a later runtime does not carry them out: the listener reports now that
        // they failed. Destroyed after the listener has run: a callback dropped without an answer
        // would report its own failure first.
        const auto adapterCalls = batchingDataService->takeState();
        const auto draftCalls = batchingDraftManager->takeBatching();
        const auto processing = std::exchange(recordedProcessing, {});
        if (listener) {
            listener(missing());
        }
    }

    void setMissing(MissingParts found) {
        const platform::Lock lock(mutex);
        missingParts.swap(found);
    }

    const Listener listener;
    const std::shared_ptr<DraftQueuePlugin> draftQueuePlugin;
    const std::shared_ptr<BinaryStore> binaryStore;
    std::shared_ptr<BatchingDataService> batchingDataService;
    std::shared_ptr<BatchingDraftManager> batchingDraftManager;
    std::shared_ptr<DataServiceProtocol> currentDataService;
    std::shared_ptr<DraftManagerProtocol> currentDraftManager;
    std::shared_ptr<DraftQueue> draftQueue;
    std::vector<ProcessActionCallback> recordedProcessing;
    /// True once the runtime's parts were read, or it failed. False again while another runtime is
    /// promised.
    bool partsKnown = false;
    /// True once a runtime with a usable part has arrived.
    bool hasRuntime = false;
    /// The current work used a part that is missing: its calls were recorded.
    bool isRecorded = false;
    bool closed = false;
    mutable platform::Mutex mutex;
    MissingParts missingParts = allMissing("the bundle has set no globalThis.runtime");
};

Runtime::Runtime(std::shared_ptr<tessel::Activity> activity,
                 std::shared_ptr<DraftQueuePlugin> draftQueuePlugin,
                 std::shared_ptr<BinaryStore> binaryStore, Listener listener)
    : activity(std::move(activity))
    , thread("services")
    , services(std::make_shared<Services>(std::move(draftQueuePlugin), std::move(binaryStore),
                                          std::move(listener))) {
    post([](Services& made) { made.make(); });
}

Runtime::~Runtime() = default;

void Runtime::perform(std::function<void(RuntimeServices&)> work) {
    post([work = std::move(work)](Services& made) { made.perform(work); });
}

void Runtime::promised() {
    post([](Services& made) { made.expect(); });
}

void Runtime::arrived(RuntimeParts parts) {
    post([parts = std::move(parts)](Services& made) { made.arrive(parts); });
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

MissingParts Runtime::missing() const {
    return services->missing();
}

void Runtime::post(std::function<void(Services&)> work) {
    // The token keeps the run from ending before the work is done.
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
