#include "Run.h"

#include "Commands/Report.h"
#include "Process/Failure.h"
#include "Process/File.h"
#include "Process/Output.h"
#include "Runtime/Store.h"
#include "Shell/CommandInput.h"
#include <zem/Platform/ChromeTrace.h>
#include <zem/Platform/Log.h>

#include <fmt/format.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <future>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zem::host {

namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

/// A script stops within a tenth of a second. A longer wait means a step inside the engine that
/// cannot be stopped.
constexpr platform::Seconds stopLimit(3);

void startTrace(const std::filesystem::path& file) {
    try {
        platform::setSignpostSink(platform::makeChromeTrace(file));
    } catch (const std::system_error& error) {
        throw Failure(exitUsage,
                      fmt::format("cannot write {}: {}", file.string(), error.code().message()));
    }
}

std::shared_ptr<ProgressBar> makeProgressBar(const Options& options,
                                             std::shared_ptr<platform::RunLoop> runLoop) {
    return options.json || !enableStatusLine()
               ? nullptr
               : std::make_shared<ProgressBar>(std::move(runLoop), setStatusLine);
}

Network::OnProgress progressTo(const std::shared_ptr<ProgressBar>& bar) {
    if (bar == nullptr) {
        return nullptr;
    }
    return [bar](const CurlNetworkAdapter::Progress& progress) {
        bar->update(progress);
    };
}

} // namespace

Run::Run(Options given, std::shared_ptr<Ending> ending, std::shared_ptr<Interruption> interruption)
    : options(std::move(given))
    , bundle(readFile(options.bundle))
    , settings(options.settings)
    , commandText(readCommandFile(options))
    , ending(std::move(ending))
    , interruption(std::move(interruption))
    , thread("JavaScript")
    , scriptLoop(std::make_shared<ClosableRunLoop>(thread.runLoop()))
    , progressBar(makeProgressBar(options, mainLoop))
    , network(Network::create(options, progressTo(progressBar))) {}

int Run::run() {
    std::exception_ptr failure;
    try {
        start();
        mainLoop->run();
    } catch (...) {
        failure = std::current_exception();
        ending->request(exitUncaught);
    }
    finish();
    if (failure != nullptr) {
        std::rethrow_exception(failure);
    }
    return ending->code();
}

void Run::start() {
    if (options.trace) {
        startTrace(*options.trace);
    }
    // Keeps the run from counting as idle before the bundle has started.
    auto starting = std::make_unique<tessel::ActivityToken>(activity);
    context = js::Context::create(scriptLoop);
    const auto values = context.perform([this](js::Scope& scope) {
        startEngine(scope);
        return settings.parse(scope);
    });
    openStores();
    makeRuntime();
    connectPlugins();
    context.perform([&](js::Scope& scope) {
        addSettings(scope, values);
        globals->watchRuntime(scope);
    });
    listenToIdleness();
    // First, so that commands find what the bundle makes.
    startBundle(std::move(starting));
    startCommands();
}

void Run::openStores() {
    store = openStore(options, [json = options.json](const SQLiteFailure& failure) {
        printConsoleError(json, fmt::format("store: {} (SQLite error {}), to: {}", failure.message,
                                            failure.code, failure.sql));
    });
    binaryStore = openBinaryStore(options, network);
}

void Run::connectPlugins() {
    networkAdapterPlugin = NetworkAdapterPlugin::create(network, binaryStore);
    binaryStorePlugin = BinaryStorePlugin::create(binaryStore);
    connection.emplace(context, activity);
    connection->add(*store);
    connection->add(*networkAdapterPlugin);
    connection->add(*binaryStorePlugin);
    connection->add(*draftQueuePlugin);
}

void Run::makeRuntime() {
    Runtime::Listener listener;
    if (options.shell || options.commands) {
        commands = makeCommands();
        listener = commands->listener();
    }
    runtime.emplace(activity, draftQueuePlugin, binaryStore, std::move(listener));
}

std::shared_ptr<Commands> Run::makeCommands() {
    Commands::Options made;
    made.endsWithLines = isTyped(options);
    made.endsWithFailure = !options.shell;
    made.context.source = commandSource(options);
    made.context.json = options.json;
    made.context.ending = ending;
    made.context.activity = activity;
    made.context.evaluate = [this](std::string script, std::string source, int line,
                                   std::function<void(EvalResult)> done) {
        context.async([this, script = std::move(script), source = std::move(source), line,
                       done = std::move(done)](js::Scope& scope) mutable {
            globals->evaluate(scope, script, source, line, std::move(done));
        });
    };
    made.context.interruptScript = [context = context, isInterrupted = isScriptInterrupted] {
        *isInterrupted = true;
        // Runs once the script is over, or at once if there is none.
        context.async([isInterrupted](js::Scope&) { *isInterrupted = false; });
    };
    return std::make_shared<Commands>(std::move(made));
}

void Run::listenToIdleness() {
    if (commands == nullptr) {
        activity->setIdleHandler([ending = ending] { ending->request(exitDone); });
        return;
    }
    activity->setIdleHandler([weak = std::weak_ptr(commands)] {
        if (const auto alive = weak.lock()) {
            alive->idle();
        }
    });
}

