// The two halves of a subscription, in every order in which they can meet.

#include <zem/Core/AdapterInvokeOperation.h>
#include <zem/Core/WireSubscription.h>
#include <zem/JavaScript/Scope.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/ManualQueue.h>
#include <Support/Wait.h>
#include <algorithm>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using Lines = std::vector<std::string>;

/// A context, and functions of its runtime that write down that they are called.
class Runtime {
  public:
    Runtime() {
        test::setFunction(
            context, "heard", 2, [this](js::Scope& scope, js::Local, js::Arguments arguments) {
                transcript.add(scope.toText(arguments[0]) + "(" + scope.toText(arguments[1]) + ")");
                return scope.undefined();
            });
    }

    /// Writes down its name and how many arguments it gets.
    js::Function function(const std::string& name) {
        return context.perform([&](js::Scope& scope) {
            const auto value =
                scope.evaluate("(...values) => heard('" + name + "', values.length)", "runtime.js");
            return js::Function::from(scope, value.value()).value();
        });
    }

    /// Returns when what was handed to the engine before has run.
    void settle() {
        context.perform([](js::Scope&) {});
    }

    js::Context context = test::makeContext();
    test::Transcript transcript;
};

/// A subscription that is owned by a service, with the queue in the test's hand.
class Wire {
  public:
    explicit Wire(Runtime& runtime, std::size_t width = platform::OperationQueue::unbounded)
        : runtime(runtime)
        , queue(platform::OperationQueue::create(width, &threads))
        , owned(WireSubscription::create("list", "{}", std::nullopt, queue))
        , arriving(owned)
        , handle(owned->cleanupHandle()) {}

    void cleanUp() {
        note("clean-up");
        handle();
    }
    void install(const std::string& removal) {
        note("install " + removal);
        arriving->setCleanupFunc(this->removal(removal));
    }
    void arrive(const std::string& function, const std::string& removal) {
        note(function + " arrives");
        arriving->functionArrived(runtime.function(function), this->removal(removal));
    }
    void destroyOwner() {
        note("owner destroyed");
        owned.reset();
    }
    void runQueue() {
        note("queue runs");
        threads.runAll();
        runtime.settle();
    }

    std::function<void()> removal(const std::string& name) {
        return [this, name] {
            runtime.transcript.add(name);
        };
    }
    void note(const std::string& event) { runtime.transcript.add("- " + event); }

    Runtime& runtime;
    test::ManualQueue threads;
    const std::shared_ptr<platform::OperationQueue> queue;
    std::shared_ptr<WireSubscription> owned;
    /// The reference of the call that is under way to the runtime.
    std::shared_ptr<WireSubscription> arriving;
    std::function<void()> handle;
};

// --- Every order

enum class Event { cleanUp, arrive, runQueue, install, destroyOwner };

/// The clean-ups of services that have to run: the one in force when the caller ends the
/// subscription, and one that comes after the caller had ended it without a function.
class Removals {
  public:
    void happen(Event event) {
        switch (event) {
        case Event::cleanUp:
            endedWithout = endedWithout || !hasFunction;
            hasFunction = false;
            if (!inForce.empty()) {
                run.push_back(std::exchange(inForce, {}));
            }
            break;
        case Event::arrive:
            hasFunction = !endedWithout;
            set("removed from the service");
            break;
        case Event::install:
            set("removed from the batch");
            break;
        case Event::runQueue:
        case Event::destroyOwner:
            break;
        }
    }

    Lines run;

  private:
    void set(const std::string& removal) {
        if (endedWithout) {
            run.push_back(removal);
        } else {
            inForce = removal;
        }
    }

    bool hasFunction = false;
    bool endedWithout = false;
    std::string inForce;
};

std::string textOf(const Lines& lines) {
    return std::accumulate(
        lines.begin(), lines.end(), std::string(),
        [](std::string all, const std::string& line) { return std::move(all) + line + "\n"; });
}

