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

template <class Answers>
js::Local makeFunction(js::Scope& scope, std::shared_ptr<Answers> answers,
                       void (Answers::*arrived)(Outcome)) {
    return scope.function("callback", 1,
                          [answers = std::move(answers), arrived](js::Scope& inner, js::Local,
                                                                  js::Arguments arguments) {
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
    return makeFunction(scope, shared_from_this(), &OneShot::arrived);
}

void DataService::OneShot::arrived(Outcome outcome) {
    if (answered.exchange(true)) {
        return;
    }
    if (const auto alive = service.lock()) {
        alive->callbackQueue->async([callback = std::move(callback),
                                     outcome = std::move(outcome)]() mutable {
            callOut("a result callback", callback, resultOf(std::move(outcome), oneShotFallback));
        });
    }
    place.giveBack();
}

js::Local DataService::Emissions::function(js::Scope& scope) {
    return makeFunction(scope, shared_from_this(), &Emissions::arrived);
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
