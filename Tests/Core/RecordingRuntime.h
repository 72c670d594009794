#pragma once

// The base of the tests' runtimes: JavaScript that writes down the calls that it gets.

#include <zem/JavaScript/Context.h>

#include <Support/Engine.h>
#include <Support/Journal.h>
#include <Support/Wait.h>
#include <string_view>

namespace test {

class RecordingRuntime {
  public:
    /// Scripts write a call down with `heard(text)`.
    RecordingRuntime() {
        context.setUncaughtHandler([this](zem::js::Scope&, const zem::js::Exception& exception) {
            uncaught.add(exception.text());
        });
        setFunction(context, "heard", 1,
                    [this](zem::js::Scope& scope, zem::js::Local,
                           zem::js::Arguments arguments) -> zem::js::Result<zem::js::Local> {
                        calls.add(scope.toText(arguments[0]));
                        return scope.undefined();
                    });
    }
    RecordingRuntime(const RecordingRuntime&) = delete;
    RecordingRuntime& operator=(const RecordingRuntime&) = delete;

    void run(std::string_view script) { evaluate(context, script); }

    /// The value of a script.
    zem::js::Value value(std::string_view script) {
        return context.perform([&](zem::js::Scope& scope) {
            return scope.keep(scope.evaluate(script, "test.js").value());
        });
    }

    zem::js::Context context = makeContext();
    Journal calls{"a call of the runtime"};
    Transcript uncaught;
};

} // namespace test
