// The cost of many live subscriptions: subscribing, one emission and unsubscribing in random order
// for each of 100,000, beside the same for each of 1,000. And the time for which a look of the
// watchdog at 100,000 holds the service's lock, beside walking an array of as many times.

#include "Measure.h"
#include <zem/Core/DataService.h>
#include <zem/Core/Private/SubscriptionList.h>
#include <zem/JavaScript/Context.h>
#include <zem/Platform/RunLoop.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int few = 1'000;
constexpr int many = 100'000;

/// Waits for a number of calls on other threads.
class Countdown {
  public:
    explicit Countdown(int count)
        : left(count) {}
    void count() {
        if (--left == 0) {
            const std::scoped_lock lock(mutex);
            done = true;
            condition.notify_one();
        }
    }
    void wait() {
        std::unique_lock lock(mutex);
        condition.wait(lock, [this] { return done; });
    }

  private:
    std::atomic<int> left;
    std::mutex mutex;
    std::condition_variable condition;
    bool done = false;
};

class Subject {
  public:
    Subject() {
        zem = context.perform([this](zem::js::Scope& scope) {
            (void)scope.set(
                scope.global(), "ended",
                scope.function("ended", 0,
                               [this](zem::js::Scope& inner, zem::js::Local, zem::js::Arguments) {
                                   ended->count();
                                   return inner.undefined();
                               }));
            return scope.keep(scope
                                  .evaluate(R"js(({
                                      subscribeToAdapter(adapterId, config, callback) {
                                          callback({ data: { n: 1 } });
                                          return () => ended();
                                      },
                                  }))js",
                                            "runtime.js")
                                  .value());
        });
        service =
            zem::DataService::create(zem, nullptr, {}, zem::DataService::defaultWatchdogTimeout);
    }

    /// Microseconds for each of `count` subscriptions, all of them live at once.
    double run(int count) {
        Countdown emitted(count);
        Countdown unsubscribed(count);
        ended = &unsubscribed;
        std::vector<zem::Unsubscribe> handles;
        handles.reserve(static_cast<std::size_t>(count));
        const double subscribing = bench::milliseconds([&] {
            for (int index = 0; index < count; ++index) {
                handles.push_back(service->subscribeToAdapter(
                    "list", "{}", [&emitted](const zem::DataServiceResult&) { emitted.count(); }));
            }
            emitted.wait();
            while (service->subscriptionCount() != static_cast<std::size_t>(count)) {
                std::this_thread::yield(); // the last one is on its way into the list
            }
        });
        std::shuffle(handles.begin(), handles.end(), random);
        const double unsubscribing = bench::milliseconds([&] {
            for (const zem::Unsubscribe& unsubscribe : handles) {
                unsubscribe();
            }
            unsubscribed.wait();
        });
        if (service->subscriptionCount() != 0) {
            throw std::runtime_error("not every subscription has ended");
        }
        return (subscribing + unsubscribing) * 1e3 / count;
    }

  private:
    zem::platform::RunLoopThread thread{"engine"};
    zem::js::Context context = zem::js::Context::create(thread.runLoop());
    zem::js::Value zem;
    std::shared_ptr<zem::DataService> service;
    Countdown* ended = nullptr;
    std::mt19937 random{1};
};

void reportSweep() {
    using List = zem::SubscriptionList;
    List list;
    std::vector<List::TimePoint> times;
    for (int index = 0; index < many; ++index) {
        const auto wire = zem::WireSubscription::create("list", "{}", std::nullopt, nullptr);
        const List::TimePoint prepared{std::chrono::seconds(index)};
        list.append(std::make_shared<List::Subscription>(nullptr, prepared, wire));
        times.push_back(prepared);
    }
    const List::TimePoint before{std::chrono::seconds(-1)};
    bench::report(bench::measure(
        {"service.sweep", "us", 10},
        [&] {
            // Only the work under the lock is measured.
            bool any = false;
            const double cost = bench::milliseconds(
                [&] { any = !list.takeOverdue(before, list.appended()).empty(); });
            if (any) {
                throw std::runtime_error("something was overdue");
            }
            return cost * 1e3;
        },
        [&] {
            std::ptrdiff_t late = 0;
            const double cost = bench::milliseconds([&] {
                late = std::count_if(times.begin(), times.end(),
                                     [&](List::TimePoint time) { return time <= before; });
            });
            if (late != 0) {
                throw std::runtime_error("something was late");
            }
            return cost * 1e3;
        },
        101));
}

} // namespace

int main() {
    Subject subject;
    // As many at both sizes, so that both last as long.
    bench::report(bench::measure(
        {"service.subscriptions", "us", 1.5}, [&] { return subject.run(many); },
        [&] {
            constexpr int rounds = many / few;
            double sum = 0;
            for (int round = 0; round < rounds; ++round) {
                sum += subject.run(few);
            }
            return sum / rounds;
        },
        5));
    reportSweep();
}