void expectOrder(Runtime& runtime, const std::vector<Event>& order) {
    runtime.transcript.clear();
    Removals removals;
    {
        Wire wire(runtime);
        for (const Event event : order) {
            removals.happen(event);
            switch (event) {
            case Event::cleanUp:
                wire.cleanUp();
                break;
            case Event::arrive:
                wire.arrive("unsubscribe", "removed from the service");
                break;
            case Event::runQueue:
                wire.runQueue();
                break;
            case Event::install:
                wire.install("removed from the batch");
                break;
            case Event::destroyOwner:
                wire.destroyOwner();
                break;
            }
        }
        wire.arriving.reset();
        wire.handle = nullptr;
        wire.runQueue();
        EXPECT_EQ(wire.queue->operationCount(), 0u);
    }
    const Lines lines = runtime.transcript.lines();
    const bool ended = std::ranges::count(order, Event::cleanUp) != 0;
    const bool arrived = std::ranges::count(order, Event::arrive) != 0;
    EXPECT_EQ(std::ranges::count(lines, "unsubscribe(0)"), ended && arrived ? 1 : 0)
        << textOf(lines);
    Lines removed;
    std::ranges::copy_if(lines, std::back_inserter(removed),
                         [](const std::string& line) { return line.starts_with("removed"); });
    EXPECT_EQ(removed, removals.run) << textOf(lines);
}

/// All orders of the events; returns how many there were.
int expectAllOrders(std::vector<Event> events) {
    Runtime runtime;
    std::ranges::sort(events);
    int orders = 0;
    do {
        expectOrder(runtime, events);
        ++orders;
    } while (std::ranges::next_permutation(events).found && !testing::Test::HasFailure());
    return orders;
}

TEST(WireSubscription, IsEndedOnceInEveryOrderWithOneCleanUp) {
    using enum Event;
    EXPECT_EQ(expectAllOrders({cleanUp, arrive, runQueue, destroyOwner}), 24);
}

TEST(WireSubscription, IsEndedOnceInEveryOrderWithTwoCleanUps) {
    using enum Event;
    EXPECT_EQ(expectAllOrders({cleanUp, cleanUp, arrive, runQueue, destroyOwner}), 60);
}

TEST(WireSubscription, IsEndedOnceInEveryOrderWithACleanUpThatWasThereBefore) {
    using enum Event;
    EXPECT_EQ(expectAllOrders({cleanUp, cleanUp, arrive, runQueue, install, destroyOwner}), 360);
    EXPECT_EQ(expectAllOrders({cleanUp, arrive, runQueue, install, destroyOwner}), 120);
}

TEST(WireSubscription, IsEndedWithoutAFunctionInEveryOrder) {
    using enum Event;
    EXPECT_EQ(expectAllOrders({cleanUp, cleanUp, runQueue, install, destroyOwner}), 60);
}

TEST(WireSubscription, IsNotEndedByAnybodyElseInAnyOrder) {
    using enum Event;
    EXPECT_EQ(expectAllOrders({arrive, runQueue, install, destroyOwner}), 24);
}

// --- The orders that happen

TEST(WireSubscription, CallsTheFunctionWhenTheCallerEndsItAfterTheAnswer) {
    Runtime runtime;
    Wire wire(runtime);
    wire.arrive("unsubscribe", "removed");
    wire.cleanUp();
    // The removal does not wait for the queue.
    EXPECT_EQ(runtime.transcript.lines(),
              (Lines{"- unsubscribe arrives", "- clean-up", "removed"}));
    wire.runQueue();
    wire.cleanUp();
    wire.runQueue();
    EXPECT_EQ(runtime.transcript.lines(),
              (Lines{"- unsubscribe arrives", "- clean-up", "removed", "- queue runs",
                     "unsubscribe(0)", "- clean-up", "- queue runs"}));
    EXPECT_TRUE(wire.owned->wasCleanedUp());
}

TEST(WireSubscription, CallsNothingWhenTheCallerEndsItBeforeItsTurn) {
    Runtime runtime;
    Wire wire(runtime);
    EXPECT_FALSE(wire.owned->wasCleanedUp());
    wire.cleanUp();
    EXPECT_TRUE(wire.owned->wasCleanedUp());
    wire.runQueue();
    EXPECT_EQ(runtime.transcript.lines(), (Lines{"- clean-up", "- queue runs"}));
}

TEST(WireSubscription, CallsTheFunctionWhenItArrivesForACallerThatHasEndedItMeanwhile) {
    Runtime runtime;
    Wire wire(runtime);
    wire.cleanUp();
    wire.arrive("unsubscribe", "removed");
    EXPECT_EQ(runtime.transcript.lines(),
              (Lines{"- clean-up", "- unsubscribe arrives", "removed"}));
    wire.runQueue();
    EXPECT_EQ(runtime.transcript.lines(), (Lines{"- clean-up", "- unsubscribe arrives", "removed",
                                                 "- queue runs", "unsubscribe(0)"}));
}

