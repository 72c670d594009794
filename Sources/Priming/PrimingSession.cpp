#include <zem/Priming/PrimingSession.h>

namespace zem {

namespace {

template <class Outcome>
void callWith(const platform::Future<Outcome>& future, std::function<void(Outcome)> callback) {
    future.then([callback = std::move(callback)](const Outcome& outcome) {
        if (callback) {
            callback(outcome);
        }
    });
}

} // namespace

void PrimingSession::enqueue(Work work, std::function<void(Outcome)> callback) {
    callWith(enqueue(std::move(work)), std::move(callback));
}

void PrimingSession::cancel(std::function<void(Outcome)> callback) {
    callWith(cancel(), std::move(callback));
}

void PrimingService::createPrimingSession(PrimingSessionConfig config,
                                          std::function<void(Outcome)> callback) {
    callWith(createPrimingSession(std::move(config)), std::move(callback));
}

} // namespace zem
