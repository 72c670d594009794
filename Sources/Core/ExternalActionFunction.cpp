#include <zem/Core/Private/CallOut.h>
#include <zem/Core/Private/ExternalActionFunction.h>
#include <zem/Core/Private/Once.h>
#include <zem/Tessel/Callback.h>
#include <zem/Tessel/JSValueCoder.h>

#include <cstddef>
#include <utility>

namespace zem {

js::Local externalActionFunction(js::Scope& scope, ExternalActionExecutor executor) {
    using Reply = tessel::Callback<CustomActionResult>;
    return scope.function(
        "executor", 2,
        [executor = std::move(executor)](js::Scope& inner, js::Local, js::Arguments arguments) {
            const auto argument = [&](std::size_t index) {
                return index < arguments.size() ? arguments[index] : inner.undefined();
            };
            const auto callback = js::Function::from(inner, argument(1));
            auto action = tessel::decodeValue<DraftQueueItem>(inner, argument(0));
            if (action) {
                const Once<CustomActionResult> reply(
                    "the runtime",
                    callback ? CustomActionReply(Reply(*callback, nullptr)) : CustomActionReply());
                callOut("an external action executor", executor, *std::move(action), reply);
            } else if (callback) {
                const CustomActionResult failure{
                    CustomActionResultType::failure,
                    CustomActionError{CustomActionErrorType::clientError,
                                      "Unable to decode draft item"}};
                const js::Local encoded = tessel::encodeValue(inner, failure);
                Reply::call(inner, *callback, {&encoded, 1});
            }
            return inner.undefined();
        });
}

} // namespace zem
