#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Private/ContextState.h>
#include <zem/JavaScript/Private/Text.h>
#include <zem/JavaScript/Private/ThreadSanitizer.h>
#include <zem/JavaScript/Scope.h>

#include <cstring>
#include <exception>

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

std::string Exception::place() const {
    if (details->sourceURL.empty() && details->line == 0) {
        return {};
    }
    return details->sourceURL + ":" + std::to_string(details->line) + ":" +
           std::to_string(details->column);
}

Name::Name(std::string_view text)
    : string(makeString(text)) {}

Name::~Name() {
    JSStringRelease(static_cast<JSStringRef>(string));
}

namespace {

JSStringRef engineName(const Name& name) {
    return static_cast<JSStringRef>(name.get());
}

JSContextRef engineContext(const void* engine) {
    return static_cast<JSContextRef>(engine);
}

void finaliseFunction(JSObjectRef function) noexcept {
    std::unique_ptr<FunctionBody> body(static_cast<FunctionBody*>(JSObjectGetPrivate(function)));
    acquireForThreadSanitizer(body.get());
    // In the middle of a collection, on any thread: the body may hold handles, and is only put
    // aside.
    if (auto state = body->state.lock()) {
        state->release(std::move(body));
    }
}

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
            return engineValue(*result);
        }
        *exception = engineValue(scope.local(result.error().value()));
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

Context Scope::context() const {
    return Context(state.shared_from_this());
}

Local Scope::undefined() {
    return Local(JSValueMakeUndefined(engineContext(engine)));
}

Local Scope::null() {
    return Local(JSValueMakeNull(engineContext(engine)));
}

Local Scope::boolean(bool value) {
    return Local(JSValueMakeBoolean(engineContext(engine), value));
}

Local Scope::number(double value) {
    return Local(JSValueMakeNumber(engineContext(engine), value));
}

Local Scope::string(std::string_view text) {
    const EngineString string(makeString(text));
    return Local(JSValueMakeString(engineContext(engine), string.get()));
}

Local Scope::stringTerminated(const char* text, std::size_t length) {
    const EngineString string(makeStringTerminated(text, length));
    return Local(JSValueMakeString(engineContext(engine), string.get()));
}

Local Scope::object() {
    return Local(JSObjectMake(engineContext(engine), nullptr, nullptr));
}

Local Scope::array(Arguments elements) {
    return Local(
        JSObjectMakeArray(engineContext(engine), elements.size(), engineValues(elements), nullptr));
}

Local Scope::arrayBuffer(std::span<const std::uint8_t> bytes) {
    void* copy = std::malloc(bytes.size() + 1);
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    if (!bytes.empty()) {
        std::memcpy(copy, bytes.data(), bytes.size());
    }
    const auto deallocate = [](void* memory, void*) {
        std::free(memory);
    };
    return Local(JSObjectMakeArrayBufferWithBytesNoCopy(engineContext(engine), copy, bytes.size(),
                                                        deallocate, nullptr, nullptr));
}

Local Scope::error(ErrorType type, std::string_view message) {
    const Local text = string(message);
    static const Name typeError("TypeError");
    static const Name rangeError("RangeError");
    if (type != ErrorType::error) {
        const Result<Local> constructor =
            get(global(), type == ErrorType::typeError ? typeError : rangeError);
        if (constructor && kind(*constructor) == Kind::function) {
            const JSValueRef argument = engineValue(text);
            JSObjectRef made = JSObjectCallAsConstructor(
                engineContext(engine), engineObject(*constructor), 1, &argument, nullptr);
            if (made != nullptr) {
                return Local(made);
            }
        }
    }
    const JSValueRef argument = engineValue(text);
    return Local(JSObjectMakeError(engineContext(engine), 1, &argument, nullptr));
}

Local Scope::function(std::string_view name, unsigned length, NativeFunction body) {
    auto owned =
        std::make_unique<FunctionBody>(FunctionBody{state.weak_from_this(), std::move(body)});
    releaseForThreadSanitizer(owned.get());
    JSObjectRef made = JSObjectMake(engineContext(engine), functionClass(), owned.release());
    JSObjectSetPrototype(engineContext(engine), made, state.functionPrototype);
    static const Name nameName("name");
    static const Name lengthName("length");
    constexpr JSPropertyAttributes fixed =
        kJSPropertyAttributeReadOnly | kJSPropertyAttributeDontEnum;
    JSObjectSetProperty(engineContext(engine), made, engineName(nameName),
                        engineValue(string(name)), fixed, nullptr);
    JSObjectSetProperty(engineContext(engine), made, engineName(lengthName),
                        engineValue(number(length)), fixed, nullptr);
    return Local(made);
}

