// Native functions: the one way from JavaScript into native code.

#include <zem/JavaScript/Private/ContextState.h>
#include <zem/JavaScript/Private/Text.h>
#include <zem/JavaScript/Private/ThreadSanitizer.h>

#include <exception>
#include <memory>
#include <utility>

namespace zem::js {

namespace {

void finaliseFunction(JSObjectRef function) noexcept {
    std::unique_ptr<FunctionBody> body(static_cast<FunctionBody*>(JSObjectGetPrivate(function)));
    acquireForThreadSanitizer(body.get());
    ContextState::releaseCollected(std::move(body));
}

/// A C++ exception that left this would end the process: all of them become JavaScript's.
JSValueRef callFunction(JSContextRef context, JSObjectRef function, JSObjectRef self,
                        std::size_t count, const JSValueRef arguments[],
                        JSValueRef* exception) noexcept {
    auto* body = static_cast<FunctionBody*>(JSObjectGetPrivate(function));
    auto state = body->state.lock();
    if (state == nullptr) {
        const EngineString message(makeString("the native side of this function is gone"));
        const JSValueRef text = JSValueMakeString(context, message.get());
        *exception = JSObjectMakeError(context, 1, &text, nullptr);
        return JSValueMakeUndefined(context);
    }
    Entry entry(std::move(state));
    Scope& scope = entry.scope();
    try {
        Result<Local> result =
            body->body(scope, Local(self), {reinterpret_cast<const Local*>(arguments), count});
        if (result) {
            return result->get() != nullptr ? engineValue(*result) : JSValueMakeUndefined(context);
        }
        *exception = engineValue(scope.local(result.error().value()));
    } catch (const Exception& error) {
        *exception = engineValue(scope.local(error.value()));
    } catch (const std::exception& error) {
        *exception = engineValue(scope.error(ErrorType::error, error.what()));
    } catch (...) {
        *exception = engineValue(scope.error(ErrorType::error, "unknown native exception"));
    }
    return JSValueMakeUndefined(context);
}

JSClassRef functionClass() {
    static const JSClassRef made = [] {
        JSClassDefinition definition = kJSClassDefinitionEmpty;
        definition.className = "Function";
        definition.attributes = kJSClassAttributeNoAutomaticPrototype;
        definition.callAsFunction = callFunction;
        definition.finalize = finaliseFunction;
        return JSClassCreate(&definition);
    }();
    return made;
}

} // namespace

Local Scope::function(std::string_view name, unsigned length, NativeFunction body) {
    static const Name nameName("name");
    static const Name lengthName("length");
    JSContextRef context = engineContext(engine);
    auto owned =
        std::make_unique<FunctionBody>(FunctionBody{state.weak_from_this(), std::move(body)});
    releaseForThreadSanitizer(owned.get());
    JSObjectRef made = JSObjectMake(context, functionClass(), owned.release());
    // Before it has the prototype of functions, whose own name and length could not be written
    // over.
    constexpr JSPropertyAttributes fixed =
        kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontEnum;
    JSObjectSetProperty(context, made, engineName(lengthName), engineValue(number(length)), fixed,
                        nullptr);
    JSObjectSetProperty(context, made, engineName(nameName), engineValue(string(name)), fixed,
                        nullptr);
    JSObjectSetPrototype(context, made, state.intrinsics.functionPrototype);
    return Local(made);
}

} // namespace zem::js
