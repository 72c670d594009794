// Calls recorded before there was a runtime, and how the draft manager takes them over.

#include <zem/Core/BatchingDraftManager.h>
#include <zem/Core/DraftManager.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/RunLoop.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Core/DraftRuntime.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using test::DraftResults;
using test::DraftRuntime;
using Lines = std::vector<std::string>;

class DraftManagerHandOver : public testing::Test {
  protected:
    std::shared_ptr<DraftManager> handOver() { return runtime.manager(*batching->batching()); }

    /// The runtime's transcript without the registration of the listener.
    Lines calls() const {
        Lines all = runtime.calls.lines();
        EXPECT_EQ(all.at(0), "register(function)");
        return {all.begin() + 1, all.end()};
    }

    DraftRuntime runtime;
    DraftResults results;
    std::shared_ptr<BatchingDraftManager> batching = BatchingDraftManager::create();
};

TEST_F(DraftManagerHandOver, AsksNothingForAnEmptyBatch) {
    const auto manager = handOver();
    EXPECT_EQ(calls(), Lines{});
    EXPECT_EQ(runtime.handOverQueue->waiting(), 0u);
}

TEST_F(DraftManagerHandOver, ReplaysKindByKindWhateverTheOrderOfTheRequests) {
    const auto done = [](const auto&) {
    };
    batching->setMetadata("m2", {{"k", "2"}}, done);
    batching->setMetadata("m1", {{"k", "1"}}, done);
    batching->mergeAction("s1", "t1", done);
    batching->replaceItem("r1", "w1", done);
    batching->mergeAction("s2", "t2", done);
    batching->replaceItem("r2", "w2", done);
    batching->removeItem("d2", done);
    batching->removeItem("d1", done);
    batching->getDraftQueue(done);
    batching->getDraftQueue(done);
    batching->registerOnChangedListener(results.listener());
    batching->addExternalAction("e2", {{"k", "v"}}, done);
    batching->addExternalAction("e1", {}, done);
    batching->setExternalActionExecutor({}, done);
    batching->startQueue();
    // Heard of by the one listener that stands where listeners are adopted.
    runtime.run("on.addCustomAction = on.getQueue = () => {"
                "    listener(queue(), 'started'); return new Promise(() => {}); }");
    const auto manager = handOver();
    EXPECT_EQ(calls(),
              (Lines{"startQueue()", R"(setCustomActionExecutor("EXTERNAL_ACTION", function))",
                     R"(addCustomAction("EXTERNAL_ACTION", "e2", "", {"k":"v"}))",
                     R"(addCustomAction("EXTERNAL_ACTION", "e1", "", {}))", "getQueue()",
                     "getQueue()", R"(removeDraftAction("d1"))", R"(removeDraftAction("d2"))",
                     R"(replaceAction("r1", "w1"))", R"(replaceAction("r2", "w2"))",
                     R"(mergeActions("t1", "s1"))", R"(mergeActions("t2", "s2"))",
                     R"(setMetadata("m1", {"k":"1"}))", R"(setMetadata("m2", {"k":"2"}))"}));
    EXPECT_EQ(results.wait(2), Lines(2, "event: started [] started -"));
    EXPECT_EQ(manager->batching()->started, true);
}

TEST_F(DraftManagerHandOver, ReplaysRequestsOfTheQueueInTheirOrder) {
    batching->getDraftQueue(results.callback("first"));
    batching->getDraftQueue(results.callback("second"));
    const auto manager = handOver();
    runtime.resolve(0, "queue('d1')");
    runtime.resolve(1, "queue('d2')");
    EXPECT_EQ(results.wait(2), (Lines{"first: started [d1]", "second: started [d2]"}));
}