Local Scope::global() {
    return Local(JSContextGetGlobalObject(engineContext(engine)));
}

Kind Scope::kind(Local value) {
    JSContextRef context = engineContext(engine);
    switch (JSValueGetType(context, engineValue(value))) {
    case kJSTypeUndefined:
        return Kind::undefined;
    case kJSTypeNull:
        return Kind::null;
    case kJSTypeBoolean:
        return Kind::boolean;
    case kJSTypeNumber:
        return Kind::number;
    case kJSTypeString:
        return Kind::string;
    case kJSTypeSymbol:
        return Kind::symbol;
    case kJSTypeObject:
        break;
    default:
        return Kind::bigInt;
    }
    if (JSValueIsArray(context, engineValue(value))) {
        return Kind::array;
    }
    return JSObjectIsFunction(context, engineObject(value)) ? Kind::function : Kind::object;
}

bool Scope::toBoolean(Local value) {
    return JSValueToBoolean(engineContext(engine), engineValue(value));
}

double Scope::toNumber(Local value) {
    return JSValueToNumber(engineContext(engine), engineValue(value), nullptr);
}

std::string Scope::toText(Local value) {
    const EngineString string(
        JSValueToStringCopy(engineContext(engine), engineValue(value), nullptr));
    return toUTF8(string.get());
}

std::optional<std::span<const std::uint8_t>> Scope::bytes(Local value) {
    JSContextRef context = engineContext(engine);
    if (JSValueGetType(context, engineValue(value)) != kJSTypeObject) {
        return std::nullopt;
    }
    JSObjectRef object = engineObject(value);
    switch (JSValueGetTypedArrayType(context, engineValue(value), nullptr)) {
    case kJSTypedArrayTypeNone:
        return std::nullopt;
    case kJSTypedArrayTypeArrayBuffer:
        return std::span(static_cast<const std::uint8_t*>(
                             JSObjectGetArrayBufferBytesPtr(context, object, nullptr)),
                         JSObjectGetArrayBufferByteLength(context, object, nullptr));
    default:
        // The pointer is that of the view's first byte, its offset already applied.
        return std::span(static_cast<const std::uint8_t*>(
                             JSObjectGetTypedArrayBytesPtr(context, object, nullptr)),
                         JSObjectGetTypedArrayByteLength(context, object, nullptr));
    }
}

bool Scope::isSame(Local left, Local right) {
    return JSValueIsStrictEqual(engineContext(engine), engineValue(left), engineValue(right));
}

Result<Local> Scope::get(Local object, const Name& name) {
    JSValueRef thrown = nullptr;
    JSValueRef value =
        JSObjectGetProperty(engineContext(engine), engineObject(object), engineName(name), &thrown);
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return Local(value);
}

Result<Local> Scope::get(Local object, std::string_view name) {
    return get(object, Name(name));
}

Result<Local> Scope::getAt(Local object, unsigned index) {
    JSValueRef thrown = nullptr;
    JSValueRef value =
        JSObjectGetPropertyAtIndex(engineContext(engine), engineObject(object), index, &thrown);
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return Local(value);
}

bool Scope::has(Local object, const Name& name) {
    return JSObjectHasProperty(engineContext(engine), engineObject(object), engineName(name));
}

Result<void> Scope::set(Local object, const Name& name, Local value) {
    JSValueRef thrown = nullptr;
    JSObjectSetProperty(engineContext(engine), engineObject(object), engineName(name),
                        engineValue(value), kJSPropertyAttributeNone, &thrown);
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return {};
}

Result<void> Scope::set(Local object, std::string_view name, Local value) {
    return set(object, Name(name), value);
}

Result<void> Scope::setAt(Local object, unsigned index, Local value) {
    JSValueRef thrown = nullptr;
    JSObjectSetPropertyAtIndex(engineContext(engine), engineObject(object), index,
                               engineValue(value), &thrown);
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return {};
}