void Run::startCommands() {
    if (commands == nullptr) {
        return;
    }
    const std::weak_ptr<Commands> weak(commands);
    interruption->setTaker([weak, isTyped = isTyped(options)] {
        const auto alive = weak.lock();
        return isTyped && alive != nullptr && alive->abandon();
    });
    commands->start(openCommandLines(options, std::move(commandText),
                                     [weak] {
                                         const auto alive = weak.lock();
                                         return alive == nullptr ? std::vector<std::string>()
                                                                 : alive->subscriptionNames();
                                     }),
                    {&*runtime, store, binaryStore, network});
}

void Run::startEngine(js::Scope& scope) {
    context.setInterruptHandler([ending = ending, isInterrupted = isScriptInterrupted] {
        return ending->requested() || *isInterrupted;
    });
    const auto failWith = [this](bool wasRejection) {
        return [this, wasRejection](js::Scope& inner, const js::Exception& exception) {
            fail(inner, exception, wasRejection);
        };
    };
    context.setUncaughtHandler(failWith(false));
    context.setRejectionHandler(failWith(true));
    timers.emplace(scriptLoop, activity, [this](Timers::Id id) {
        context.perform([&](js::Scope& inner) {
            if (const auto outcome = globals->fireTimer(inner, id); !outcome) {
                fail(inner, outcome.error(), false);
            }
        });
    });
    Globals::Run calls;
    calls.json = options.json;
    calls.arguments = options.arguments;
    calls.baseURL = options.url;
    calls.startTimer = [this](Timers::Id id, double milliseconds, bool holdsRun) {
        timers->start(id, Milliseconds(milliseconds), holdsRun);
    };
    calls.stopTimer = [this](Timers::Id id) {
        timers->stop(id);
    };
    calls.hold = [this] {
        held.push_back(std::make_unique<tessel::ActivityToken>(activity));
    };
    calls.release = [this] {
        held.pop_back();
    };
    calls.now = [this] {
        return Milliseconds(mainLoop->now() - begun).count();
    };
    calls.exit = [this](int code) {
        ending->request(code);
        standStill();
    };
    calls.fail = failWith(false);
    calls.runtimePromised = [this] {
        runtime->promised();
    };
    calls.runtimeArrived = [this](RuntimeParts parts) {
        runtime->arrived(std::move(parts));
    };
    calls.runtimeFailed = [this](std::string why) {
        runtime->failed(std::move(why));
        return commands != nullptr;
    };
    globals.emplace(scope, std::move(calls));
}

void Run::addSettings(js::Scope& scope, const std::vector<Settings::Value>& values) {
    for (const auto& [name, value] : values) {
        if (!globals->add(scope, name, scope.local(value))) {
            throw Failure(exitUsage,
                          fmt::format("--set {}: there is a global of that name already", name));
        }
    }
}

void Run::startBundle(std::unique_ptr<tessel::ActivityToken> evaluating) {
    context.async([this, evaluating = std::move(evaluating)](js::Scope& scope) {
        if (const auto outcome = scope.evaluate(bundle, options.bundle); !outcome) {
            fail(scope, outcome.error(), false);
        }
        globals->lookAtRuntime(scope);
    });
}

void Run::fail(js::Scope& scope, const js::Exception& exception, bool wasRejection) {
    // After a request for the end, the exception is the one that stops the script.
    if (ending->requested()) {
        return;
    }
    printErrorLine(globals->describeUncaught(scope, exception, wasRejection));
    // A shell goes on: its user may look for the reason.
    if (!options.shell) {
        ending->request(exitUncaught);
        standStill();
    }
}

void Run::standStill() {
    runtimeQuiet.set();
    scriptStopped.set_value(false);
    for (;;) {
        pause();
    }
}

void Run::finish() {
    if (progressBar != nullptr) {
        progressBar->end();
    }
    interruption->setTaker(nullptr);
    const bool commandsEnded = commands == nullptr || commands->stop(stopLimit);
    if (runtime) {
        // A hand-over may wait for the engine's thread, which must not close before.
        runtime->close([this] { runtimeQuiet.set(); });
        runtimeQuiet.waitFor(stopLimit);
    }
    scriptLoop->close();
    // Ends the requests under way. Their answers are dropped.
    network->setOnline(false);
    thread.runLoop()->perform([this] {
        timers.reset();
        globals.reset();
        held.clear();
        connection.reset();
        context = {};
        scriptStopped.set_value(true);
    });
    auto stopping = scriptStopped.get_future();
    const bool stopped = stopping.wait_for(stopLimit) == std::future_status::ready;
    const bool threadEnds = stopped && stopping.get() && commandsEnded;
    if (threadEnds) {
        runtime.reset();
        commands.reset();
    }
    closeStores(threadEnds);
    platform::setSignpostSink(nullptr);
    if (!threadEnds) {
        _exit(ending->code());
    }
}

void Run::closeStores(bool threadEnds) {
    // A script that does not stop may hold the stores and give them more work.
    if (binaryStore != nullptr) {
        binaryStore->close();
    }
    if (store == nullptr) {
        return;
    }
    const std::future<void> closed = closeStore(std::move(store));
    if (threadEnds) {
        closed.wait();
    } else {
        closed.wait_for(stopLimit);
    }
}

} // namespace zem::host