TEST_F(DraftManagerHandOver, MayBeAskedMoreByWhatItCalls) {
    runtime.run("on.addCustomAction = () => undefined; on.setCustomActionExecutor = () => {"
                "    on.getQueue = () => { executor(item('d1')); return new Promise(() => {}); };"
                "    on.replaceAction = on.mergeActions = on.removeDraftAction = on.setMetadata ="
                "        on.getQueue; }");
    const auto done = [](const auto&) {
    };
    // These callbacks still call the batching manager, as callers unaware of the runtime do.
    batching->addExternalAction("record", {}, [&](const auto&) {
        for (int count = 0; count < 50; ++count) {
            batching->addExternalAction("late", {}, done);
        }
    });
    batching->setExternalActionExecutor(
        [&](const auto&, const auto&) {
            for (int count = 0; count < 50; ++count) {
                batching->getDraftQueue(done);
                batching->replaceItem("late", "late", done);
                batching->mergeAction("late", "late", done);
            }
            batching->removeItem("d2", done);
            batching->setMetadata("d2", {}, done);
        },
        done);
    batching->getDraftQueue(done);
    batching->removeItem("d1", done);
    batching->replaceItem("r1", "r2", done);
    batching->mergeAction("s1", "t1", done);
    batching->setMetadata("m1", {}, done);
    const auto manager = handOver();
    const Lines all = calls();
    EXPECT_EQ(std::ranges::count(all, R"(addCustomAction("EXTERNAL_ACTION", "late", "", {}))"), 0);
    EXPECT_EQ(std::ranges::count(all, "getQueue()"), 1);
    EXPECT_EQ(batching->batching()->externalActions.size(), 51u);
}

TEST_F(DraftManagerHandOver, StopsOnlyWhenStoppingWasTheLastWord) {
    batching->startQueue();
    batching->stopQueue();
    const auto manager = handOver();
    EXPECT_EQ(calls(), Lines{"stopQueue()"});
    EXPECT_EQ(manager->batching()->started, false);
}

TEST_F(DraftManagerHandOver, CompletesAsTheManagerDoes) {
    const auto note = [&](std::string name) {
        return [this, name = std::move(name)](const auto& result) {
            results.add(name + " " + test::textOf(result) + " on " +
                        (runtime.context.isEntered() ? "the engine"
                                                     : platform::SerialQueue::currentLabel()));
        };
    };
    batching->getDraftQueue(note("get"));
    batching->removeItem("d1", note("remove"));
    batching->replaceItem("d1", "d2", note("replace"));
    batching->mergeAction("d1", "d2", note("merge"));
    batching->setMetadata("d1", {}, note("metadata"));
    batching->addExternalAction("record", {}, note("add"));
    const auto manager = handOver();
    runtime.resolve(0, "item('d0')");
    results.wait(1);
    runtime.resolve(1, "queue()");
    runtime.resolve(2, "queue('d1')");
    runtime.resolve(3, "item('d3')");
    runtime.resolve(4, "item('d4')");
    runtime.resolve(5, "item('d5')");
    EXPECT_EQ(
        results.wait(6),
        (Lines{"add d0 on the engine", "get started [] on DraftManagerNotification",
               "remove started [d1] on DraftManagerNotification",
               "replace d3 on DraftManagerNotification", "merge d4 on DraftManagerNotification",
               "metadata d5 on DraftManagerNotification"}));
}

TEST_F(DraftManagerHandOver, CompletesTheExecutorsRegistrationOnTheGivenQueue) {
    batching->setExternalActionExecutor({}, results.callback("executor"));
    const auto manager = handOver();
    runtime.resolve(0, "undefined");
    EXPECT_EQ(results.lines(), Lines{});
    EXPECT_EQ(runtime.handOverQueue->runAll(), 1);
    EXPECT_EQ(results.lines(), Lines{"executor: done"});
    // The recorded completion is the one that forwards to the queue.
    manager->batching()->externalActionExecutor->completion({});
    EXPECT_EQ(results.lines().size(), 1u);
    EXPECT_EQ(runtime.handOverQueue->runAll(), 1);
    EXPECT_EQ(results.lines().size(), 2u);
}

