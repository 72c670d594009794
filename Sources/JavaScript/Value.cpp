#include <zem/JavaScript/Private/ContextState.h>
#include <zem/JavaScript/Private/Text.h>
#include <zem/JavaScript/Value.h>

#include <utility>

namespace zem::js {

struct Value::Handle {
    Handle(std::shared_ptr<ContextState> state, JSValueRef value)
        : state(std::move(state))
        , value(value) {
        this->state->handles.fetch_add(1, std::memory_order_relaxed);
    }
    ~Handle() {
        state->handles.fetch_sub(1, std::memory_order_relaxed);
        state->release(value);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    std::shared_ptr<ContextState> state;
    JSValueRef value;
};

Context Value::context() const {
    return handle == nullptr ? Context() : Context(handle->state);
}

Value Scope::keep(Local value) {
    JSValueProtect(engineContext(engine), engineValue(value));
    return Value(
        std::make_shared<const Value::Handle>(state.shared_from_this(), engineValue(value)));
}

Local Scope::local(const Value& value) {
    return Local(value.handle->value);
}

std::optional<Function> Function::from(Scope& scope, Local value) {
    if (scope.kind(value) != Kind::function) {
        return std::nullopt;
    }
    return Function(scope.keep(value));
}

Context Function::context() const {
    return held.context();
}

const char* nameOf(Kind kind) {
    switch (kind) {
    case Kind::undefined:
        return "undefined";
    case Kind::null:
        return "null";
    case Kind::boolean:
        return "a boolean";
    case Kind::number:
        return "a number";
    case Kind::string:
        return "a string";
    case Kind::symbol:
        return "a symbol";
    case Kind::bigInt:
        return "a BigInt";
    case Kind::object:
        return "an object";
    case Kind::array:
        return "an array";
    case Kind::function:
        return "a function";
    }
    return "a value";
}

Name::Name(std::string_view text)
    : string(makeString(text)) {}

std::string Name::text() const {
    return toUTF8(static_cast<JSStringRef>(string));
}

} // namespace zem::js
