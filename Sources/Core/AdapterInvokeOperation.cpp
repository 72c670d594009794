#include <zem/Core/AdapterInvokeOperation.h>

namespace zem {

namespace {

std::string_view keyOf(AdapterInvokeOperation::State state) {
    switch (state) {
    case AdapterInvokeOperation::State::ready:
        return "isReady";
    case AdapterInvokeOperation::State::executing:
        return "isExecuting";
    case AdapterInvokeOperation::State::finished:
        break;
    }
    return "isFinished";
}

} // namespace

platform::QueuePriority queuePriority(AdapterRequestPriority priority) {
    switch (priority) {
    case AdapterRequestPriority::high:
        return platform::QueuePriority::high;
    case AdapterRequestPriority::normal:
        return platform::QueuePriority::normal;
    case AdapterRequestPriority::background:
        break;
    }
    return platform::QueuePriority::veryLow;
}

std::shared_ptr<AdapterInvokeOperation>
AdapterInvokeOperation::create(AdapterRequestPriority priority) {
    auto operation = std::make_shared<AdapterInvokeOperation>(Made());
    operation->setQueuePriority(zem::queuePriority(priority));
    return operation;
}

void AdapterInvokeOperation::setWorkBlock(platform::Task block) {
    workBlock = std::move(block);
}

void AdapterInvokeOperation::setShouldNotStart() {
    shouldNotStart = true;
}

AdapterInvokeOperation::State AdapterInvokeOperation::state() const {
    const platform::Lock lock(stateLock);
    return stateStore;
}

void AdapterInvokeOperation::setState(State state) {
    const std::string_view oldKey = keyOf(this->state());
    const std::string_view newKey = keyOf(state);
    willChangeValue(oldKey);
    willChangeValue(newKey);
    {
        const platform::Lock lock(stateLock);
        stateStore = state;
    }
    didChangeValue(newKey);
    didChangeValue(oldKey);
}

void AdapterInvokeOperation::finish() {
    if (!finishing.exchange(true)) {
        setState(State::finished);
    }
}

bool AdapterInvokeOperation::isCancelled() const {
    return shouldNotStart && !isExecuting();
}

void AdapterInvokeOperation::start() {
    if (isFinished()) {
        return;
    }
    if (isCancelled()) {
        finish();
        return;
    }
    setState(State::executing);
    // The block's captures are destroyed when it has run, not with the operation.
    if (platform::Task block = std::exchange(workBlock, nullptr)) {
        block();
    }
}

} // namespace zem