TEST_F(DraftManagerHandOver, CompletesTheExecutorsFailureOnTheGivenQueueToo) {
    runtime.run("on.setCustomActionExecutor = () => 7");
    batching->setExternalActionExecutor({}, results.callback());
    const auto manager = handOver();
    EXPECT_EQ(results.lines(), Lines{});
    EXPECT_EQ(runtime.handOverQueue->runAll(), 1);
    EXPECT_EQ(results.lines(), Lines{"unknownError addExternalAction did not return a promise"});
}

TEST_F(DraftManagerHandOver, ReplaysOnlyTheLastRequestOfAnId) {
    batching->removeItem("d1", results.callback("first removal"));
    batching->removeItem("d1", results.callback("second removal"));
    batching->setMetadata("d1", {{"k", "1"}}, results.callback("first metadata"));
    batching->setMetadata("d1", {{"k", "2"}}, results.callback("second metadata"));
    batching->setExternalActionExecutor({}, results.callback("first executor"));
    batching->setExternalActionExecutor({}, results.callback("second executor"));
    const auto manager = handOver();
    EXPECT_EQ(calls(), (Lines{R"(setCustomActionExecutor("EXTERNAL_ACTION", function))",
                              R"(removeDraftAction("d1"))", R"(setMetadata("d1", {"k":"2"}))"}));
    runtime.resolve(0, "undefined");
    runtime.handOverQueue->runAll();
    runtime.resolve(1, "queue()");
    runtime.resolve(2, "item('d1')");
    EXPECT_EQ(results.wait(3), (Lines{"second executor: done", "second removal: started []",
                                      "second metadata: d1"}));
}

TEST_F(DraftManagerHandOver, MovesListenersAndKeepsTheirHandlesWorking) {
    const auto first = batching->registerOnChangedListener(results.listener("first"));
    const auto second = batching->registerOnChangedListener(results.listener("second"));
    const auto batch = batching->batching();
    const auto before = batch->subscriptions;
    ASSERT_EQ(before.size(), 2u);
    const auto manager = handOver();
    EXPECT_EQ(batch->subscriptions.size(), 0u);
    EXPECT_EQ(manager->batching()->subscriptions, before);
    runtime.run("listener(queue(), 'started')");
    results.wait(2);
    first->unsubscribe();
    EXPECT_EQ(manager->batching()->subscriptions.size(), 1u);
    runtime.run("listener(queue(), 'stopped')");
    EXPECT_EQ(results.wait(3)[2], "second: started [] stopped -");
    second->unsubscribe();
    second->unsubscribe();
    EXPECT_EQ(manager->batching()->subscriptions.size(), 0u);
}

TEST_F(DraftManagerHandOver, DoesNotTakeOverAListenerThatWasRemovedBefore) {
    const auto handle = batching->registerOnChangedListener(results.listener());
    handle->unsubscribe();
    handle->unsubscribe();
    const auto manager = handOver();
    EXPECT_EQ(manager->batching()->subscriptions.size(), 0u);
}

TEST_F(DraftManagerHandOver, DoesNotTakeOverAListenerThatIsRemovedMeanwhile) {
    const auto handle = batching->registerOnChangedListener(results.listener());
    batching->startQueue();
    // Between the moment when the batch was taken and the one when its listeners are adopted.
    const auto batch = batching->takeBatching();
    handle->unsubscribe();
    const auto manager = runtime.manager(*batch);
    EXPECT_EQ(manager->batching()->subscriptions.size(), 0u);
}

TEST_F(DraftManagerHandOver, TakesOverWhereTheBatchingManagerIsGone) {
    const auto handle = batching->registerOnChangedListener(results.listener());
    const auto batch = batching->batching();
    batching.reset();
    const auto manager = runtime.manager(*batch);
    EXPECT_EQ(batch->subscriptions.size(), 1u);
    runtime.run("listener(queue(), 'started')");
    results.wait(1);
    handle->unsubscribe();
    EXPECT_EQ(manager->batching()->subscriptions.size(), 0u);
}

TEST_F(DraftManagerHandOver, CallsWhatTheHandleHoldsOnceAndPutsItsOwnInItsPlace) {
    const auto handle = batching->registerOnChangedListener(results.listener());
    handle->setUnsubscribe([&] { results.add("the application's"); });
    const auto manager = handOver();
    EXPECT_EQ(results.lines(), Lines{"the application's"});
    handle->unsubscribe();
    EXPECT_EQ(results.lines().size(), 1u);
    EXPECT_EQ(manager->batching()->subscriptions.size(), 0u);
}

