#include <zem/Core/Private/Answers.h>
#include <zem/Core/Private/CallOut.h>
#include <zem/Core/Private/ReadAnswer.h>

#include <utility>

namespace zem {

namespace {

/// The closure is as small as can be, so that it needs no memory of its own.
template <class Answers>
js::Local makeFunction(js::Scope& scope, std::shared_ptr<Answers> answers) {
    return scope.function(
        "callback", 1,
        [answers = std::move(answers)](js::Scope& inner, js::Local, js::Arguments arguments) {
            answers->answer(inner, arguments);
            return inner.undefined();
        });
}

DataServiceResult resultOf(Outcome outcome, Fallback fallback) {
    if (!outcome) {
        return std::unexpected(std::move(outcome.error()));
    }
    return mapAnswer(*outcome, fallback);
}

} // namespace

js::Local DataService::OneShot::function(js::Scope& scope) {
    return makeFunction(scope, shared_from_this());
}

void DataService::OneShot::answer(js::Scope& scope, js::Arguments arguments) {
    // An answer that nobody will hear is not read.
    const bool isHeard = !answered && !service.expired();
    arrived(isHeard ? readAnswer(scope, arguments) : std::nullopt);
}

void DataService::OneShot::arrived(Outcome arrival) {
    if (answered.exchange(true)) {
        return;
    }
    if (const auto alive = service.lock()) {
        outcome = std::move(arrival);
        alive->callbackQueue->async([self = shared_from_this()] { self->deliver(); });
    }
    slot.giveBack();
}

void DataService::OneShot::deliver() {
    // Let go of with what it captured, while the runtime may keep the function for long.
    const ResultCallback called = std::move(callback);
    callOut("a result callback", called, resultOf(std::move(outcome), oneShotFallback));
}

js::Local DataService::Emissions::function(js::Scope& scope) {
    return makeFunction(scope, shared_from_this());
}

void DataService::Emissions::answer(js::Scope& scope, js::Arguments arguments) {
    const auto listening = subscription.lock();
    const bool isHeard =
        listening != nullptr && !listening->unsubscribable->wasCleanedUp() && !service.expired();
    arrived(isHeard ? readAnswer(scope, arguments) : std::nullopt);
}

void DataService::Emissions::arrived(Outcome outcome) {
    const auto listening = subscription.lock();
    const auto alive = service.lock();
    if (listening != nullptr && alive != nullptr) {
        if (!listening->hasEmitted.exchange(true)) {
            alive->settle(*listening);
        }
        slot.giveBack();
        deliver(listening, std::move(outcome));
    } else {
        slot.giveBack();
    }
}

void DataService::deliver(const std::shared_ptr<Subscription>& subscription, Outcome outcome) {
    subscription->unsubscribable->callbackQueue->async(
        [subscription, outcome = std::move(outcome)]() mutable {
            if (!subscription->unsubscribable->wasCleanedUp()) {
                callOut("a result callback", subscription->callback,
                        resultOf(std::move(outcome), subscriptionFallback));
            }
        });
}

} // namespace zem
