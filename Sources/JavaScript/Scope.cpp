#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Private/ContextState.h>
#include <zem/JavaScript/Private/Symbol.h>
#include <zem/JavaScript/Private/Text.h>
#include <zem/JavaScript/Private/ThreadSanitizer.h>
#include <zem/JavaScript/Scope.h>

#include <cassert>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace zem::js {

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

bool Scope::isObject(Local value) {
    return JSValueIsObject(engineContext(engine), engineValue(value));
}

bool Scope::toBoolean(Local value) {
    return JSValueToBoolean(engineContext(engine), engineValue(value));
}

double Scope::toNumber(Local value) {
    return JSValueToNumber(engineContext(engine), engineValue(value), nullptr);
}

std::string Scope::toText(Local value) {
    JSValueRef thrown = nullptr;
    const EngineString string(
        JSValueToStringCopy(engineContext(engine), engineValue(value), &thrown));
    if (string.get() == nullptr) {
        // A string of many parts, too long to be put together.
        throw std::bad_alloc();
    }
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
        break;
    }
    // The engine gives where the buffer begins, not the view.
    const std::size_t length = JSObjectGetTypedArrayByteLength(context, object, nullptr);
    const auto* buffer =
        static_cast<const std::uint8_t*>(JSObjectGetTypedArrayBytesPtr(context, object, nullptr));
    if (buffer == nullptr || length == 0) {
        return std::span<const std::uint8_t>();
    }
    return std::span(buffer + JSObjectGetTypedArrayByteOffset(context, object, nullptr), length);
}

bool Scope::isArray(Local value) {
    if (!isObject(value)) {
        return false;
    }
    if (JSValueIsArray(engineContext(engine), engineValue(value))) {
        return true;
    }
    const Result<Local> answer = call(Local(state.intrinsics.isArray), {value});
    return answer && toBoolean(*answer);
}

bool Scope::isSame(Local left, Local right) {
    return JSValueIsStrictEqual(engineContext(engine), engineValue(left), engineValue(right));
}

Result<Local> Scope::get(Local object, const Name& name) {
    return getNamed(object, name.get());
}

Result<Local> Scope::getNamed(Local object, void* name) {
    assert(isObject(object));
    JSValueRef thrown = nullptr;
    JSValueRef value = JSObjectGetProperty(engineContext(engine), engineObject(object),
                                           static_cast<JSStringRef>(name), &thrown);
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return Local(value);
}

Result<Local> Scope::get(Local object, std::string_view name) {
    const EngineString made(makeString(name));
    return getNamed(object, made.get());
}

Result<Local> Scope::get(Local object, Local name) {
    assert(isObject(object));
    JSValueRef thrown = nullptr;
    JSValueRef value = JSObjectGetPropertyForKey(engineContext(engine), engineObject(object),
                                                 engineValue(name), &thrown);
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return Local(value);
}

Result<Local> Scope::getAt(Local object, unsigned index) {
    assert(isObject(object));
    JSValueRef thrown = nullptr;
    JSValueRef value =
        JSObjectGetPropertyAtIndex(engineContext(engine), engineObject(object), index, &thrown);
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return Local(value);
}

Result<bool> Scope::has(Local object, const Name& name) {
    assert(isObject(object));
    JSValueRef thrown = nullptr;
    JSValueRef key = JSValueMakeString(engineContext(engine), engineName(name));
    const bool found =
        JSObjectHasPropertyForKey(engineContext(engine), engineObject(object), key, &thrown);
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return found;
}

Result<void> Scope::set(Local object, const Name& name, Local value) {
    return setNamed(object, name.get(), value);
}

Result<void> Scope::setNamed(Local object, void* name, Local value) {
    assert(isObject(object));
    JSValueRef thrown = nullptr;
    JSObjectSetProperty(engineContext(engine), engineObject(object), static_cast<JSStringRef>(name),
                        engineValue(value), kJSPropertyAttributeNone, &thrown);
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return {};
}

Result<void> Scope::set(Local object, std::string_view name, Local value) {
    const EngineString made(makeString(name));
    return setNamed(object, made.get(), value);
}

Result<void> Scope::setAt(Local object, unsigned index, Local value) {
    assert(isObject(object));
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
    const double number = kind(*value) == Kind::number ? toNumber(*value) : -1;
    constexpr double longest = std::numeric_limits<std::uint32_t>::max();
    if (!(number >= 0 && number <= longest) || std::trunc(number) != number) {
        return fail(ErrorType::rangeError, "length: expected that of an array");
    }
    return static_cast<unsigned>(number);
}

Result<void> Scope::define(Local object, const Name& name, Local value) {
    return defineNamed(object, name.get(), value);
}

