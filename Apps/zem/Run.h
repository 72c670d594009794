#pragma once

// One run of a bundle, from its first line to the clean end.

#include "ClosableRunLoop.h"
#include "CommandLine.h"
#include "Ending.h"
#include "Globals.h"
#include "Settings.h"
#include "Timers.h"
#include <zem/JavaScript/Context.h>
#include <zem/SqliteStore/SQLiteStore.h>
#include <zem/Tessel/Activity.h>
#include <zem/Tessel/Connection.h>

#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zem::host {

/// Made and used on the main thread, whose run loop it runs.
class Run {
  public:
    /// Reads the files that the options name. Throws a Failure when one cannot be read.
    Run(RunOptions options, std::shared_ptr<Ending> ending);

    /// Runs the bundle until nothing is left to do, or until the end is asked for, closes the store
    /// and returns the exit code; ends the process with it when the script was stopped in the
    /// middle. Throws a Failure when the bundle could not be started. Once.
    int run();

  private:
    void start();
    void startEngine(js::Scope& scope);
    void addSettings(js::Scope& scope, const std::vector<Settings::Value>& values);
    void startBundle();
    void fail(js::Scope& scope, const js::Exception& exception, bool wasRejection);

    /// Keeps the JavaScript thread where it is until the process ends: nothing more of a script is
    /// executed, no `finally` and no promise job.
    [[noreturn]] void standStill();

    void finish();

    RunOptions options;
    std::string bundle;
    Settings settings;
    std::shared_ptr<platform::RunLoop> mainLoop = platform::RunLoop::main();
    platform::RunLoop::TimePoint begun = mainLoop->now();
    std::shared_ptr<Ending> ending;
    std::shared_ptr<tessel::Activity> activity = std::make_shared<tessel::Activity>();
    platform::RunLoopThread thread;
    /// What the context and the timers know of the thread.
    std::shared_ptr<ClosableRunLoop> scriptLoop;
    /// True when the JavaScript thread has let go of everything, false when it stands still.
    std::promise<bool> scriptStopped;

    std::shared_ptr<SQLiteStore> store;

    // Made, used and dropped on the JavaScript thread.
    std::optional<Timers> timers;
    std::optional<Globals> globals;
    std::vector<std::unique_ptr<tessel::ActivityToken>> held;
    js::Context context;
    std::optional<tessel::Connection> connection;
};

} // namespace zem::host
