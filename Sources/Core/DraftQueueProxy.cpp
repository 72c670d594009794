#include <zem/Core/DraftQueueProxy.h>
#include <zem/Core/Private/EnterRuntime.h>
#include <zem/Core/Private/Once.h>
#include <zem/Core/Private/RejectionText.h>
#include <zem/JavaScript/Scope.h>

#include <expected>
#include <optional>
#include <utility>

namespace zem {

namespace {

using Outcome = std::expected<std::string, std::string>;
using Answer = Once<Outcome>;

Outcome result(js::Scope& scope, js::Local value) {
    std::optional<std::string> text = scope.stringForm(value);
    if (!text) {
        return std::unexpected("callProxyMethod gave a result that cannot be made text");
    }
    return *std::move(text);
}

Outcome failure(js::Scope& scope, js::Local reason) {
    return std::unexpected(scope.kind(reason) == js::Kind::string ? scope.toText(reason)
                                                                  : rejectionText(scope, reason));
}

js::Local makeCallback(js::Scope& scope, const char* name, Outcome (*read)(js::Scope&, js::Local),
                       const Answer& answer) {
    return scope.function(
        name, 1, [read, answer](js::Scope& inner, js::Local, js::Arguments arguments) {
            answer(read(inner, arguments.empty() ? inner.undefined() : arguments[0]));
            return inner.undefined();
        });
}

/// The object's own function; absent where there is none to call.
std::optional<js::Local> function(js::Scope& scope, js::Local target) {
    if (!scope.isObject(target)) {
        return std::nullopt;
    }
    static const js::Name name("callProxyMethod");
    const auto found = scope.get(target, name);
    if (!found) {
        scope.context().reportUncaught(scope, found.error());
        return std::nullopt;
    }
    return scope.kind(*found) == js::Kind::function ? std::optional(*found) : std::nullopt;
}

/// Whether the function was called and did not throw.
bool call(js::Scope& scope, js::Local target, const std::string& methodName,
          const std::string& serializedArgsArray, const Answer& answer) {
    const auto called = function(scope, target);
    if (!called) {
        return false;
    }
    const auto returned = scope.call(*called,
                                     {scope.string(methodName), scope.string(serializedArgsArray),
                                      makeCallback(scope, "onResult", result, answer),
                                      makeCallback(scope, "onError", failure, answer)},
                                     target);
    if (!returned) {
        scope.context().reportUncaught(scope, returned.error());
    }
    return returned.has_value();
}

} // namespace

std::shared_ptr<DraftQueueProxy> DraftQueueProxy::create(js::Value tesselDraftQueue) {
    return std::shared_ptr<DraftQueueProxy>(new DraftQueueProxy(std::move(tesselDraftQueue)));
}

DraftQueueProxy::DraftQueueProxy(js::Value tesselDraftQueue)
    : tesselDraftQueue(std::move(tesselDraftQueue)) {}

void DraftQueueProxy::setTesselDraftQueue(js::Value value) {
    platform::Lock held(lock);
    std::swap(tesselDraftQueue, value);
}

void DraftQueueProxy::callProxyMethod(std::string methodName, std::string serializedArgsArray,
                                      DraftQueueCallback onResult, DraftQueueCallback onError) {
    const Answer answer(
        "a callback of callProxyMethod",
        [onResult = std::move(onResult), onError = std::move(onError)](Outcome outcome) {
            const DraftQueueCallback& called = outcome ? onResult : onError;
            if (called) {
                called(outcome ? *std::move(outcome) : std::move(outcome.error()));
            }
        });
    // A copy: the runtime may replace the object, or let go of this proxy, while it is called.
    const js::Value target = [&] {
        platform::Lock held(lock);
        return tesselDraftQueue;
    }();
    bool wasCalled = false;
    if (target) {
        enterRuntime(target.context(), [&](js::Scope& scope) {
            wasCalled = call(scope, scope.local(target), methodName, serializedArgsArray, answer);
        });
    }
    if (!wasCalled) {
        answer(std::unexpected("unable to invoke callProxyMethod"));
    }
}

} // namespace zem