Result<unsigned> Scope::length(Local array) {
    static const Name lengthName("length");
    const Result<Local> value = get(array, lengthName);
    if (!value) {
        return std::unexpected(value.error());
    }
    return static_cast<unsigned>(toNumber(*value));
}

std::vector<std::string> Scope::propertyNames(Local object) {
    JSPropertyNameArrayRef names =
        JSObjectCopyPropertyNames(engineContext(engine), engineObject(object));
    std::vector<std::string> texts;
    const std::size_t count = JSPropertyNameArrayGetCount(names);
    texts.reserve(count);
    for (std::size_t index = 0; index < count; ++index) {
        texts.push_back(toUTF8(JSPropertyNameArrayGetNameAtIndex(names, index)));
    }
    JSPropertyNameArrayRelease(names);
    return texts;
}

Result<Local> Scope::call(Local function, Arguments arguments, Local self) {
    JSValueRef thrown = nullptr;
    JSValueRef value = JSObjectCallAsFunction(engineContext(engine), engineObject(function),
                                              self.get() == nullptr ? nullptr : engineObject(self),
                                              arguments.size(), engineValues(arguments), &thrown);
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return Local(value);
}

Result<Local> Scope::call(Local function, std::initializer_list<Local> arguments, Local self) {
    return call(function, Arguments(arguments.begin(), arguments.size()), self);
}

Result<Local> Scope::callMethod(Local object, const Name& name,
                                std::initializer_list<Local> arguments) {
    const Result<Local> method = get(object, name);
    if (!method) {
        return method;
    }
    if (kind(*method) != Kind::function) {
        return fail(ErrorType::typeError, toUTF8(engineName(name)) +
                                              ": expected a function, found " +
                                              nameOf(kind(*method)));
    }
    return call(*method, arguments, object);
}

Result<Local> Scope::evaluate(std::string_view source, std::string_view sourceURL,
                              int startingLine) {
    const EngineString text(makeString(source));
    const EngineString url(makeString(sourceURL));
    JSValueRef thrown = nullptr;
    JSValueRef value = JSEvaluateScript(engineContext(engine), text.get(), nullptr, url.get(),
                                        startingLine, &thrown);
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return Local(value);
}

std::string Scope::describe(Local value) {
    const EngineString string(
        JSValueToStringCopy(engineContext(engine), engineValue(value), nullptr));
    return string.get() == nullptr ? nameOf(kind(value)) : toUTF8(string.get());
}

Result<std::optional<std::string>> Scope::stringify(Local value) {
    JSValueRef thrown = nullptr;
    const EngineString json(
        JSValueCreateJSONString(engineContext(engine), engineValue(value), 0, &thrown));
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    if (json.get() == nullptr) {
        return std::nullopt;
    }
    return toUTF8(json.get());
}

Result<Local> Scope::parseJSON(std::string_view text) {
    const EngineString string(makeString(text));
    JSValueRef value = JSValueMakeFromJSONString(engineContext(engine), string.get());
    if (value == nullptr) {
        return fail(ErrorType::error, "the text is not valid JSON");
    }
    return Local(value);
}

Value Scope::keep(Local value) {
    JSValueProtect(engineContext(engine), engineValue(value));
    return Value(
        std::make_shared<const Value::Handle>(state.shared_from_this(), engineValue(value)));
}

Local Scope::local(const Value& value) {
    return Local(value.handle->value);
}

Exception Scope::exception(Local thrown) {
    Exception::Details details;
    details.text = describe(thrown);
    details.value = keep(thrown);
    if (JSValueIsObject(engineContext(engine), engineValue(thrown))) {
        static const Name stackName("stack");
        static const Name lineName("line");
        static const Name columnName("column");
        static const Name sourceName("sourceURL");
        const auto text = [&](const Name& name) {
            const Result<Local> found = get(thrown, name);
            return found && kind(*found) == Kind::string ? toText(*found) : std::string();
        };
        const auto number = [&](const Name& name) {
            const Result<Local> found = get(thrown, name);
            return found && kind(*found) == Kind::number ? static_cast<int>(toNumber(*found)) : 0;
        };
        details.stack = text(stackName);
        details.sourceURL = text(sourceName);
        details.line = number(lineName);
        details.column = number(columnName);
    }
    return Exception(std::move(details));
}

std::unexpected<Exception> Scope::fail(ErrorType type, std::string_view message) {
    return std::unexpected(exception(error(type, message)));
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

} // namespace zem::js
