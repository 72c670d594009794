// Eight threads that do everything at once.

#include <zem/Core/DataService.h>
#include <zem/JavaScript/Scope.h>

#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace zem;

/// The number of operations: the environment variable's, else one that fits into a run of the whole
/// suite.
int operationsToDo() {
    constexpr int usual = 1'000'000;
    const char* asked = std::getenv("ZEM_STRESS_OPERATIONS");
    return asked != nullptr ? std::max(1, std::atoi(asked)) : usual;
}

/// Answers most calls at once, some later and together, and emits to subscriptions now and then.
/// Each emission carries a number from `stamp`, which only grows.
constexpr const char* script = R"js(
    var waiting = [];
    var listeners = [];
    var count = 0;
    var flush = () => waiting.splice(0).forEach((answer) => answer({ data: {} }));
    // No more than two calls wait, so that there are always slots left.
    var once = (answer) => {
        if (++count % 8 !== 0) {
            answer({ data: {} });
        } else if (waiting.push(answer) === 3) {
            flush();
        }
        if (count % 4 === 0) {
            listeners[count / 4 % listeners.length]?.({ data: { n: stamp() } });
        }
    };
    var zem = {
        invokeAdapter(id, config, answer) { once(answer); },
        invokeAdapterWithMetadata(id, config, metadata, answer) { once(answer); },
        invokeAdapterWithDraftToReplace(id, config, draft, answer) { once(answer); },
        subscribeToAdapter(id, config, answer) {
            answer({ data: { n: stamp() } });
            listeners[++count % 64] = answer;
            return () => ended();
        },
        setRimvoRecordTTL() {},
        setMetadataTTL() { return Promise.resolve(); },
    };
)js";

/// A subscription and what it hears.
struct Listener {
    static constexpr std::int64_t notEnded = INT64_MAX;

    /// The latest number given when the caller's unsubscribe had returned.
    std::atomic<std::int64_t> endedAt = notEnded;
    std::atomic<int> heardAfterEnd = 0;
    Unsubscribe end;
};

class Stress {
  public:
    explicit Stress(int operations)
        : operations(operations)
        , answers(static_cast<std::size_t>(operations)) {
        test::setFunction(context, "stamp", 0, [this](js::Scope& scope, js::Local, js::Arguments) {
            return scope.number(static_cast<double>(++stamps));
        });
        test::setFunction(context, "ended", 0, [this](js::Scope& scope, js::Local, js::Arguments) {
            ++runtimeEnds;
            return scope.undefined();
        });
        test::evaluate(context, script);
        zem = context.perform(
            [](js::Scope& scope) { return scope.keep(scope.evaluate("zem", "test.js").value()); });
        service = newService({});
    }

