#include <zem/Tessel/Connection.h>
#include <zem/TesselPluginZEM/DraftQueue/DraftQueuePlugin.h>

#include <utility>

namespace zem {

std::shared_ptr<DraftQueuePlugin>
DraftQueuePlugin::create(std::shared_ptr<DraftQueueable> draftQueue) {
    return std::shared_ptr<DraftQueuePlugin>(new DraftQueuePlugin(std::move(draftQueue)));
}

DraftQueuePlugin::DraftQueuePlugin(std::shared_ptr<DraftQueueable> draftQueue)
    : draftQueue(std::move(draftQueue)) {}

void DraftQueuePlugin::setDraftQueue(std::shared_ptr<DraftQueueable> value) {
    platform::Lock held(lock);
    draftQueue.swap(value);
}

void DraftQueuePlugin::bind(tessel::Connection& to) {
    to.bind<"callProxyMethod", &DraftQueuePlugin::runtimeCallProxyMethod>(*this);
}

void DraftQueuePlugin::callProxyMethod(std::string methodName, std::string serializedArgsArray,
                                       DraftQueueCallback onResult, DraftQueueCallback onError) {
    const std::shared_ptr<DraftQueueable> called = [&] {
        platform::Lock held(lock);
        return draftQueue;
    }();
    if (called == nullptr) {
        if (onError) {
            onError("Unable to get reference to draft queue");
        }
        return;
    }
    called->callProxyMethod(std::move(methodName), std::move(serializedArgsArray),
                            std::move(onResult), std::move(onError));
}

void DraftQueuePlugin::runtimeCallProxyMethod(std::string methodName,
                                              std::string serializedArgsArray,
                                              const tessel::Callback<std::string>& onResult,
                                              const tessel::Callback<std::string>& onError) {
    callProxyMethod(std::move(methodName), std::move(serializedArgsArray), onResult, onError);
}

} // namespace zem
