#include <zem/JavaScript/Exception.h>
#include <zem/JavaScript/Private/ContextState.h>
#include <zem/JavaScript/Private/Text.h>

#include <limits>
#include <utility>

namespace zem::js {

namespace {

/// A property of what was thrown; null where reading it throws in turn.
JSValueRef propertyOf(JSContextRef context, JSObjectRef object, const Name& name) {
    JSValueRef thrown = nullptr;
    JSValueRef value = JSObjectGetProperty(context, object, engineName(name), &thrown);
    return thrown == nullptr ? value : nullptr;
}

std::string textProperty(JSContextRef context, JSObjectRef object, const Name& name) {
    JSValueRef value = propertyOf(context, object, name);
    if (value == nullptr || !JSValueIsString(context, value)) {
        return {};
    }
    JSValueRef thrown = nullptr;
    const EngineString string(JSValueToStringCopy(context, value, &thrown));
    return string.get() == nullptr ? std::string() : toUTF8(string.get());
}

int numberProperty(JSContextRef context, JSObjectRef object, const Name& name) {
    JSValueRef value = propertyOf(context, object, name);
    if (value == nullptr || !JSValueIsNumber(context, value)) {
        return 0;
    }
    const double number = JSValueToNumber(context, value, nullptr);
    // Anything may be thrown, with anything for a line.
    const bool fits = number >= 0 && number <= std::numeric_limits<int>::max();
    return fits ? static_cast<int>(number) : 0;
}

} // namespace

std::string Exception::place() const {
    if (details->sourceURL.empty() && details->line == 0) {
        return {};
    }
    return details->sourceURL + ":" + std::to_string(details->line) + ":" +
           std::to_string(details->column);
}

Local Scope::error(ErrorType type, std::string_view message) {
    JSContextRef context = engineContext(engine);
    const JSValueRef text = engineValue(string(message));
    JSObjectRef constructor = nullptr;
    if (type == ErrorType::typeError) {
        constructor = state.intrinsics.typeError;
    } else if (type == ErrorType::rangeError) {
        constructor = state.intrinsics.rangeError;
    }
    if (constructor != nullptr) {
        JSValueRef thrown = nullptr;
        JSObjectRef made = JSObjectCallAsConstructor(context, constructor, 1, &text, &thrown);
        if (made != nullptr) {
            return Local(made);
        }
    }
    return Local(JSObjectMakeError(context, 1, &text, nullptr));
}

std::optional<std::string> Scope::stringForm(Local value) {
    JSContextRef context = engineContext(engine);
    JSValueRef described = engineValue(value);
    JSValueRef thrown = nullptr;
    // Only the String function makes text of a symbol.
    if (JSValueIsSymbol(context, described) && state.intrinsics.string != nullptr) {
        described = JSObjectCallAsFunction(context, state.intrinsics.string, nullptr, 1, &described,
                                           &thrown);
    }
    const EngineString string(
        described == nullptr ? nullptr : JSValueToStringCopy(context, described, &thrown));
    return string.get() == nullptr ? std::nullopt : std::optional(toUTF8(string.get()));
}

std::string Scope::describe(Local value) {
    return stringForm(value).value_or(nameOf(kind(value)));
}

Exception Scope::exception(Local thrown) {
    Exception::Details details;
    details.value = keep(thrown);
    details.text = describe(thrown);
    JSContextRef context = engineContext(engine);
    if (JSValueIsObject(context, engineValue(thrown))) {
        static const Name stackName("stack");
        static const Name lineName("line");
        static const Name columnName("column");
        static const Name sourceName("sourceURL");
        JSObjectRef object = engineObject(thrown);
        details.stack = textProperty(context, object, stackName);
        details.sourceURL = textProperty(context, object, sourceName);
        details.line = numberProperty(context, object, lineName);
        details.column = numberProperty(context, object, columnName);
    }
    return Exception(std::move(details));
}

std::unexpected<Exception> Scope::fail(ErrorType type, std::string_view message) {
    return std::unexpected(exception(error(type, message)));
}

} // namespace zem::js
