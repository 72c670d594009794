#include <zem/Core/DataService.h>
#include <zem/Platform/Log.h>

#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <Support/LogCapture.h>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace zem;
using platform::Seconds;
using test::Results;
using test::ServiceRuntime;
using test::waitForSubscriptions;
using Lines = std::vector<std::string>;

constexpr const char* timeout = "executeAdapter error - .executeAdapterTimeout";

/// A service whose looks are waited for.
class Watched {
  public:
    explicit Watched(double watchdogTimeout = DataService::defaultWatchdogTimeout)
        : service(runtime.service({}, watchdogTimeout)) {}
    ~Watched() {
        for (const Unsubscribe& unsubscribe : unsubscribes) {
            unsubscribe();
        }
    }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

    void subscribe(const std::string& name) {
        unsubscribes.push_back(service->subscribeToAdapter(name, "{}", results.callback(name)));
        waitForSubscriptions(*service, unsubscribes.size());
    }

    /// Lets time pass, a second or more, and what the service does on the way: another one, made a
    /// second before the end, looks for the first time then, after all of that.
    void pass(Seconds time) {
        const Seconds second(1);
        runtime.clock->advance(time - second);
        const auto witness = runtime.service({}, second.count());
        Results witnessed;
        const Unsubscribe unsubscribe =
            witness->subscribeToAdapter("witness", "{}", witnessed.callback());
        waitForSubscriptions(*witness, 1);
        runtime.clock->advance(second);
        EXPECT_EQ(witnessed.wait(1), Lines{timeout});
        unsubscribe();
    }

    ServiceRuntime runtime;
    Results results;
    std::shared_ptr<DataService> service;

  private:
    std::vector<Unsubscribe> unsubscribes;
};

TEST(DataServiceWatchdog, FailsASilentSubscriptionAfter180SecondsByDefault) {
    EXPECT_EQ(DataService::defaultWatchdogTimeout, 180.0);
    Watched watched;
    watched.subscribe("silent");
    watched.pass(Seconds(179));
    EXPECT_EQ(watched.results.lines(), Lines{});
    watched.runtime.clock->advance(Seconds(1));
    EXPECT_EQ(watched.results.wait(1), Lines{std::string("silent: ") + timeout});
}

TEST(DataServiceWatchdog, LooksEveryQuarterOfTheTimeout) {
    Watched watched;
    watched.pass(Seconds(1));
    watched.subscribe("silent");
    // 179 s old at the look at 180 s; the next one is at 225.
    watched.pass(Seconds(179));
    watched.pass(Seconds(44));
    EXPECT_EQ(watched.results.lines(), Lines{});
    watched.runtime.clock->advance(Seconds(1));
    EXPECT_EQ(watched.results.wait(1), Lines{std::string("silent: ") + timeout});
}

TEST(DataServiceWatchdog, LooksNotMoreOftenThanEverySecond) {
    // A quarter is 0.975 s: the 20th look would be at 19.5 s and not at 20.
    Watched watched(3.9);
    watched.pass(Seconds(15.3));
    watched.subscribe("silent");
    watched.pass(Seconds(3.4));
    watched.pass(Seconds(1.05));
    EXPECT_EQ(watched.results.lines(), Lines{});
    watched.runtime.clock->advance(Seconds(0.25));
    EXPECT_EQ(watched.results.wait(1), Lines{std::string("silent: ") + timeout});
}

TEST(DataServiceWatchdog, LooksEverySecondForATimeoutOfTwo) {
    Watched watched(2.0);
    watched.pass(Seconds(1));
    watched.subscribe("silent");
    watched.pass(Seconds(1.5));
    EXPECT_EQ(watched.results.lines(), Lines{});
    watched.runtime.clock->advance(Seconds(0.5));
    EXPECT_EQ(watched.results.wait(1), Lines{std::string("silent: ") + timeout});
}

TEST(DataServiceWatchdog, FailsAtItsFirstLookForATimeoutOfNothingOrLess) {
    for (const double none : {0.0, -1.0, -std::numeric_limits<double>::infinity()}) {
        Watched watched(none);
        watched.subscribe("silent");
        watched.runtime.clock->advance(Seconds(0.9));
        EXPECT_EQ(watched.results.lines(), Lines{});
        watched.runtime.clock->advance(Seconds(0.1));
        EXPECT_EQ(watched.results.wait(1), Lines{std::string("silent: ") + timeout});
    }
}

