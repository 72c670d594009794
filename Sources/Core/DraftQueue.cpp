#include <zem/Core/DraftQueue.h>
#include <zem/Core/Private/EnterRuntime.h>
#include <zem/Core/Private/Once.h>
#include <zem/Core/Private/Promise.h>
#include <zem/Core/Private/RejectionText.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Tessel/JSValueCoder.h>

#include <stdexcept>
#include <utility>

namespace zem {

namespace {

using Outcome = std::expected<ProcessActionResult, DraftQueueNativeError>;

Outcome fulfilment(js::Scope& scope, js::Local value) {
    auto decoded = tessel::decodeValue<ProcessActionResult>(scope, value);
    if (!decoded) {
        return std::unexpected(
            DraftQueueNativeError::decodingPromiseError(std::move(decoded.error())));
    }
    return *decoded;
}

Outcome rejection(js::Scope& scope, js::Local reason) {
    return std::unexpected(DraftQueueNativeError::promiseRejection(rejectionText(scope, reason)));
}

} // namespace

std::shared_ptr<DraftQueue> DraftQueue::create(js::Value draftQueue) {
    if (!draftQueue) {
        throw std::invalid_argument(
            "DraftQueue: expected the runtime's draft queue, found no value");
    }
    return std::shared_ptr<DraftQueue>(new DraftQueue(std::move(draftQueue)));
}

DraftQueue::DraftQueue(js::Value draftQueue)
    : draftQueue(std::move(draftQueue)) {}

void DraftQueue::processNextAction(ProcessActionCallback response) {
    const Once<Outcome> answer("the response of processNextAction", std::move(response));
    // A copy: the runtime and the response may drop the last reference to this queue.
    const js::Value target = draftQueue;
    enterRuntime(target.context(), [&](js::Scope& scope) {
        static const js::Name method("processNextAction");
        callForPromise(
            scope, scope.local(target), method, {},
            [answer](js::Scope& inner, js::Local value) { answer(fulfilment(inner, value)); },
            [answer](js::Scope& inner, js::Local reason) { answer(rejection(inner, reason)); });
    });
}

} // namespace zem
