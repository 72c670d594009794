// Changes of the queue on their way to listeners.

#include <zem/Core/DraftManager.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Core/DraftRuntime.h>
#include <Support/LogCapture.h>
#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using test::DraftResults;
using test::DraftRuntime;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;
using Lines = std::vector<std::string>;

class DraftManagerListener : public testing::Test {
  protected:
    /// Returns when every earlier report has been delivered.
    void settle() {
        DraftResults marker;
        manager->getDraftQueue(marker.callback());
        runtime.run("promises.at(-1).resolve(queue())");
        marker.wait(1);
    }
    void report(const std::string& arguments) { runtime.run("listener(" + arguments + ")"); }

    DraftRuntime runtime;
    DraftResults heard;
    std::shared_ptr<DraftManager> manager = runtime.manager();
};

TEST_F(DraftManagerListener, HearsOfEveryKindOfChange) {
    const auto handle = manager->registerOnChangedListener(heard.listener());
    for (const char* kind : {"added", "uploading", "updated", "deleted", "completed", "failed",
                             "started", "stopped"}) {
        report("queue('d1', 'd2'), '" + std::string(kind) + "', item('d2')");
    }
    Lines expected;
    for (const auto& [kind, text] : draftQueueItemOperationTypeTexts) {
        expected.push_back("event: started [d1 d2] " + std::string(text) + " d2");
    }
    EXPECT_EQ(heard.wait(8), expected);
}

TEST_F(DraftManagerListener, HearsOfEachEventOnceHoweverManyListen) {
    std::vector<std::shared_ptr<DraftManagerUnsubscribe>> handles;
    for (const char* name : {"a", "b", "c"}) {
        handles.push_back(manager->registerOnChangedListener(heard.listener(name)));
    }
    report("queue('d1'), 'added', item('d1')");
    heard.wait(3);
    settle();
    EXPECT_THAT(heard.lines(),
                UnorderedElementsAre("a: started [d1] added d1", "b: started [d1] added d1",
                                     "c: started [d1] added d1"));
    EXPECT_EQ(manager->batching()->subscriptions.size(), 3u);
}

TEST_F(DraftManagerListener, ReadsAnEventOnceHoweverManyListen) {
    std::vector<std::shared_ptr<DraftManagerUnsubscribe>> handles;
    for (int count = 0; count < 5; ++count) {
        handles.push_back(manager->registerOnChangedListener(heard.listener()));
    }
    runtime.run("var reads = 0; var counted = queue();"
                "Object.defineProperty(counted, 'queueState',"
                "    { enumerable: true, get() { reads += 1; return 'started'; } });"
                "listener(counted, 'started')");
    heard.wait(5);
    const auto reads = runtime.context.perform([](js::Scope& scope) {
        return scope.toNumber(scope.evaluate("reads", "test.js").value());
    });
    runtime.run("reads = 0");
    for (const auto& handle : handles) {
        handle->unsubscribe();
    }
    const auto single = manager->registerOnChangedListener(heard.listener());
    runtime.run("listener(counted, 'started')");
    heard.wait(6);
    EXPECT_EQ(reads, runtime.context.perform([](js::Scope& scope) {
        return scope.toNumber(scope.evaluate("reads", "test.js").value());
    }));
}

TEST_F(DraftManagerListener, CostsNoReadingWhileThereIsNone) {
    runtime.run("var reads = 0; var counted = queue();"
                "Object.defineProperty(counted, 'queueState',"
                "    { enumerable: true, get() { reads += 1; return 'started'; } });"
                "listener(counted, 'started')");
    test::expectEval(runtime.context, "reads", "number", "0");
}

TEST_F(DraftManagerListener, ReadsOfAnItemWhatItKnowsAndNothingElse) {
    const auto handle = manager->registerOnChangedListener(heard.listener());
    runtime.run("var asked = new Set();"
                "var watched = queue();"
                "watched.items = [new Proxy(item('d1', { record: { wide: 1 } }),"
                "    { get(target, name) { asked.add(name); return target[name]; },"
                "      ownKeys(target) { asked.add('all'); return Reflect.ownKeys(target); } })];"
                "on.getQueue = () => Promise.resolve(watched);"
                "listener(watched, 'started');");
    manager->getDraftQueue(heard.callback());
    EXPECT_EQ(heard.wait(2), (Lines{"event: started [d1] started -", "started [d1]"}));
    test::expectEval(runtime.context, "[...asked]", "array",
                     R"(["id","targetId","state","operationType","timestamp","metadata","error"])");
}