TEST_F(DraftManagerHandOver, CallsWhatTheHandleHoldsInOneStepWithTakingTheListenerOver) {
    const auto handle = batching->registerOnChangedListener(results.listener());
    handle->setUnsubscribe([] {
        EXPECT_DEATH(platform::Mutex::assertNoneHeld("the listener moves"),
                     "a lock is held while the listener moves");
    });
    const auto manager = handOver();
    EXPECT_EQ(manager->batching()->subscriptions.size(), 1u);
}

TEST_F(DraftManagerHandOver, DropsWhatTheHandleHeldWhereItMayReachTheManager) {
    const auto handle = batching->registerOnChangedListener(results.listener());
    handle->setUnsubscribe([token = std::shared_ptr<void>(nullptr, [&](void*) {
                                runtime.run("listener(queue(), 'started')");
                            })] {});
    const auto manager = handOver();
    EXPECT_EQ(results.wait(1), Lines{"event: started [] started -"});
}

TEST_F(DraftManagerHandOver, DropsWhatIsSetInTheMiddleOfAMoveWhereItMayReachTheManager) {
    const auto handle = batching->registerOnChangedListener(results.listener());
    handle->setUnsubscribe([&] {
        std::shared_ptr<void> token(nullptr,
                                    [&](void*) { runtime.run("listener(queue(), 'started')"); });
        handle->setUnsubscribe([token = std::move(token)] {});
    });
    const auto manager = handOver();
    EXPECT_EQ(results.wait(1), Lines{"event: started [] started -"});
}

TEST_F(DraftManagerHandOver, TakesOverAListenerWhoseHandleHoldsNothing) {
    const auto handle = batching->registerOnChangedListener(results.listener());
    handle->setUnsubscribe(nullptr);
    const auto manager = handOver();
    EXPECT_EQ(manager->batching()->subscriptions.size(), 1u);
    handle->unsubscribe();
    EXPECT_EQ(manager->batching()->subscriptions.size(), 0u);
}

TEST_F(DraftManagerHandOver, OnlyReadsTheBatch) {
    const auto done = [](const auto&) {
    };
    batching->startQueue();
    batching->getDraftQueue(done);
    batching->removeItem("d1", done);
    batching->replaceItem("d1", "d2", done);
    batching->mergeAction("d1", "d2", done);
    batching->setMetadata("d1", {}, done);
    batching->setExternalActionExecutor({}, done);
    batching->addExternalAction("record", {}, done);
    const auto first = handOver();
    const Lines once = calls();
    const auto batch = batching->batching();
    EXPECT_EQ(batch->started, true);
    EXPECT_EQ(batch->queueRequest.size() + batch->removeRequest.size() +
                  batch->replaceRequest.size() + batch->mergeRequests.size() +
                  batch->setMetadataRequest.size() + batch->externalActions.size(),
              6u);
    EXPECT_TRUE(batch->externalActionExecutor);
    // The registry of the manager holds what is live, and no requests.
    const auto live = first->batching();
    EXPECT_NE(live, batch);
    EXPECT_EQ(live->queueRequest.size() + live->removeRequest.size() + live->replaceRequest.size() +
                  live->mergeRequests.size() + live->setMetadataRequest.size() +
                  live->externalActions.size(),
              0u);
    // Another manager replays everything again.
    const auto second = handOver();
    Lines twice = once;
    twice.push_back("register(function)");
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(calls(), twice);
}

TEST_F(DraftManagerHandOver, LeavesWhatIsRecordedLaterUntilAnotherHandOver) {
    batching->getDraftQueue(results.callback("first"));
    const auto batch = batching->takeBatching();
    batching->getDraftQueue(results.callback("second"));
    const auto first = runtime.manager(*batch);
    EXPECT_EQ(calls(), Lines{"getQueue()"});
    const auto second = handOver();
    EXPECT_EQ(calls(), (Lines{"getQueue()", "register(function)", "getQueue()"}));
    runtime.resolve(1, "queue()");
    runtime.resolve(0, "queue()");
    results.wait(2);
}

