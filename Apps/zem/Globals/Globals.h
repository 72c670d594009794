#pragma once

// The globals that a bundle finds beside the language's own. The script in script/ makes them.
// This class gives the script the functions that the engine does not have.

#include "EvalResult.h"
#include "Runtime/RuntimeParts.h"
#include <zem/JavaScript/Context.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zem::host {

class Globals {
  public:
    /// The functions of the run that the globals call, inside the engine.
    struct Run {
        bool json = false;
        std::vector<std::string> arguments;
        /// The base of relative URLs, absent if there is none.
        std::optional<std::string> baseURL;
        /// `holdsRun`: the run does not end by itself before the timer has fired.
        std::function<void(std::uint64_t id, double milliseconds, bool holdsRun)> startTimer;
        std::function<void(std::uint64_t id)> stopTimer;
        /// Between `hold` and its `release` the run does not end by itself.
        std::function<void()> hold;
        std::function<void()> release;
        /// Milliseconds since the run began.
        std::function<double()> now;
        /// End the run, and do not return.
        std::function<void(int code)> exit;
        std::function<void(js::Scope&, const js::Exception&)> fail;
        /// `globalThis.runtime` was set, maybe to a promise; its parts have arrived; it cannot be
        /// used, with the reason. The last one returns false if the run uses no runtime.
        std::function<void()> runtimePromised;
        std::function<void(RuntimeParts parts)> runtimeArrived;
        std::function<bool(std::string why)> runtimeFailed;
    };

    /// Defines the globals. Throws std::runtime_error when the engine refuses the script.
    Globals(js::Scope& scope, Run run);

    /// Adds a global; false if there is one of that name already.
    bool add(js::Scope& scope, const std::string& name, js::Local value) const;

    /// Calls the callback of setTimeout or setInterval.
    js::Result<js::Local> fireTimer(js::Scope& scope, std::uint64_t id) const;

    /// Takes the plugins that `fetch` uses, and begins to watch `globalThis.runtime`. Call it when
    /// the plugins are there, before the bundle runs.
    void watchRuntime(js::Scope& scope) const;
    /// Reads `globalThis.runtime` again, in case the bundle has replaced the watched property.
    void lookAtRuntime(js::Scope& scope) const;

    /// Evaluates a script and, if it returns a promise, waits for that. `done` is called once, on
    /// the context's thread, or never if the promise is not settled.
    void evaluate(js::Scope& scope, std::string_view script, std::string_view source, int line,
                  std::function<void(EvalResult)> done) const;

    /// The report on an uncaught exception: its place, message and stack.
    std::string describeUncaught(js::Scope& scope, const js::Exception& exception,
                                 bool wasRejection) const;

  private:
    js::Function addFunction;
    js::Function watchRuntimeFunction;
    js::Function lookAtRuntimeFunction;
    js::Function showResultFunction;
    js::Function fireTimerFunction;
    js::Function describeUncaughtFunction;
};

} // namespace zem::host
