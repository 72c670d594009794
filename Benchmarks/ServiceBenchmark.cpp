// The cost of the data service beside the least possible cost of the same work: a call there and
// back, many calls at once, and a large answer. The context is bound to a thread, as the host's is.

#include "BareEngine.h"
#include "Baton.h"
#include "Measure.h"
#include <zem/Core/DataService.h>
#include <zem/JavaScript/Context.h>
#include <zem/Platform/RunLoop.h>

#include <array>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr const char* runtimeScript = R"js(
    globalThis.large = { data: {} };
    for (let n = 0; n < 130000; ++n) large.data["k" + n] = n % 3 === 0 ? n : "text" + n % 1000;
    globalThis.zem = {
        invokeAdapter(adapterId, config, callback, context) {
            callback(adapterId === "large" ? large : { data: { n: 1 } });
        },
    };
)js";

constexpr const char* adapterId = "getRecord";
constexpr const char* config = R"({"recordId":"001","fields":["Name"]})";

/// A ring of threads through which a baton goes: the calling thread, one for the shared queue, the
/// engine's, one for the callback queue, and back.
class Ring {
  public:
    explicit Ring(std::function<void()> engineCall)
        : engineCall(std::move(engineCall)) {
        for (std::size_t index = 0; index < threads.size(); ++index) {
            threads[index] = std::thread([this, index] { run(index); });
        }
    }
    ~Ring() {
        ended = true;
        batons[0].give();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    void goRound() {
        batons[0].give();
        batons[threads.size()].take();
    }

  private:
    void run(std::size_t index) {
        for (;;) {
            batons[index].take();
            if (index == 1 && !ended) {
                engineCall();
            }
            const bool last = ended;
            batons[index + 1].give();
            if (last) {
                return;
            }
        }
    }

    std::function<void()> engineCall;
    bool ended = false; // handed on with the batons
    std::array<std::thread, 3> threads;
    std::array<bench::Baton, 4> batons;
};

class Subject {
  public:
    Subject() {
        context.perform([](zem::js::Scope& scope) {
            (void)scope.evaluate(runtimeScript, "runtime.js").value();
        });
        service = zem::DataService::create(context.perform([](zem::js::Scope& scope) {
            return scope.keep(scope.evaluate("zem", "runtime.js").value());
        }),
                                           nullptr, {}, zem::DataService::defaultWatchdogTimeout);
    }

    /// Returns when the caller's callback has been called `count` times.
    void invoke(const char* adapter, int count) {
        answered = 0;
        for (int call = 0; call < count; ++call) {
            service->invokeAdapter(adapter, config, [this, count](zem::DataServiceResult result) {
                if (!result || result->empty()) {
                    throw std::runtime_error("the runtime answered wrongly");
                }
                held.emplace(std::move(*result));
                if (++answered == count) {
                    done.give();
                }
            });
        }
        done.take();
    }

    zem::platform::RunLoopThread thread{"engine"};
    zem::js::Context context = zem::js::Context::create(thread.runLoop());
    std::shared_ptr<zem::DataService> service;
    bench::Baton done;
    int answered = 0;
    std::optional<zem::Dictionary> held;
};

} // namespace

int main() {
    Subject subject;
    bench::BareEngine bare(runtimeScript);

    constexpr int roundTrips = 2000;
    {
        Ring ring([&] { bare.call(adapterId, config); });
        bench::report(bench::measure(
            {"service.invoke", "us", 2},
            [&] {
                return bench::milliseconds([&] {
                           for (int call = 0; call < roundTrips; ++call) {
                               subject.invoke(adapterId, 1);
                           }
                       }) *
                       1e3 / roundTrips;
            },
            [&] {
                return bench::milliseconds([&] {
                           for (int call = 0; call < roundTrips; ++call) {
                               ring.goRound();
                           }
                       }) *
                       1e3 / roundTrips;
            }));
    }

    constexpr int atOnce = 100'000;
    bench::report(bench::measure(
        {"service.invoke.throughput", "ms", 3},
        [&] { return bench::milliseconds([&] { subject.invoke(adapterId, atOnce); }); },
        [&] {
            return bench::milliseconds([&] {
                for (int call = 0; call < atOnce; ++call) {
                    bare.call(adapterId, config);
                }
            });
        },
        5));

    bench::report(bench::measure(
        {"service.dictionary", "ms", 4},
        [&] {
            subject.held.reset();
            return bench::milliseconds([&] { subject.invoke("large", 1); });
        },
        [&] { return bench::milliseconds([&] { bare.stringify("large"); }); }, 15));
    if (subject.held->size() != 130'000) {
        throw std::runtime_error("the large answer did not arrive whole");
    }
}
