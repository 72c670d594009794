#include "Run.h"

#include "Failure.h"
#include "File.h"
#include "Output.h"
#include "Store.h"
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

/// Running JavaScript is stopped within a tenth of a second; what takes longer than this is a step
/// inside the engine that cannot be, or an engine that cannot stop any.
constexpr platform::Seconds stopLimit(3);

void startTrace(const std::filesystem::path& file) {
    try {
        platform::setSignpostSink(platform::makeChromeTrace(file));
    } catch (const std::system_error& error) {
        throw Failure(exitUsage,
                      fmt::format("cannot write {}: {}", file.string(), error.code().message()));
    }
}

} // namespace

Run::Run(RunOptions given, std::shared_ptr<Ending> ending)
    : options(std::move(given))
    , bundle(readFile(options.bundle))
    , settings(options.settings)
    , ending(std::move(ending))
    , thread("JavaScript")
    , scriptLoop(std::make_shared<ClosableRunLoop>(thread.runLoop())) {}

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
    activity->setIdleHandler([ending = ending] { ending->request(exitDone); });
    context = js::Context::create(scriptLoop);
    const auto values = context.perform([this](js::Scope& scope) {
        startEngine(scope);
        return settings.parse(scope);
    });
    store = openStore(options);
    connection.emplace(context, activity);
    connection->add(*store);
    context.perform([&](js::Scope& scope) { addSettings(scope, values); });
    startBundle();
}

void Run::startEngine(js::Scope& scope) {
    context.setInterruptHandler([ending = ending] { return ending->requested(); });
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
    calls.startTimer = [this](Timers::Id id, double milliseconds) {
        timers->start(id, Milliseconds(milliseconds));
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

void Run::startBundle() {
    auto evaluating = std::make_unique<tessel::ActivityToken>(activity);
    context.async([this, evaluating = std::move(evaluating)](js::Scope& scope) {
        if (const auto outcome = scope.evaluate(bundle, options.bundle); !outcome) {
            fail(scope, outcome.error(), false);
        }
    });
}

void Run::fail(js::Scope& scope, const js::Exception& exception, bool wasRejection) {
    // What comes after the end was asked for is how the engine ends a script.
    if (!ending->requested()) {
        printErrorLine(globals->describeUncaught(scope, exception, wasRejection));
        ending->request(exitUncaught);
        standStill();
    }
}

void Run::standStill() {
    scriptStopped.set_value(false);
    for (;;) {
        pause();
    }
}

void Run::finish() {
    scriptLoop->close();
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
    const bool threadEnds = stopped && stopping.get();
    if (store != nullptr) {
        const std::future<void> closed = closeStore(std::move(store));
        if (stopped) {
            closed.wait();
        } else {
            // A script that nobody can stop may go on giving it work.
            closed.wait_for(stopLimit);
        }
    }
    platform::setSignpostSink(nullptr);
    if (!threadEnds) {
        _exit(ending->code());
    }
}

} // namespace zem::host