    void run() {
        std::vector<std::thread> threads;
        for (unsigned thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([this, thread] { work(thread); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        test::waitUntil("all answers", [this] {
            test::evaluate(context, "flush()");
            return answered == asked && completed == completionsAsked;
        });
        service.reset();
        retired.clear();
        test::waitUntil("the end of all adapter calls",
                        [] { return SharedPriorityQueue::priority()->operationCount() == 0; });
        context.perform([](js::Scope&) {});
        test::evaluate(context, "listeners = []");
        zem.reset();
    }

    void expectAllWell() const {
        const auto end = answers.begin() + std::min(operations, begun.load());
        EXPECT_TRUE(
            std::all_of(answers.begin(), end, [](const auto& count) { return count <= 1; }));
        EXPECT_EQ(std::count_if(answers.begin(), end, [](const auto& count) { return count == 1; }),
                  asked.load());
        EXPECT_EQ(answered, asked);
        EXPECT_EQ(heardLate, 0);
        EXPECT_LE(heardInPassing, subscribed);
        EXPECT_LE(runtimeEnds, subscribed);
        EXPECT_LE(answeredOfShortLived, askedOfShortLived);
    }

    int done() const { return std::min(operations, begun.load()); }
    std::string counts() const {
        return std::to_string(asked) + " invocations, " + std::to_string(subscribed) +
               " subscriptions, " + std::to_string(completionsAsked) + " times to live, " +
               std::to_string(takeOvers) + " services made of the state of others, " +
               std::to_string(askedOfShortLived) + " calls of services that ended at once";
    }

  private:
    static constexpr unsigned threadCount = 8;
    static constexpr std::chrono::seconds timeBound{100};
    /// More wait for answers nowhere, so that memory is bounded.
    static constexpr int mostUnanswered = 4000;
    static constexpr std::size_t mostListeners = 100;

    std::shared_ptr<DataService> newService(DataServiceState state) {
        return DataService::create(zem, nullptr, std::move(state), 180);
    }

    std::shared_ptr<DataService> currentService() {
        std::scoped_lock lock(mutex);
        return service;
    }

    void work(unsigned thread) {
        std::minstd_rand random(thread + 1);
        std::vector<std::shared_ptr<Listener>> listeners;
        while (std::chrono::steady_clock::now() < started + timeBound) {
            const int number = begun++;
            if (number >= operations) {
                break;
            }
            while (asked - answered > mostUnanswered) {
                std::this_thread::yield();
            }
            doOne(number, random, listeners);
        }
        for (const auto& listener : listeners) {
            end(*listener);
        }
    }

    void doOne(int number, std::minstd_rand& random,
               std::vector<std::shared_ptr<Listener>>& listeners) {
        const auto kind = static_cast<unsigned>(random() % 10000);
        if (kind < 2) {
            takeOver();
        } else if (kind < 4) {
            useShortLivedService();
        } else if (kind < 200) {
            setTTL(kind);
        } else if (kind < 2600 && listeners.size() < mostListeners) {
            listeners.push_back(subscribe());
        } else if (kind < 4800 && !listeners.empty()) {
            std::swap(listeners[random() % listeners.size()], listeners.back());
            end(*listeners.back());
            if (kind % 4 == 0) {
                end(*listeners.back());
            }
            listeners.pop_back();
        } else {
            invoke(number, kind);
        }
    }

    void invoke(int number, unsigned kind) {
        ++asked;
        const auto used = currentService();
        ResultCallback callback = [this, number](const DataServiceResult& result) {
            if (result) {
                ++answers[static_cast<std::size_t>(number)];
            }
            ++answered;
        };
        switch (kind % 4) {
        case 0:
            used->invokeAdapterWithMetadata("a", "{}", {{"k", "v"}}, std::move(callback));
            break;
        case 1:
            used->invokeAdapterWithDraftToReplace("a", "{}", "1", std::move(callback));
            break;
        default: {
            AdapterRequestContext requestContext;
            requestContext.priority =
                kind % 4 == 2 ? AdapterRequestPriority::high : AdapterRequestPriority::background;
            used->invokeAdapter("a", "{}", requestContext, std::move(callback));
        }
        }
    }

    std::shared_ptr<Listener> subscribe() {
        ++subscribed;
        auto listener = std::make_shared<Listener>();
        listener->end = currentService()->subscribeToAdapter(
            "a", "{}",
            [this, listener](const DataServiceResult& result) { hear(*listener, result); });
        return listener;
    }

    void hear(Listener& listener, const DataServiceResult& result) {
        const std::int64_t endedAt = listener.endedAt;
        if (endedAt == Listener::notEnded) {
            return;
        }
        // One that was on its way when the caller ended it, at most; none that came later.
        if (!result || result->at("n").to_number<std::int64_t>() > endedAt ||
            ++listener.heardAfterEnd > 1) {
            ++heardLate;
        }
        ++heardInPassing;
    }

    void end(Listener& listener) {
        listener.end();
        std::int64_t notEnded = Listener::notEnded;
        listener.endedAt.compare_exchange_strong(notEnded, stamps.load());
    }

    void setTTL(unsigned kind) {
        ++completionsAsked;
        const auto used = currentService();
        if (kind % 2 == 0) {
            used->setMetadataTTL(kind, [this] { ++completed; });
        } else {
            used->setRimvoRecordTTL(kind, [this] { ++completed; });
        }
    }

    /// The next service is made of what the present one has; that stays for its own calls.
    void takeOver() {
        ++takeOvers;
        std::shared_ptr<DataService> next = newService(currentService()->takeState());
        std::scoped_lock lock(mutex);
        std::swap(service, next);
        retired.push_back(std::move(next));
    }

    /// Ends with calls in every state.
    void useShortLivedService() {
        const auto shortLived = newService({});
        for (int call = 0; call < 8; ++call) {
            ++askedOfShortLived;
            shortLived->invokeAdapter("a", "{}",
                                      [this](const DataServiceResult&) { ++answeredOfShortLived; });
        }
    }

    const int operations;
    const std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
    js::Context context = test::makeContext();
    js::Value zem;
    std::vector<std::atomic<std::uint8_t>> answers;
    std::atomic<std::int64_t> stamps = 0;
    std::atomic<int> begun = 0;
    std::atomic<int> asked = 0;
    std::atomic<int> answered = 0;
    std::atomic<int> completionsAsked = 0;
    std::atomic<int> completed = 0;
    std::atomic<int> subscribed = 0;
    std::atomic<int> runtimeEnds = 0;
    std::atomic<int> heardLate = 0;
    std::atomic<int> heardInPassing = 0;
    std::atomic<int> takeOvers = 0;
    std::atomic<int> askedOfShortLived = 0;
    std::atomic<int> answeredOfShortLived = 0;
    std::mutex mutex;
    std::shared_ptr<DataService> service;
    std::vector<std::shared_ptr<DataService>> retired;
};

TEST(DataServiceStress, AnswersEachOnceAndNobodyAfterTheEnd) {
    {
        Stress stress(operationsToDo());
        stress.run();
        stress.expectAllWell();
        std::printf("%d operations: %s\n", stress.done(), stress.counts().c_str());
    }
    test::ServiceRuntime probe;
    probe.expectAllSlotsFree();
}

} // namespace
