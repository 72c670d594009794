#include <zem/Core/Private/Answers.h>
#include <zem/Core/Private/CallOut.h>

#include <utility>

namespace zem {

namespace {

/// Whole at once, as the engine's own JSON text: what takes time, making a dictionary of it, is
/// left to the callback queue.
AnswerText read(js::Scope& scope, js::Arguments arguments) {
    if (arguments.empty() || scope.kind(arguments[0]) != js::Kind::object) {
        return std::nullopt;
    }
    return scope.stringify(arguments[0]).value_or(std::nullopt);
}

/// The closure is as small as can be, so that it needs no memory of its own.
template <auto arrived, class Answers>
js::Local makeFunction(js::Scope& scope, std::shared_ptr<Answers> answers) {
    return scope.function(
        "callback", 1,
        [answers = std::move(answers)](js::Scope& inner, js::Local, js::Arguments arguments) {
            ((*answers).*arrived)(read(inner, arguments));
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
    return makeFunction<&OneShot::arrived>(scope, shared_from_this());
}

void DataService::OneShot::arrived(Outcome arrival) {
    if (answered.exchange(true)) {
        return;
    }
    if (const auto alive = service.lock()) {
        outcome = std::move(arrival);
        alive->callbackQueue->async([self = shared_from_this()] { self->deliver(); });
    }
    place.giveBack();
}

void DataService::OneShot::deliver() {
    // Let go of with what it captured, while the runtime may keep the function for long.
    const ResultCallback called = std::move(callback);
    callOut("a result callback", called, resultOf(std::move(outcome), oneShotFallback));
}

js::Local DataService::Emissions::function(js::Scope& scope) {
    return makeFunction<&Emissions::arrived>(scope, shared_from_this());
}

void DataService::Emissions::arrived(Outcome outcome) {
    const auto listening = subscription.lock();
    const auto alive = service.lock();
    if (listening != nullptr && alive != nullptr) {
        if (!listening->hasEmitted.exchange(true)) {
            alive->settle(*listening);
        }
        place.giveBack();
        alive->deliver(listening, std::move(outcome));
    } else {
        place.giveBack();
    }
}

void DataService::deliver(std::shared_ptr<Subscription> subscription, Outcome outcome) {
    callbackQueue->async(
        [subscription = std::move(subscription), outcome = std::move(outcome)]() mutable {
            if (!subscription->unsubscribable->wasCleanedUp()) {
                callOut("a result callback", subscription->callback,
                        resultOf(std::move(outcome), subscriptionFallback));
            }
        });
}

} // namespace zem
