#include <zem/Platform/Queue.h>
#include <zem/Priming/WorkerPrimingObjects.h>
#include <zem/Tessel/JSValueCoder.h>

#include <fmt/format.h>

#include <utility>

namespace zem {

namespace {

js::Local argumentOf(js::Scope& scope, js::Arguments arguments) {
    return arguments.empty() ? scope.undefined() : arguments[0];
}

PrimingError errorOf(js::Scope& scope, js::Local value) {
    auto decoded = tessel::decodeValue<PrimingError>(scope, value);
    return decoded
               ? *std::move(decoded)
               : PrimingError{PrimingError::ErrorCode::unknown, decoded.error().description(), {}};
}

} // namespace

RecordFieldPrimingWork::RecordFieldPrimingWork(PrimingSession::Work work) {
    for (auto& [objectType, wanted] : work) {
        records[objectType] = {std::move(wanted.ids), std::move(wanted.fields)};
    }
}

js::Local WorkerPrimingEventHandler::make(js::Scope& scope,
                                          std::shared_ptr<PrimingEventHandler> target) {
    const js::Local object = scope.object();
    const js::Local onError = scope.function(
        "onError", 1,
        [target](js::Scope& inner, js::Local, js::Arguments arguments) -> js::Result<js::Local> {
            platform::globalQueue().async(
                [target, error = errorOf(inner, argumentOf(inner, arguments))]() mutable {
                    target->onError(std::move(error));
                });
            return inner.undefined();
        });
    const js::Local onPrimed = scope.function(
        "onPrimed", 1,
        [target = std::move(target)](js::Scope& inner, js::Local,
                                     js::Arguments arguments) -> js::Result<js::Local> {
            auto ids =
                tessel::decodeValue<std::vector<std::string>>(inner, argumentOf(inner, arguments));
            if (!ids) {
                return inner.fail(js::ErrorType::typeError,
                                  fmt::format("WorkerPrimingEventHandler.onPrimed, argument 1: {}",
                                              ids.error().description()));
            }
            platform::globalQueue().async(
                [target, ids = *std::move(ids)]() mutable { target->onPrimed(std::move(ids)); });
            return inner.undefined();
        });
    (void)scope.define(object, "onError", onError);
    (void)scope.define(object, "onPrimed", onPrimed);
    return object;
}

js::Local WorkerPrimingSessionConfig::make(js::Scope& scope, const PrimingSessionConfig& config) {
    const js::Local object = scope.object();
    if (config.eventHandler != nullptr) {
        (void)scope.define(object, "primingEventHandler",
                           WorkerPrimingEventHandler::make(scope, config.eventHandler));
    }
    return object;
}

} // namespace zem