TEST(DataServiceWatchdog, NeverFailsAnythingForATimeoutWithoutEnd) {
    Watched watched(std::numeric_limits<double>::infinity());
    watched.subscribe("silent");
    // Thirty years.
    watched.pass(Seconds(1e9 - 1));
    EXPECT_EQ(watched.results.lines(), Lines{});
    watched.runtime.emit("silent", "{ data: {} }");
    EXPECT_EQ(watched.results.wait(1), Lines{"silent: {}"});
}

TEST(DataServiceWatchdog, NeverFailsWhatHasEmitted) {
    Watched watched;
    watched.subscribe("emitted");
    watched.runtime.emit("emitted", "{ data: {} }");
    EXPECT_EQ(watched.results.wait(1), Lines{"emitted: {}"});
    watched.pass(Seconds(500));
    EXPECT_EQ(watched.results.lines(), Lines{"emitted: {}"});
}

TEST(DataServiceWatchdog, FailsOnceAndDeliversWhatComesLate) {
    Watched watched;
    watched.subscribe("late");
    watched.pass(Seconds(180));
    EXPECT_EQ(watched.results.wait(1), Lines{std::string("late: ") + timeout});
    watched.pass(Seconds(500));
    EXPECT_EQ(watched.results.lines(), Lines{std::string("late: ") + timeout});
    watched.runtime.emit("late", "{ data: { late: true } }");
    EXPECT_EQ(watched.results.wait(2),
              (Lines{std::string("late: ") + timeout, R"(late: {"late":true})"}));
}

TEST(DataServiceWatchdog, GivesTheSlotsOfTheSilentBack) {
    Watched watched;
    for (int index = 0; index < 5; ++index) {
        watched.subscribe("silent");
    }
    watched.runtime.clock->advance(Seconds(180));
    watched.results.wait(5);
    watched.runtime.expectAllSlotsFree();
}

TEST(DataServiceWatchdog, WritesOneLineForEach) {
    const test::LogCapture log;
    Watched watched;
    const Unsubscribe unsubscribe = watched.service->subscribeToAdapter(
        "getList", R"({"object":"Account"})", watched.results.callback());
    waitForSubscriptions(*watched.service, 1);
    watched.runtime.clock->advance(Seconds(180));
    watched.results.wait(1);
    EXPECT_EQ(
        log.lines(),
        Lines{R"(ZEM failed to emit in a timely manner for getList config: {"object":"Account"})"});
    unsubscribe();
}

TEST(DataServiceWatchdog, CountsFromTheFirstRequestAcrossAHandOver) {
    ServiceRuntime runtime;
    Results results;
    const auto first = runtime.service();
    const Unsubscribe unsubscribe = first->subscribeToAdapter("list", "{}", results.callback());
    waitForSubscriptions(*first, 1);
    runtime.clock->advance(Seconds(170));
    DataServiceState state = first->takeState();
    ASSERT_EQ(state.subscriptions.size(), 1u);
    // Its first look is 45 s later, at 215 s.
    const auto second = runtime.service(std::move(state));
    runtime.clock->advance(Seconds(44));
    EXPECT_EQ(results.lines(), Lines{});
    runtime.clock->advance(Seconds(1));
    EXPECT_EQ(results.wait(1), Lines{timeout});
    unsubscribe();
}

TEST(DataServiceWatchdog, LooksNoMoreWhenTheServiceIsGone) {
    ServiceRuntime runtime;
    Results results;
    auto service = runtime.service();
    const Unsubscribe unsubscribe = service->subscribeToAdapter("list", "{}", results.callback());
    waitForSubscriptions(*service, 1);
    test::destroy(service);
    runtime.clock->advance(Seconds(1000));
    unsubscribe();
    EXPECT_EQ(runtime.calls.wait(2)[1], "unsubscribe(list)");
    EXPECT_EQ(results.lines(), Lines{});
}

} // namespace