TEST_F(DraftManagerHandOver, HandsOverFromOneManagerToAnother) {
    const auto handle = batching->registerOnChangedListener(results.listener());
    batching->stopQueue();
    auto first = handOver();
    auto second = runtime.manager(*first->batching());
    EXPECT_EQ(first->batching()->subscriptions.size(), 0u);
    first.reset();
    runtime.run("listener(queue(), 'started')");
    EXPECT_EQ(results.wait(1), Lines{"event: started [] started -"});
    EXPECT_EQ(calls(), (Lines{"stopQueue()", "register(function)", "stopQueue()"}));
    handle->unsubscribe();
    EXPECT_EQ(second->batching()->subscriptions.size(), 0u);
}

TEST_F(DraftManagerHandOver, DoesNotTakeOverAListenerThatEndsInTheMiddleOfItsMove) {
    const auto handle = batching->registerOnChangedListener(results.listener());
    int calls = 0;
    handle->setUnsubscribe([&] {
        if (++calls == 1) {
            std::thread other([&] { handle->unsubscribe(); });
            other.join();
        }
    });
    const auto manager = handOver();
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(manager->batching()->subscriptions.size(), 0u);
}

TEST_F(DraftManagerHandOver, TakesListenersOverWhileTheRuntimeReports) {
    constexpr int listeners = 300;
    for (int count = 0; count < listeners; ++count) {
        batching->registerOnChangedListener(
            [&](const DraftManagerState&, DraftQueueItemOperationType kind, const auto&) {
                if (kind == DraftQueueItemOperationType::QueueStopped) {
                    results.add("called");
                }
            });
    }
    std::atomic<bool> isDone = false;
    std::thread reporting([&] {
        while (!isDone) {
            runtime.run("listener?.(queue(), 'started')");
        }
    });
    const auto manager = handOver();
    isDone = true;
    reporting.join();
    runtime.run("listener(queue(), 'stopped')");
    EXPECT_EQ(results.wait(listeners).size(), std::size_t{listeners});
}

TEST_F(DraftManagerHandOver, LosesNoEndOfAListenerWhileItMoves) {
    constexpr int rounds = 300;
    for (int round = 0; round < rounds; ++round) {
        const auto handle = batching->registerOnChangedListener(results.listener());
        const auto batch = batching->takeBatching();
        std::shared_ptr<DraftManager> manager;
        std::thread ending([&] { handle->unsubscribe(); });
        manager = runtime.manager(*batch);
        ending.join();
        ASSERT_EQ(manager->batching()->subscriptions.size(), 0u) << round;
        manager.reset();
    }
    EXPECT_EQ(results.lines(), Lines{});
}