TEST(WireSubscription, RemovesWhatTheRuntimeGaveNoFunctionFor) {
    Runtime runtime;
    Wire wire(runtime);
    wire.owned->functionArrived({}, wire.removal("removed"));
    wire.cleanUp();
    wire.runQueue();
    EXPECT_EQ(runtime.transcript.lines(), (Lines{"- clean-up", "removed", "- queue runs"}));
}

TEST(WireSubscription, HasAFunctionCalledThatAnotherTakesThePlaceOf) {
    Runtime runtime;
    Wire wire(runtime);
    wire.arrive("first", "removed from the first");
    wire.arrive("second", "removed from the second");
    wire.runQueue();
    EXPECT_EQ(runtime.transcript.lines(),
              (Lines{"- first arrives", "- second arrives", "- queue runs", "first(0)"}));
    // The runtime's function is called once, however many there were.
    wire.cleanUp();
    wire.runQueue();
    EXPECT_EQ(runtime.transcript.lines(),
              (Lines{"- first arrives", "- second arrives", "- queue runs", "first(0)",
                     "- clean-up", "removed from the second", "- queue runs"}));
}

TEST(WireSubscription, OvertakesEverythingThatWaitsWithAPriorityOfItsOwn) {
    Runtime runtime;
    Wire wire(runtime, 1);
    wire.arrive("unsubscribe", "removed");
    runtime.transcript.clear();
    for (const auto& [name, priority] : {std::pair("very high", platform::QueuePriority::veryHigh),
                                         std::pair("high", platform::QueuePriority::high),
                                         std::pair("normal", platform::QueuePriority::normal),
                                         std::pair("very low", platform::QueuePriority::veryLow)}) {
        wire.queue->addOperation(
            [&runtime, name] {
                runtime.context.async(
                    [&runtime, name](js::Scope&) { runtime.transcript.add(name); });
            },
            priority);
    }
    wire.cleanUp();
    wire.runQueue();
    EXPECT_EQ(runtime.transcript.lines(),
              (Lines{"- clean-up", "removed", "- queue runs", "very high", "unsubscribe(0)", "high",
                     "normal", "very low"}));
}

TEST(WireSubscription, ReportsWhatTheFunctionThrowsAndGoesOn) {
    Runtime runtime;
    runtime.context.setUncaughtHandler([&](js::Scope&, const js::Exception& exception) {
        runtime.transcript.add(exception.text());
    });
    Wire wire(runtime);
    const js::Function throwing = runtime.context.perform([](js::Scope& scope) {
        const auto value = scope.evaluate("() => { throw new Error('no'); }", "runtime.js");
        return js::Function::from(scope, value.value()).value();
    });
    wire.owned->functionArrived(throwing, wire.removal("removed"));
    wire.cleanUp();
    wire.cleanUp();
    wire.runQueue();
    EXPECT_EQ(runtime.transcript.lines(),
              (Lines{"- clean-up", "removed", "- clean-up", "- queue runs", "Error: no"}));
    EXPECT_EQ(wire.queue->operationCount(), 0u);
}

TEST(WireSubscription, MayBeEndedAgainByItsOwnRemovalAndByTheRuntimesFunction) {
    Runtime runtime;
    Wire wire(runtime);
    test::setFunction(runtime.context, "endAgain", 0,
                      [&](js::Scope& scope, js::Local, js::Arguments) {
                          wire.cleanUp();
                          return scope.undefined();
                      });
    const js::Function function = runtime.context.perform([](js::Scope& scope) {
        const auto value = scope.evaluate("() => { heard('unsubscribe', 0); endAgain(); }", "r.js");
        return js::Function::from(scope, value.value()).value();
    });
    wire.owned->functionArrived(function, [&] {
        runtime.transcript.add("removed");
        wire.cleanUp();
    });
    wire.cleanUp();
    wire.runQueue();
    EXPECT_EQ(runtime.transcript.lines(), (Lines{"- clean-up", "removed", "- clean-up",
                                                 "- queue runs", "unsubscribe(0)", "- clean-up"}));
}

TEST(WireSubscription, LetsGoOfTheFunctionOnceItIsCalled) {
    Runtime runtime;
    Wire wire(runtime);
    const std::size_t before = runtime.context.handleCount();
    wire.arrive("unsubscribe", "removed");
    EXPECT_EQ(runtime.context.handleCount(), before + 1);
    wire.cleanUp();
    wire.runQueue();
    test::waitUntil("the end of the handle", [&] {
        runtime.settle();
        return runtime.context.handleCount() == before;
    });
    EXPECT_NE(wire.owned, nullptr);
}

} // namespace
