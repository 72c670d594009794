#include <zem/JavaScript/Context.h>
#include <zem/Platform/Queue.h>
#include <zem/Priming/WorkerPrimingObjects.h>
#include <zem/Priming/WorkerPrimingService.h>
#include <zem/Tessel/JSValueCoder.h>

#include <array>
#include <utility>

namespace zem {

namespace {

PrimingError unableToCreate() {
    return {PrimingError::ErrorCode::unknown, "Unable to create priming session", {}};
}

/// Reads an object's property that is an object or a function.
js::Result<js::Local> objectOf(js::Scope& scope, js::Local holder, const js::Name& name) {
    if (!scope.isObject(holder)) {
        return scope.undefined();
    }
    return scope.get(holder, name);
}

js::Value factoryOf(js::Scope& scope, js::Local value) {
    static const js::Name zemWorkerApi("zemWorkerApi");
    static const js::Name createPrimingSession("createPrimingSession");
    const auto api = objectOf(scope, value, zemWorkerApi);
    const auto factory = api ? objectOf(scope, *api, createPrimingSession) : api;
    return factory && scope.isObject(*factory) ? scope.keep(*factory) : js::Value();
}

/// Completes away from the engine: what continues may take its time.
template <class Outcome>
void complete(const platform::Promise<Outcome>& promise, Outcome outcome) {
    platform::globalQueue().async([promise, outcome = std::move(outcome)]() mutable {
        promise.complete(std::move(outcome));
    });
}

/// Calls `work(Scope&)` later, in the order of the calls. Dropped if the context's thread has
/// ended.
template <class Work>
void enterLater(const js::Context& context, Work work) {
    context.lane()->async([context, work = std::move(work)]() mutable { context.perform(work); });
}

/// Calls a method of the session's object. `argumentsOf(Scope&)` makes the arguments.
template <class ArgumentsOf>
platform::Future<PrimingSession::Outcome> call(const js::Value& api, const js::Name& method,
                                               ArgumentsOf argumentsOf) {
    // The call is not made where the context's thread has ended. It does not fail then either.
    const platform::Promise<PrimingSession::Outcome> promise{PrimingSession::Outcome()};
    enterLater(api.context(), [api, &method, promise,
                               argumentsOf = std::move(argumentsOf)](js::Scope& scope) {
        if (const auto answer = scope.callMethod(scope.local(api), method, argumentsOf(scope));
            !answer) {
            scope.context().reportUncaught(scope, answer.error());
        }
        complete(promise, PrimingSession::Outcome());
    });
    return promise.future();
}

} // namespace

std::shared_ptr<WorkerPrimingService> WorkerPrimingService::create(const js::Value& value) {
    if (!value) {
        return nullptr;
    }
    js::Value factory;
    try {
        factory = value.context().perform(
            [&](js::Scope& scope) { return factoryOf(scope, scope.local(value)); });
    } catch (const js::ThreadEnded&) {
        return nullptr;
    }
    return factory
               ? std::shared_ptr<WorkerPrimingService>(new WorkerPrimingService(std::move(factory)))
               : nullptr;
}

WorkerPrimingService::WorkerPrimingService(js::Value primingSessionFactory)
    : primingSessionFactory(std::move(primingSessionFactory)) {}

platform::Future<PrimingService::Outcome>
WorkerPrimingService::createPrimingSession(PrimingSessionConfig config) {
    const platform::Promise<Outcome> promise{std::unexpected(unableToCreate())};
    enterLater(primingSessionFactory.context(), [factory = primingSessionFactory, promise,
                                                 config = std::move(config)](js::Scope& scope) {
        const auto made =
            scope.call(scope.local(factory), {WorkerPrimingSessionConfig::make(scope, config)});
        if (!made) {
            scope.context().reportUncaught(scope, made.error());
        }
        if (!made || !scope.isObject(*made)) {
            complete<Outcome>(promise, std::unexpected(unableToCreate()));
            return;
        }
        complete<Outcome>(promise, std::make_shared<WorkerPrimingSession>(scope.keep(*made)));
    });
    return promise.future();
}

WorkerPrimingSession::WorkerPrimingSession(js::Value api)
    : api(std::move(api)) {}

platform::Future<PrimingSession::Outcome> WorkerPrimingSession::enqueue(Work work) {
    static const js::Name method("enqueue");
    return call(api, method, [work = RecordFieldPrimingWork(std::move(work))](js::Scope& scope) {
        return std::array{tessel::encodeValue(scope, work)};
    });
}

platform::Future<PrimingSession::Outcome> WorkerPrimingSession::cancel() {
    static const js::Name method("cancel");
    return call(api, method, [](js::Scope&) { return std::array<js::Local, 0>{}; });
}

} // namespace zem
