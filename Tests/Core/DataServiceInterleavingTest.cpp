// The events of a subscription, in every order in which they can happen.

#include <zem/Core/DataService.h>

#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using test::HeldQueue;
using test::Results;
using test::ServiceRuntime;
using Lines = std::vector<std::string>;

/// The runtime is asked when the operation runs, and has returned when its function arrives: events
/// between the two happen while the runtime is being asked.
enum class Event { operationRuns, functionArrives, unsubscribe, emission, destroyOwner };

const char* nameOf(Event event) {
    switch (event) {
    case Event::operationRuns:
        return "the operation runs";
    case Event::functionArrives:
        return "the function arrives";
    case Event::unsubscribe:
        return "unsubscribe";
    case Event::emission:
        return "emission";
    case Event::destroyOwner:
        return "the owner is destroyed";
    }
    return "";
}

/// Whether a result is delivered as soon as it comes, or not before everything has happened.
enum class Delivery { atOnce, last };

/// Keeps the callback queue of a service from going on.
class Gate {
  public:
    explicit Gate(ServiceRuntime& runtime, DataService& service) {
        test::evaluate(runtime.context, "on.invokeAdapter = (id, config, answer) => answer({})");
        service.invokeAdapter("gate", "{}", [this](const DataServiceResult&) {
            entered.signal();
            opened.wait();
        });
        entered.wait();
    }
    void open() { opened.signal(); }

  private:
    test::Event entered{"the closed gate"};
    test::Event opened{"the open gate"};
};

class Order {
  public:
    Order(ServiceRuntime& runtime, Delivery delivery, std::vector<Event> events)
        : runtime(runtime)
        , delivery(delivery)
        , events(std::move(events))
        , service(runtime.service()) {
        if (delivery == Delivery::last) {
            gate.emplace(runtime, *service);
        }
        callsBefore = runtime.calls.lines().size();
        test::setFunction(runtime.context, "askedForIt", 0,
                          [this](js::Scope& scope, js::Local, js::Arguments) {
                              meanwhile();
                              return scope.undefined();
                          });
        test::evaluate(runtime.context, "on.subscribeToAdapter = () => askedForIt();");
        held.emplace();
        auto token = std::make_shared<int>();
        life = token;
        end = service->subscribeToAdapter(
            "list", "{}",
            [token = std::move(token), heard = results.callback()](DataServiceResult result) {
                heard(std::move(result));
            });
    }

    void run() {
        while (next != events.size()) {
            happen(events[next++]);
        }
        expectEnd();
    }

  private:
    void happen(Event event) {
        switch (event) {
        case Event::operationRuns:
            expectsCall = isAlive && !isEnded;
            held->release();
            if (expectsCall) {
                arrived.wait();
            }
            settle();
            break;
        case Event::functionArrives:
            break;
        case Event::unsubscribe:
            isEnded = true;
            end();
            break;
        case Event::emission:
            emit();
            break;
        case Event::destroyOwner:
            isAlive = false;
            service.reset();
            break;
        }
    }

    /// While the runtime is being asked, on the thread that asks it.
    void meanwhile() {
        while (events[next] != Event::functionArrives) {
            happen(events[next++]);
        }
        arrived.signal();
    }

    void emit() {
        if (!expectsCall) {
            return;
        }
        const bool isHeard = isAlive && !isEnded;
        runtime.emit("list", "{ data: { emitted: true } }");
        if (isHeard && delivery == Delivery::atOnce) {
            results.wait(1);
        }
        expectsResult = expectsResult || isHeard;
    }

    /// The subscription is in its service, or nowhere.
    void settle() {
        if (isAlive && !isEnded) {
            test::waitForSubscriptions(*service, 1);
        } else if (delivery == Delivery::atOnce) {
            test::waitUntil("the end of the subscription", [&] { return life.expired(); });
        }
    }