TEST(BatchingDraftManager, RecordsEverythingAndCallsNothingBack) {
    DraftResults results;
    const auto batching = BatchingDraftManager::create();
    const auto batch = batching->batching();
    EXPECT_EQ(batch->started, std::nullopt);
    EXPECT_FALSE(batch->externalActionExecutor);
    batching->getDraftQueue(results.callback("get"));
    batching->removeItem("d1", results.callback("remove"));
    batching->replaceItem("d2", "d3", results.callback("replace"));
    batching->mergeAction("source", "target", results.callback("merge"));
    batching->setMetadata("d4", {{"k", "v"}}, results.callback("metadata"));
    batching->addExternalAction("record", {{"a", "b"}}, results.callback("add"));
    batching->setExternalActionExecutor([&](const auto&, const auto&) { results.add("execute"); },
                                        results.callback("executor"));
    const auto handle = batching->registerOnChangedListener(results.listener());
    batching->startQueue();
    EXPECT_EQ(results.lines(), Lines{});

    EXPECT_EQ(batch->started, true);
    ASSERT_EQ(batch->queueRequest.size(), 1u);
    batch->queueRequest[0](DraftManagerState{});
    ASSERT_EQ(batch->removeRequest.size(), 1u);
    batch->removeRequest.at("d1")(DraftManagerState{});
    ASSERT_EQ(batch->replaceRequest.size(), 1u);
    EXPECT_EQ(batch->replaceRequest[0].actionId, "d2");
    EXPECT_EQ(batch->replaceRequest[0].withActionId, "d3");
    batch->replaceRequest[0].completion(DraftQueueItem{});
    ASSERT_EQ(batch->mergeRequests.size(), 1u);
    EXPECT_EQ(batch->mergeRequests[0].sourceId, "source");
    EXPECT_EQ(batch->mergeRequests[0].targetId, "target");
    batch->mergeRequests[0].completion(DraftQueueItem{});
    ASSERT_EQ(batch->setMetadataRequest.size(), 1u);
    EXPECT_EQ(batch->setMetadataRequest.at("d4").first, (Metadata{{"k", "v"}}));
    batch->setMetadataRequest.at("d4").second(DraftQueueItem{});
    ASSERT_EQ(batch->externalActions.size(), 1u);
    EXPECT_EQ(batch->externalActions[0].targetId, "record");
    EXPECT_EQ(batch->externalActions[0].metadata, (Metadata{{"a", "b"}}));
    batch->externalActions[0].completion(DraftQueueItem{});
    ASSERT_TRUE(batch->externalActionExecutor);
    batch->externalActionExecutor->executor({}, {});
    batch->externalActionExecutor->completion({});
    ASSERT_EQ(batch->subscriptions.size(), 1u);
    EXPECT_EQ(batch->subscriptions.begin()->second->unsubscribable, handle);
    EXPECT_EQ(results.lines(),
              (Lines{"get: stopped []", "remove: stopped []",
                     "replace: ", "merge: ", "metadata: ", "add: ", "execute", "executor: done"}));
}

TEST(BatchingDraftManager, LetsGoOfWhatIsReplacedAtOnceAndMayBeCalledByThat) {
    const auto batching = BatchingDraftManager::create();
    Lines ended;
    // A callback that is let go of calls the manager, as any other code of the application may.
    const auto token = [&](std::string name) {
        return std::shared_ptr<void>(nullptr, [&, name = std::move(name)](void*) {
            platform::Mutex::assertNoneHeld("a callback is let go of");
            batching->startQueue();
            ended.push_back(name);
        });
    };
    const auto holding = [&](std::string name) {
        return [held = token(std::move(name))](const auto&...) {
        };
    };
    batching->removeItem("d1", holding("removal"));
    batching->setMetadata("d1", {}, holding("metadata"));
    batching->setExternalActionExecutor(holding("executor"), holding("completion"));
    const auto handle = batching->registerOnChangedListener(holding("listener"));
    EXPECT_EQ(ended, Lines{});
    batching->removeItem("d1", {});
    EXPECT_EQ(ended, Lines{"removal"});
    batching->setMetadata("d1", {}, {});
    EXPECT_EQ(ended, (Lines{"removal", "metadata"}));
    batching->setExternalActionExecutor({}, {});
    std::ranges::sort(ended);
    EXPECT_EQ(ended, (Lines{"completion", "executor", "metadata", "removal"}));
    handle->unsubscribe();
    EXPECT_EQ(ended.back(), "listener");
}

