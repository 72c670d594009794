// The cost of a call from JavaScript into a bound method beside a bare callback of the engine's C
// API that reads the same two numbers and returns one. Both are called from the same JavaScript
// loop.

#include "Measure.h"
#include <zem/JavaScript/Context.h>
#include <zem/Tessel/Connection.h>

#include <JavaScriptCore/JavaScript.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace {

constexpr int calls = 200'000;

class Calculator : public tessel::Plugin, public std::enable_shared_from_this<Calculator> {
  public:
    std::string_view namespace_() const override { return "calculator"; }
    void bind(tessel::Connection& to) override { to.bind<"add", &Calculator::add>(*this); }
    double add(double left, double right) { return left + right; }
};

JSValueRef addBare(JSContextRef context, JSObjectRef, JSObjectRef, std::size_t,
                   const JSValueRef arguments[], JSValueRef*) {
    return JSValueMakeNumber(context, JSValueToNumber(context, arguments[0], nullptr) +
                                          JSValueToNumber(context, arguments[1], nullptr));
}

} // namespace

int main() {
    JSGlobalContextRef global = JSGlobalContextCreate(nullptr);
    JSStringRef name = JSStringCreateWithUTF8CString("addBare");
    JSObjectSetProperty(global, JSContextGetGlobalObject(global), name,
                        JSObjectMakeFunctionWithCallback(global, name, addBare),
                        kJSPropertyAttributeNone, nullptr);
    JSStringRelease(name);

    const auto context = zem::js::Context::adopt(global);
    tessel::Connection connection(context);
    const auto calculator = std::make_shared<Calculator>();
    connection.add(*calculator);

    // A loop for each, so that neither is compiled for both.
    const auto loop = [&](const std::string& function) {
        const std::string script = "(() => { const add = " + function +
                                   "; let sum = 0; for (let i = 0; i < " + std::to_string(calls) +
                                   "; ++i) sum = add(sum, i); return sum; })()";
        return [=] {
            return context.perform([&](zem::js::Scope& scope) {
                double sum = 0;
                const double cost = bench::milliseconds(
                    [&] { sum = scope.toNumber(scope.evaluate(script, "benchmark.js").value()); });
                if (sum != double{calls} * (calls - 1) / 2) {
                    throw std::runtime_error(function + " added wrongly");
                }
                return cost * 1e6 / calls;
            });
        };
    };
    bench::report(
        bench::measure({"bridge.call", "ns", 2}, loop("calculator.add"), loop("addBare"), 15));
    JSGlobalContextRelease(global);
}
