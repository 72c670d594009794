// How long others wait for the engine while the data service has much to do there: a thread that
// enters it, and a timer of JavaScript. The floor is one turn of the service's lane: sixteen calls.
// Both ways of entering a context: bound to a thread, as the host's is, and inline.
//
// A wait is told by the calls of the service that pass it, and given as the time that these take.
// By the clock, the longest of some hundred waits is a time slice of the machine's scheduler or a
// collection of the engine's, whichever way the engine is shared.

#include "Baton.h"
#include "Measure.h"
#include <zem/Core/DataService.h>
#include <zem/Core/SharedPriorityQueue.h>
#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Value.h>
#include <zem/Platform/RunLoop.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace {

constexpr const char* runtimeScript = R"js(
    globalThis.zem = {
        invokeAdapter(adapterId, config, callback, context) {
            callStarted();
            callback({ data: { n: 1 } });
        },
    };
    globalThis.ticks = 0;
    globalThis.tick = () => { ++ticks; };
)js";

constexpr int outstanding = 50'000;
constexpr int startsInATurn = 16;

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

/// A runtime and a service in a context that is entered one way or the other.
class Subject {
  public:
    explicit Subject(zem::js::Context entered)
        : context(std::move(entered)) {
        tick = context
                   .perform([this](zem::js::Scope& scope) {
                       (void)scope.set(
                           scope.global(), "callStarted",
                           scope.function(
                               "callStarted", 0,
                               [this](zem::js::Scope& inside, zem::js::Local,
                                      zem::js::Arguments) -> zem::js::Result<zem::js::Local> {
                                   ++callsStarted;
                                   return inside.undefined();
                               }));
                       (void)scope.evaluate(runtimeScript, "runtime.js").value();
                       return zem::js::Function::from(scope,
                                                      scope.evaluate("tick", "runtime.js").value());
                   })
                   .value();
        service = zem::DataService::create(context.perform([](zem::js::Scope& scope) {
            return scope.keep(scope.evaluate("zem", "runtime.js").value());
        }),
                                           nullptr, {}, zem::DataService::defaultWatchdogTimeout);
    }

    /// Has the service call the runtime again and again, all calls waiting before the first is
    /// started, and `beside` run as soon as that may be. Returns the milliseconds from then until
    /// the last call was started; all are answered.
    template <class Beside>
    double drain(Beside beside) {
        ended = false;
        bench::Baton gate;
        context.lane()->async([&] { gate.take(); });
        answered = 0;
        for (int call = 0; call < outstanding; ++call) {
            service->invokeAdapter("getRecord", "{}", std::nullopt,
                                   [this](const zem::DataServiceResult&) {
                                       if (++answered == outstanding) {
                                           allAnswered.give();
                                       }
                                   });
        }
        bench::Baton started;
        zem::SharedPriorityQueue::priority()->addOperation(
            [&] {
                ended = true;
                started.give();
            },
            zem::platform::QueuePriority{-100}, context.lane());
        const auto begin = Clock::now();
        gate.give();
        beside();
        started.take();
        const double taken = millisecondsSince(begin);
        allAnswered.take();
        return taken;
    }

    bool isDrained() const { return ended; }

    int started() const { return callsStarted; }

    /// Enters the engine. Gives the calls that had been started when JavaScript ran.
    int tickAndCount() const {
        return context.perform([&](zem::js::Scope& scope) {
            (void)tick.call(scope).value();
            return started();
        });
    }

  private:
    const zem::js::Context context;
    zem::js::Function tick;
    std::shared_ptr<zem::DataService> service;
    bench::Baton allAnswered;
    int answered = 0;
    std::atomic<bool> ended = false;
    std::atomic<int> callsStarted = 0;
};

/// Between two waits. A thread that entered without a pause would take the processor from those
/// whose fairness is measured.
constexpr std::chrono::milliseconds pause{1};

/// A timer of JavaScript, due at once; keeps the most calls that passed one.
class Ticking {
  public:
    Ticking(const Subject& subject, zem::platform::RunLoop& loop)
        : subject(subject)
        , loop(loop) {}

    void start() {
        loop.perform([this] { schedule(); });
    }

    /// Returns when no more ticks are to come.
    int mostPassed() {
        stopped.take();
        return most;
    }

  private:
    void schedule() {
        if (subject.isDrained()) {
            stopped.give();
            return;
        }
        const int before = subject.started();
        timer = loop.scheduleTimer(std::chrono::milliseconds(0), false, [this, before] {
            most = std::max(most, subject.tickAndCount() - before);
            timer = loop.scheduleTimer(pause, false, [this] { schedule(); });
        });
    }

    const Subject& subject;
    zem::platform::RunLoop& loop;
    std::unique_ptr<zem::platform::Timer> timer;
    int most = 0;
    bench::Baton stopped;
};

int mostPassedEntries(const Subject& subject) {
    int most = 0;
    while (!subject.isDrained()) {
        const int before = subject.started();
        most = std::max(most, subject.tickAndCount() - before);
        std::this_thread::sleep_for(pause);
    }
    return most;
}

void measure(const std::string& name, zem::js::Context context, zem::platform::RunLoop& timers) {
    Subject subject(std::move(context));
    bench::report(bench::measure(
        {name, "ms", 20},
        [&] {
            Ticking ticking(subject, timers);
            int entry = 0;
            const double taken = subject.drain([&] {
                ticking.start();
                entry = mostPassedEntries(subject);
            });
            return std::max(entry, ticking.mostPassed()) * taken / outstanding;
        },
        [&] { return subject.drain([] {}) * startsInATurn / outstanding; }));
}

} // namespace

int main() {
    const zem::platform::RunLoopThread thread("engine");
    measure("engine.fairness", zem::js::Context::create(thread.runLoop()), *thread.runLoop());
    const zem::platform::RunLoopThread timers("timers");
    measure("engine.fairness.inline", zem::js::Context::create(), *timers.runLoop());
}
