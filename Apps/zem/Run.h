#pragma once

// One run of a bundle, from its first line to the clean end.

#include "Commands/Commands.h"
#include "Globals/ClosableRunLoop.h"
#include "Globals/Globals.h"
#include "Globals/Settings.h"
#include "Globals/Timers.h"
#include "Process/Ending.h"
#include "Process/Interruption.h"
#include "Process/OneShotEvent.h"
#include "Process/Options.h"
#include "Runtime/Network.h"
#include "Runtime/ProgressBar.h"
#include "Runtime/Runtime.h"
#include <zem/Adapters/EncryptedBinaryStore.h>
#include <zem/JavaScript/Context.h>
#include <zem/SqliteStore/SQLiteStore.h>
#include <zem/Tessel/Activity.h>
#include <zem/Tessel/Connection.h>
#include <zem/TesselPluginZEM/BinaryStore/BinaryStorePlugin.h>
#include <zem/TesselPluginZEM/DraftQueue/DraftQueuePlugin.h>
#include <zem/TesselPluginZEM/NetworkAdapter/NetworkAdapterPlugin.h>

#include <atomic>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zem::host {

/// Made and used on the main thread, whose run loop it runs.
class Run {
  public:
    /// Reads the files that the options name. Throws a Failure when one cannot be read, or an
    /// option makes no sense.
    Run(Options options, std::shared_ptr<Ending> ending,
        std::shared_ptr<Interruption> interruption);

    /// Runs the bundle until nothing is left to do, or until the end is asked for, closes the store
    /// and returns the exit code; ends the process with it when the script was stopped in the
    /// middle. Throws a Failure when the bundle could not be started. Once.
    int run();

  private:
    void start();
    void openStores();
    void connectPlugins();
    void startEngine(js::Scope& scope);
    void addSettings(js::Scope& scope, const std::vector<Settings::Value>& values);
    void makeRuntime();
    std::shared_ptr<Commands> makeCommands();
    void listenToIdleness();
    void startBundle(std::unique_ptr<tessel::ActivityToken> evaluating);
    void startCommands();
    void fail(js::Scope& scope, const js::Exception& exception, bool wasRejection);

    /// Blocks the JavaScript thread until the process ends. The script executes nothing more, no
    /// `finally` and no promise job.
    [[noreturn]] void standStill();

    void finish();
    void closeStores(bool threadEnds);

    Options options;
    std::string bundle;
    Settings settings;
    std::string commandText;
    std::shared_ptr<platform::RunLoop> mainLoop = platform::RunLoop::main();
    platform::RunLoop::TimePoint begun = mainLoop->now();
    std::shared_ptr<Ending> ending;
    std::shared_ptr<Interruption> interruption;
    std::shared_ptr<tessel::Activity> activity = std::make_shared<tessel::Activity>();
    platform::RunLoopThread thread;
    /// The thread's run loop as the context and the timers use it.
    std::shared_ptr<ClosableRunLoop> scriptLoop;
    /// True when the JavaScript thread has let go of everything, false when it stands still.
    std::promise<bool> scriptStopped;
    /// Set when the services wait for no JavaScript, or the JavaScript thread stands still.
    OneShotEvent runtimeQuiet;

    /// Null if there is no terminal for it.
    std::shared_ptr<ProgressBar> progressBar;
    std::shared_ptr<Network> network;
    std::shared_ptr<SQLiteStore> store;
    std::shared_ptr<EncryptedBinaryStore> binaryStore;
    std::shared_ptr<NetworkAdapterPlugin> networkAdapterPlugin;
    std::shared_ptr<BinaryStorePlugin> binaryStorePlugin;
    /// Has no draft queue behind it until the bundle has set a runtime.
    std::shared_ptr<DraftQueuePlugin> draftQueuePlugin = DraftQueuePlugin::create(nullptr);
    /// Ends the running script, and no later one.
    std::shared_ptr<std::atomic<bool>> isScriptInterrupted =
        std::make_shared<std::atomic<bool>>(false);

    // Made, used and dropped on the JavaScript thread.
    std::optional<Timers> timers;
    std::optional<Globals> globals;
    std::vector<std::unique_ptr<tessel::ActivityToken>> held;
    js::Context context;
    std::optional<tessel::Connection> connection;

    std::shared_ptr<Commands> commands;
    std::optional<Runtime> runtime;
};

} // namespace zem::host