Result<void> Scope::define(Local object, std::string_view name, Local value) {
    const EngineString made(makeString(name));
    return defineNamed(object, made.get(), value);
}

Result<void> Scope::defineNamed(Local object, void* name, Local value) {
    assert(isObject(object));
    if (!JSObjectHasProperty(engineContext(engine), engineObject(object),
                             static_cast<JSStringRef>(name))) {
        // No prototype has a property of that name.
        return setNamed(object, name, value);
    }
    const Local inherited = prototype(object);
    setPrototype(object, null());
    Result<void> outcome = setNamed(object, name, value);
    setPrototype(object, inherited);
    return outcome;
}

Local Scope::prototype(Local object) {
    return Local(JSObjectGetPrototype(engineContext(engine), engineObject(object)));
}

void Scope::setPrototype(Local object, Local prototype) {
    JSObjectSetPrototype(engineContext(engine), engineObject(object), engineValue(prototype));
}

void ArrayMaker::add(Local element) {
    if (count < most) {
        first[count++] = element;
        return;
    }
    if (made.get() == nullptr) {
        made = scope.array(first);
        scope.setPrototype(made, scope.null());
    }
    (void)scope.setAt(made, count++, element);
}

Local ArrayMaker::finish() {
    if (made.get() == nullptr) {
        return scope.array({first, count});
    }
    scope.setPrototype(made, scope.prototype(scope.array()));
    return made;
}

Result<Local> Scope::propertyNames(Local object) {
    // Not the C API's own list: it holds inherited names, too, and leaves what a proxy's trap threw
    // pending in the engine.
    return call(Local(state.intrinsics.objectKeys), {object});
}

Result<Local> Scope::call(Local function, Arguments arguments, Local self) {
    platform::Mutex::assertNoneHeld("running JavaScript");
    JSContextRef context = engineContext(engine);
    if (!JSValueIsObject(context, engineValue(function)) ||
        !JSObjectIsFunction(context, engineObject(function))) {
        return fail(ErrorType::typeError,
                    std::string("expected a function, found ") + nameOf(kind(function)));
    }
    const bool hasSelf = self.get() != nullptr && JSValueIsObject(context, engineValue(self));
    JSValueRef thrown = nullptr;
    JSValueRef value = JSObjectCallAsFunction(context, engineObject(function),
                                              hasSelf ? engineObject(self) : nullptr,
                                              arguments.size(), engineValues(arguments), &thrown);
    state.settle();
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return Local(value);
}

Result<Local> Scope::call(Local function, std::initializer_list<Local> arguments, Local self) {
    return call(function, Arguments(arguments.begin(), arguments.size()), self);
}

Result<Local> Scope::callMethod(Local object, const Name& name, Arguments arguments) {
    if (!isObject(object)) {
        return fail(ErrorType::typeError,
                    name.text() + ": called on " + nameOf(kind(object)) + ", which is no object");
    }
    const Result<Local> method = get(object, name);
    if (!method) {
        return method;
    }
    if (kind(*method) != Kind::function) {
        return fail(ErrorType::typeError,
                    name.text() + ": expected a function, found " + nameOf(kind(*method)));
    }
    return call(*method, arguments, object);
}

Result<Local> Scope::callMethod(Local object, const Name& name,
                                std::initializer_list<Local> arguments) {
    return callMethod(object, name, Arguments(arguments.begin(), arguments.size()));
}

Result<Local> Scope::evaluate(std::string_view source, std::string_view sourceURL,
                              int startingLine) {
    platform::Mutex::assertNoneHeld("running JavaScript");
    const EngineString text(makeString(source));
    const EngineString url(makeString(sourceURL));
    JSValueRef thrown = nullptr;
    JSValueRef value = JSEvaluateScript(engineContext(engine), text.get(), nullptr, url.get(),
                                        startingLine, &thrown);
    state.settle();
    if (thrown != nullptr) {
        return std::unexpected(exception(Local(thrown)));
    }
    return Local(value);
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

namespace {

using LockStep = void (*)(JSContextRef);

struct LockSteps {
    LockStep lock = engineSymbol<LockStep>("JSLock");
    LockStep unlock = engineSymbol<LockStep>("JSUnlock");
};

const LockSteps& lockSteps() {
    static const LockSteps steps;
    return steps;
}

} // namespace

Sequence::Sequence(Scope& scope)
    : engine(scope.engine) {
    if (const LockSteps& steps = lockSteps(); steps.unlock != nullptr && steps.lock != nullptr) {
        steps.lock(engineContext(engine));
    } else {
        engine = nullptr;
    }
}

Sequence::~Sequence() {
    if (engine != nullptr) {
        lockSteps().unlock(engineContext(engine));
    }
}

} // namespace zem::js