    void expectEnd() {
        if (gate) {
            // One that waits for delivery is not delivered to a caller who has ended it meanwhile.
            expectsResult = expectsResult && !isEnded;
            gate->open();
        }
        Lines calls;
        if (expectsCall) {
            calls.emplace_back(R"js(subscribeToAdapter("list", "{}", callback, undefined))js");
            if (isEnded) {
                calls.emplace_back("unsubscribe(list)");
            }
        }
        const auto count = callsBefore + calls.size();
        runtime.calls.wait(static_cast<int>(count));
        if (isAlive) {
            EXPECT_EQ(service->subscriptionCount(), isEnded ? 0u : 1u);
            service.reset();
        }
        test::waitUntil("the end of the subscription", [&] { return life.expired(); });
        runtime.expectAllSlotsFree();
        Lines heard = runtime.calls.lines();
        heard.erase(heard.begin(), heard.begin() + static_cast<std::ptrdiff_t>(callsBefore));
        std::erase(heard, R"js(invokeAdapter("probe", "{}", callback, undefined))js");
        EXPECT_EQ(heard, calls);
        EXPECT_EQ(results.lines(), expectsResult ? Lines{R"({"emitted":true})"} : Lines{});
        EXPECT_EQ(runtime.uncaught.lines(), Lines{});
    }

    ServiceRuntime& runtime;
    const Delivery delivery;
    const std::vector<Event> events;
    std::size_t next = 0;
    Results results;
    std::shared_ptr<DataService> service;
    std::optional<Gate> gate;
    std::optional<HeldQueue> held;
    test::Event arrived{"the runtime's function"};
    std::weak_ptr<int> life;
    Unsubscribe end;
    std::size_t callsBefore = 0;
    bool isAlive = true;
    bool isEnded = false;
    bool expectsCall = false;
    bool expectsResult = false;
};

bool isPossible(const std::vector<Event>& events) {
    const auto runs = std::ranges::find(events, Event::operationRuns);
    return std::ranges::find(events.begin(), runs, Event::functionArrives) == runs &&
           std::ranges::find(events.begin(), runs, Event::emission) == runs;
}

std::string textOf(const std::vector<Event>& events) {
    std::string text;
    for (const Event event : events) {
        text += (text.empty() ? "" : ", ") + std::string(nameOf(event));
    }
    return text;
}

class DataServiceInterleaving : public testing::TestWithParam<Delivery> {
  protected:
    /// All orders that are possible; returns how many there were.
    int expectAllOrders(std::vector<Event> events) {
        ServiceRuntime runtime;
        std::ranges::sort(events);
        int orders = 0;
        do {
            if (isPossible(events)) {
                SCOPED_TRACE(textOf(events));
                Order(runtime, GetParam(), events).run();
                ++orders;
            }
        } while (std::ranges::next_permutation(events).found && !HasFailure());
        return orders;
    }
};

TEST_P(DataServiceInterleaving, EndsTheRuntimesSubscriptionOnceInEveryOrder) {
    using enum Event;
    EXPECT_EQ(
        expectAllOrders({operationRuns, functionArrives, unsubscribe, emission, destroyOwner}), 40);
}

TEST_P(DataServiceInterleaving, EndsTheRuntimesSubscriptionOnceWhenTheCallerEndsItTwice) {
    using enum Event;
    EXPECT_EQ(expectAllOrders({operationRuns, functionArrives, unsubscribe, unsubscribe, emission,
                               destroyOwner}),
              120);
}

TEST_P(DataServiceInterleaving, EndsNothingThatTheCallerKeeps) {
    using enum Event;
    EXPECT_EQ(expectAllOrders({operationRuns, functionArrives, emission, destroyOwner}), 8);
    EXPECT_EQ(expectAllOrders({operationRuns, functionArrives, emission}), 2);
    EXPECT_EQ(expectAllOrders({operationRuns, functionArrives, destroyOwner}), 3);
}

TEST_P(DataServiceInterleaving, KeepsNothingThatTheCallerEnds) {
    using enum Event;
    EXPECT_EQ(expectAllOrders({operationRuns, functionArrives, emission, unsubscribe}), 8);
    EXPECT_EQ(expectAllOrders({operationRuns, functionArrives, unsubscribe, unsubscribe}), 6);
}

INSTANTIATE_TEST_SUITE_P(, DataServiceInterleaving,
                         testing::Values(Delivery::atOnce, Delivery::last),
                         [](const testing::TestParamInfo<Delivery>& delivery) {
                             return delivery.param == Delivery::atOnce ? "DeliveredAtOnce"
                                                                       : "DeliveredLast";
                         });

} // namespace
