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
    const Door::NativeCall call(*state->door, body->name);
    Entry entry(std::move(state), Entry::By::nativeFunction);
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

// The name and the length are asked of the closure: to write them into each function that is made
// costs more than all else about it.

JSValueRef getName(JSContextRef context, JSObjectRef function, JSStringRef, JSValueRef*) noexcept {
    const auto* body = static_cast<const FunctionBody*>(JSObjectGetPrivate(function));
    const EngineString name(makeString(body->name));
    return JSValueMakeString(context, name.get());
}

JSValueRef getLength(JSContextRef context, JSObjectRef function, JSStringRef,
                     JSValueRef*) noexcept {
    const auto* body = static_cast<const FunctionBody*>(JSObjectGetPrivate(function));
    return JSValueMakeNumber(context, body->length);
}

JSClassRef functionClass() {
    static const JSClassRef made = [] {
        constexpr JSPropertyAttributes fixed =
            kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontEnum;
        static const JSStaticValue values[] = {{"length", getLength, nullptr, fixed},
                                               {"name", getName, nullptr, fixed},
                                               {nullptr, nullptr, nullptr, 0}};
        JSClassDefinition definition = kJSClassDefinitionEmpty;
        definition.className = "Function";
        definition.attributes = kJSClassAttributeNoAutomaticPrototype;
        definition.staticValues = values;
        definition.callAsFunction = callFunction;
        definition.finalize = finaliseFunction;
        return JSClassCreate(&definition);
    }();
    return made;
}

} // namespace

Local Scope::function(std::string_view name, unsigned length, NativeFunction body) {
    JSContextRef context = engineContext(engine);
    auto owned = std::make_unique<FunctionBody>(
        FunctionBody{state.weak_from_this(), std::move(body), std::string(name), length});
    releaseForThreadSanitizer(owned.get());
    JSObjectRef made = JSObjectMake(context, functionClass(), owned.release());
    JSObjectSetPrototype(context, made, state.intrinsics.functionPrototype);
    return Local(made);
}

} // namespace zem::js
