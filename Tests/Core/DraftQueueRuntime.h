#pragma once

// A runtime in JavaScript with a draft queue, and what the tests of the draft queue and its proxy
// share.

#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Scope.h>

#include <Support/Engine.h>
#include <Support/Wait.h>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace test {

class DraftQueueRuntime {
  public:
    explicit DraftQueueRuntime(zem::js::Context made = makeContext())
        : context(std::move(made)) {
        context.setUncaughtHandler([this](zem::js::Scope&, const zem::js::Exception& exception) {
            uncaught.add(exception.text());
        });
        setFunction(context, "heard", 1,
                    [this](zem::js::Scope& scope, zem::js::Local, zem::js::Arguments arguments) {
                        transcript.add(scope.toText(arguments[0]));
                        return scope.undefined();
                    });
    }
    ~DraftQueueRuntime() { context.setUncaughtHandler(nullptr); }
    DraftQueueRuntime(const DraftQueueRuntime&) = delete;
    DraftQueueRuntime& operator=(const DraftQueueRuntime&) = delete;

    /// The value of a script.
    zem::js::Value value(std::string_view script) const {
        return context.perform([&](zem::js::Scope& scope) {
            return scope.keep(scope.evaluate(script, "test.js").value());
        });
    }

    void evaluate(std::string_view script) const { test::evaluate(context, script); }

    /// The thread on which the calling thread's work in the engine is done.
    std::thread::id engineThread() const {
        return context.perform([](zem::js::Scope&) { return std::this_thread::get_id(); });
    }

    std::vector<std::string> lines() const { return transcript.lines(); }

    const zem::js::Context context;
    /// The lines of the runtime and of the callbacks.
    Transcript transcript;
    Transcript uncaught;
};

/// A reason to reject for, and what is made of it.
struct RejectionReason {
    const char* script;
    const char* text;        ///< by the draft queue
    const char* textInProxy; ///< by the proxy's error callback
};

inline constexpr const char* noErrorFound = "Promise Rejected but no error found.";

inline constexpr RejectionReason rejectionReasons[] = {
    {"{ error: 'offline' }", "offline", "offline"},
    {"{ error: 'offline', message: 'other' }", "offline", "offline"},
    {"{ error: '' }", "", ""},
    {"{ error: 'caf\\u00e9' }", "café", "café"},
    {"{ error: 5 }", "5", "5"},
    {"{ error: false }", "false", "false"},
    {"{ error: null }", "null", "null"},
    {"{ error: ['a', 'b'] }", "a,b", "a,b"},
    {"{ error: new Error('deep') }", "Error: deep", "Error: deep"},
    {"{ error: { toString() { return 'own'; } } }", "own", "own"},
    {"{ error: Symbol('s') }", "Symbol(s)", "Symbol(s)"},
    {"new (class { get error() { return 'computed'; } })", "computed", "computed"},
    {"Object.create({ error: 'inherited' })", "inherited", "inherited"},
    {"Object.assign([], { error: 'of an array' })", "of an array", "of an array"},
    {"Object.assign(() => {}, { error: 'of a function' })", "of a function", "of a function"},
    {"Object.assign(new Error('m'), { error: 'of an Error' })", "of an Error", "of an Error"},
    {"new Proxy({}, { get: (target, key) => `trap ${String(key)}` })", "trap error", "trap error"},
    {"'offline'", noErrorFound, "offline"},
    {"''", noErrorFound, ""},
    {"undefined", noErrorFound, noErrorFound},
    {"null", noErrorFound, noErrorFound},
    {"5", noErrorFound, noErrorFound},
    {"true", noErrorFound, noErrorFound},
    {"10n", noErrorFound, noErrorFound},
    {"Symbol('s')", noErrorFound, noErrorFound},
    {"new Error('m')", noErrorFound, noErrorFound},
    {"new String('offline')", noErrorFound, noErrorFound},
    {"{}", noErrorFound, noErrorFound},
    {"[]", noErrorFound, noErrorFound},
    {"() => {}", noErrorFound, noErrorFound},
    {"Object.create(null)", noErrorFound, noErrorFound},
    {"{ Error: 'offline' }", noErrorFound, noErrorFound},
    {"{ error: undefined }", noErrorFound, noErrorFound},
    {"{ error: Object.create(null) }", noErrorFound, noErrorFound},
    {"{ error: { toString() { throw 'private'; } } }", noErrorFound, noErrorFound},
    {"{ get error() { throw 'private'; } }", noErrorFound, noErrorFound},
    {"new Proxy({}, { get() { throw 'private'; } })", noErrorFound, noErrorFound},
};

} // namespace test