TEST(BatchingDraftManager, RecordsListenersAsTheDraftManagerKeepsThem) {
    const auto runLoop = platform::ManualRunLoop::create();
    const auto batching = BatchingDraftManager::create();
    runLoop->advance(platform::Seconds(60));
    const auto date = runLoop->now();
    std::shared_ptr<DraftManagerUnsubscribe> handle;
    std::thread other([&] { handle = batching->registerOnChangedListener({}); });
    other.join();
    const auto& [identifier, subscription] = *batching->batching()->subscriptions.begin();
    EXPECT_THAT(identifier,
                testing::MatchesRegex(
                    "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
    EXPECT_EQ(subscription->preparedDate, date);
    EXPECT_EQ(subscription->unsubscribable, handle);
    EXPECT_FALSE(subscription->hasEmitted);
    EXPECT_TRUE(subscription->adapterOperation.expired());
}

TEST(BatchingDraftManager, RecordsWhatManyThreadsAskFor) {
    constexpr std::size_t threads = 4;
    constexpr std::size_t rounds = 250;
    const auto batching = BatchingDraftManager::create();
    std::array<std::thread, threads> callers;
    for (std::size_t caller = 0; caller < threads; ++caller) {
        callers[caller] = std::thread([&, caller] {
            for (std::size_t round = 0; round < rounds; ++round) {
                const std::string id = std::to_string(caller) + "." + std::to_string(round);
                batching->startQueue();
                batching->getDraftQueue({});
                batching->removeItem(id, {});
                batching->replaceItem(id, id, {});
                batching->mergeAction(id, id, {});
                batching->setMetadata(id, {}, {});
                batching->addExternalAction(id, {}, {});
                batching->setExternalActionExecutor({}, {});
                batching->registerOnChangedListener({})->unsubscribe();
                batching->registerOnChangedListener({});
                batching->stopQueue();
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    const auto batch = batching->batching();
    for (const std::size_t count :
         {batch->queueRequest.size(), batch->removeRequest.size(), batch->replaceRequest.size(),
          batch->mergeRequests.size(), batch->setMetadataRequest.size(),
          batch->externalActions.size(), batch->subscriptions.size()}) {
        EXPECT_EQ(count, threads * rounds);
    }
    EXPECT_EQ(batch->started, false);
}

TEST(BatchingDraftManager, MayBeLookedAtAndEmptiedWhileManyThreadsAsk) {
    constexpr std::size_t threads = 4;
    constexpr std::size_t rounds = 250;
    const auto batching = BatchingDraftManager::create();
    std::atomic<std::size_t> working = threads;
    std::array<std::thread, threads> callers;
    for (std::thread& caller : callers) {
        caller = std::thread([&] {
            for (std::size_t round = 0; round < rounds; ++round) {
                batching->getDraftQueue({});
            }
            --working;
        });
    }
    std::thread looking([&] {
        do {
            EXPECT_NE(batching->batching(), nullptr);
        } while (working > 0);
    });
    std::size_t taken = 0;
    do {
        taken += batching->takeBatching()->queueRequest.size();
    } while (working > 0);
    for (std::thread& caller : callers) {
        caller.join();
    }
    looking.join();
    EXPECT_EQ(taken + batching->batching()->queueRequest.size(), threads * rounds);
}

TEST(BatchingDraftManager, LeavesHandlesHarmlessWhenItIsGone) {
    auto batching = BatchingDraftManager::create();
    const auto handle = batching->registerOnChangedListener({});
    batching.reset();
    handle->unsubscribe();
    handle->unsubscribe();
}

TEST(DraftManagerUnsubscribe, CallsWhatIsSetEachTime) {
    std::string called;
    DraftManagerUnsubscribe handle([&] { called += "a"; });
    handle.unsubscribe();
    handle.unsubscribe();
    handle.setUnsubscribe([&] { called += "b"; });
    handle.unsubscribe();
    handle.setUnsubscribe(nullptr);
    handle.unsubscribe();
    EXPECT_EQ(called, "aab");
}

TEST(DraftManagerUnsubscribe, MayBeCalledByWhatItLetsGoOf) {
    std::string called;
    DraftManagerUnsubscribe handle(nullptr);
    auto token = std::shared_ptr<void>(nullptr, [&](void*) { handle.unsubscribe(); });
    handle.setUnsubscribe([held = std::move(token)] {});
    handle.setUnsubscribe([&] { called += "a"; });
    EXPECT_EQ(called, "a");
}

TEST(DraftManagerUnsubscribe, CallsNothingWhenItIsDestroyed) {
    bool called = false;
    {
        DraftManagerUnsubscribe handle([&] { called = true; });
    }
    EXPECT_FALSE(called);
}

} // namespace
