#pragma once

// The engine with nothing around it, for floors: one thread, the C API as it comes.

#include <JavaScriptCore/JavaScript.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

/// Its own context, used from one thread at a time.
class BareEngine {
  public:
    explicit BareEngine(const char* script)
        : global(JSGlobalContextCreate(nullptr)) {
        evaluate(script);
        callbackName = JSStringCreateWithUTF8CString("callback");
    }
    ~BareEngine() {
        JSStringRelease(callbackName);
        JSGlobalContextRelease(global);
    }
    BareEngine(const BareEngine&) = delete;
    BareEngine& operator=(const BareEngine&) = delete;

    JSValueRef evaluate(const char* script) {
        JSStringRef text = JSStringCreateWithUTF8CString(script);
        JSValueRef value = JSEvaluateScript(global, text, nullptr, nullptr, 1, nullptr);
        JSStringRelease(text);
        if (value == nullptr) {
            throw std::runtime_error("the script threw");
        }
        return value;
    }

    /// Makes a callback, calls the runtime's `zem.invokeAdapter` with four arguments and reads the
    /// answer.
    void call(const char* adapterId, const char* config) {
        if (method == nullptr) {
            runtime = keep("zem");
            method = keep("zem.invokeAdapter");
        }
        answer.clear();
        const JSValueRef arguments[] = {
            string(adapterId), string(config),
            JSObjectMakeFunctionWithCallback(global, callbackName, read),
            JSValueMakeUndefined(global)};
        reader = this;
        JSObjectCallAsFunction(global, method, runtime, 4, arguments, nullptr);
        if (answer.empty()) {
            throw std::runtime_error("the runtime did not answer");
        }
    }

    /// The JSON text of a global, inside the engine.
    void stringify(const char* name) {
        JSStringRef text = JSValueCreateJSONString(global, evaluate(name), 0, nullptr);
        if (text == nullptr) {
            throw std::runtime_error("there is no JSON");
        }
        JSStringRelease(text);
    }

    JSContextRef context() const { return global; }

    /// The object that a script gives, for as long as the engine lives.
    JSObjectRef keep(const char* script) {
        JSObjectRef object = JSValueToObject(global, evaluate(script), nullptr);
        if (object == nullptr) {
            throw std::runtime_error("the script gave no object");
        }
        JSValueProtect(global, object);
        return object;
    }

    JSValueRef string(const char* text) {
        JSStringRef made = JSStringCreateWithUTF8CString(text);
        JSValueRef value = JSValueMakeString(global, made);
        JSStringRelease(made);
        return value;
    }

  private:
    static JSValueRef read(JSContextRef context, JSObjectRef, JSObjectRef, std::size_t,
                           const JSValueRef arguments[], JSValueRef*) {
        JSStringRef text = JSValueCreateJSONString(context, arguments[0], 0, nullptr);
        std::string& into = reader->answer;
        into.resize(JSStringGetMaximumUTF8CStringSize(text));
        into.resize(JSStringGetUTF8CString(text, into.data(), into.size()) - 1);
        JSStringRelease(text);
        return JSValueMakeUndefined(context);
    }

    static inline thread_local BareEngine* reader = nullptr;
    JSGlobalContextRef global;
    JSObjectRef runtime = nullptr;
    JSObjectRef method = nullptr;
    JSStringRef callbackName;
    std::string answer;
};

} // namespace bench