TEST_F(DraftManagerListener, HearsOfAnItemThatCannotBeReadAsOfNone) {
    const auto first = manager->registerOnChangedListener(heard.listener("a"));
    const auto second = manager->registerOnChangedListener(heard.listener("b"));
    int events = 0;
    for (const char* item : {"undefined", "null", "7", "{}", "item(7)", "item('d1', {state: 'x'})",
                             "queue()", "() => {}"}) {
        report("queue('d1'), 'updated', " + std::string(item));
        events += 2;
        heard.wait(events);
        settle();
        const Lines all = heard.lines();
        EXPECT_THAT(Lines(all.end() - 2, all.end()),
                    UnorderedElementsAre("a: started [d1] updated -", "b: started [d1] updated -"))
            << item;
    }
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_F(DraftManagerListener, HearsNothingOfAStateOrAKindThatCannotBeRead) {
    const auto handle = manager->registerOnChangedListener(heard.listener());
    for (const char* arguments :
         {"", "undefined", "queue()", "queue(), undefined", "queue(), 'ItemAdded'",
          "queue(), 'Added', item('d1')", "queue(), 7, item('d1')", "null, 'added', item('d1')",
          "{ queueState: 'running', items: [] }, 'added', item('d1')",
          "{ queueState: 'started' }, 'added', item('d1')",
          "{ queueState: 'started', items: [item('d1'), {}] }, 'added', item('d1')"}) {
        report(arguments);
    }
    settle();
    EXPECT_EQ(heard.lines(), Lines{});
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_F(DraftManagerListener, HearsOfEventsWithTwoOrWithFiveArguments) {
    const auto handle = manager->registerOnChangedListener(heard.listener());
    report("queue(), 'stopped'");
    report("queue('d1'), 'added', item('d1'), item('d2'), 7");
    EXPECT_EQ(heard.wait(2),
              (Lines{"event: started [] stopped -", "event: started [d1] added d1"}));
}

TEST_F(DraftManagerListener, HearsNothingMoreOnceItHasUnsubscribed) {
    const auto handle = manager->registerOnChangedListener(heard.listener());
    report("queue(), 'started'");
    heard.wait(1);
    handle->unsubscribe();
    EXPECT_EQ(manager->batching()->subscriptions.size(), 0u);
    handle->unsubscribe();
    report("queue(), 'stopped'");
    settle();
    EXPECT_EQ(heard.lines(), Lines{"event: started [] started -"});
    EXPECT_EQ(runtime.calls.lines(), (Lines{"register(function)", "getQueue()"}));
}

TEST_F(DraftManagerListener, GoesOnHearingWhenItsHandleIsDropped) {
    manager->registerOnChangedListener(heard.listener());
    report("queue(), 'started'");
    EXPECT_EQ(heard.wait(1), Lines{"event: started [] started -"});
}

TEST_F(DraftManagerListener, IsKeptWithTheDateAndTheHandleThatItWasRegisteredWith) {
    const auto handle = manager->registerOnChangedListener(heard.listener());
    const auto& [identifier, subscription] = *manager->batching()->subscriptions.begin();
    EXPECT_THAT(identifier,
                testing::MatchesRegex(
                    "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
    EXPECT_EQ(subscription->unsubscribable, handle);
    EXPECT_FALSE(subscription->hasEmitted);
    EXPECT_TRUE(subscription->adapterOperation.expired());
}

TEST_F(DraftManagerListener, IsDatedByTheRunLoopThatTheManagerWasMadeOn) {
    const auto runLoop = platform::ManualRunLoop::create();
    const auto timed = runtime.manager();
    const auto dates = [&] {
        std::vector<platform::RunLoop::TimePoint> all;
        for (const auto& [identifier, subscription] : timed->batching()->subscriptions) {
            all.push_back(subscription->preparedDate);
        }
        std::ranges::sort(all);
        return all;
    };
    const auto start = runLoop->now();
    timed->registerOnChangedListener({});
    runLoop->advance(platform::Seconds(60));
    std::thread other([&] { timed->registerOnChangedListener({}); });
    other.join();
    EXPECT_EQ(dates(), (std::vector{start, start + std::chrono::minutes(1)}));
}

TEST_F(DraftManagerListener, MayUnsubscribeItselfAndOthersFromAnEventThatStillReachesThem) {
    std::vector<std::shared_ptr<DraftManagerUnsubscribe>> handles;
    for (const char* name : {"a", "b", "c"}) {
        handles.push_back(manager->registerOnChangedListener([&, name](const auto&...) {
            for (const auto& handle : handles) {
                handle->unsubscribe();
            }
            heard.add(name);
        }));
    }
    report("queue(), 'started'");
    heard.wait(3);
    report("queue(), 'stopped'");
    settle();
    EXPECT_THAT(heard.lines(), UnorderedElementsAre("a", "b", "c"));
}

TEST_F(DraftManagerListener, HearsOfWhatIsReportedWhileItListensWhateverHappensUntilItIsTold) {
    test::Event release("the end of the completion");
    manager->getDraftQueue([&](const auto&) { release.wait(); });
    runtime.run("promises[0].resolve(queue())");
    const auto ended = manager->registerOnChangedListener(heard.listener("ended"));
    report("queue(), 'started'");
    ended->unsubscribe();
    const auto late = manager->registerOnChangedListener(heard.listener("late"));
    release.signal();
    settle();
    EXPECT_EQ(heard.lines(), Lines{"ended: started [] started -"});
}

TEST_F(DraftManagerListener, HearsNothingOfAnEventThatWasBeingReadWhenItWasEnded) {
    const auto first = manager->registerOnChangedListener(heard.listener("first"));
    std::shared_ptr<DraftManagerUnsubscribe> second;
    test::setFunction(runtime.context, "swap", 0, [&](js::Scope& scope, js::Local, js::Arguments) {
        if (second == nullptr) {
            first->unsubscribe();
            second = manager->registerOnChangedListener(heard.listener("second"));
        }
        return scope.undefined();
    });
    report("{ get queueState() { swap(); return 'started'; }, items: [] }, 'started'");
    settle();
    EXPECT_EQ(heard.lines(), Lines{"second: started [] started -"});
}

TEST_F(DraftManagerListener, MayCallTheManagerWhenItIsLetGoOf) {
    auto token = std::shared_ptr<void>(nullptr, [&](void*) { manager->startQueue(); });
    const auto handle =
        manager->registerOnChangedListener([token = std::move(token)](const auto&...) {});
    handle->unsubscribe();
    EXPECT_EQ(runtime.calls.lines().back(), "startQueue()");
}

TEST_F(DraftManagerListener, MayRegisterAnotherThatHearsOfLaterEvents) {
    std::shared_ptr<DraftManagerUnsubscribe> second;
    const auto first =
        manager->registerOnChangedListener([&](const DraftManagerState&, auto kind, const auto&) {
            if (kind == DraftQueueItemOperationType::QueueStarted) {
                second = manager->registerOnChangedListener(heard.listener("second"));
            }
            heard.add("first: " + std::string(tessel::rawText(kind)));
        });
    report("queue(), 'started'");
    heard.wait(1);
    report("queue(), 'stopped'");
    heard.wait(3);
    EXPECT_THAT(heard.lines(), UnorderedElementsAre("first: started", "first: stopped",
                                                    "second: started [] stopped -"));
}

TEST_F(DraftManagerListener, KeepsOthersHearingWhenItThrows) {
    test::LogCapture log;
    std::vector<std::shared_ptr<DraftManagerUnsubscribe>> handles;
    for (int count = 0; count < 3; ++count) {
        handles.push_back(manager->registerOnChangedListener([&](const auto&...) {
            heard.add("called");
            throw std::runtime_error("no");
        }));
    }
    report("queue(), 'started'");
    heard.wait(3);
    settle();
    EXPECT_EQ(log.lines(), Lines(3, "a draft queue listener threw: <private>"));
}

TEST_F(DraftManagerListener, MayDestroyTheManager) {
    const auto handle = manager->registerOnChangedListener([&](const auto&...) {
        manager.reset();
        heard.add("called");
    });
    report("queue(), 'started'");
    heard.wait(1);
    report("queue(), 'stopped'");
    runtime.runMainQueue();
    EXPECT_EQ(runtime.calls.lines().back(), "unregister()");
    EXPECT_EQ(heard.lines(), Lines{"called"});
}

TEST_F(DraftManagerListener, HearsOfAnEventThoughAnotherDestroysTheManager) {
    for (const char* name : {"a", "b", "c"}) {
        manager->registerOnChangedListener([&, name](const auto&...) {
            manager.reset();
            heard.add(name);
        });
    }
    report("queue(), 'started'");
    EXPECT_THAT(heard.wait(3), UnorderedElementsAre("a", "b", "c"));
}

TEST_F(DraftManagerListener, HearsWithEachEventTheStateOfItsMoment) {
    const auto handle = manager->registerOnChangedListener(heard.listener());
    runtime.run("const live = queue('d1'); listener(live, 'added', live.items[0]);"
                "live.items.push(item('d2')); listener(live, 'added', live.items[1]);"
                "live.items.length = 0; live.queueState = 'waiting'; listener(live, 'deleted');");
    EXPECT_EQ(heard.wait(3),
              (Lines{"event: started [d1] added d1", "event: started [d1 d2] added d2",
                     "event: waiting [] deleted -"}));
}

} // namespace
