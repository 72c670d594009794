// The draft manager's calls into the runtime, and its answers.

#include <zem/Core/DraftManager.h>
#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Core/DraftRuntime.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
#include <atomic>
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
using testing::ElementsAre;
using Lines = std::vector<std::string>;

const char* const registration = "register(function)";

TEST(DraftManager, RegistersItsListenerWhenItIsMade) {
    DraftRuntime runtime;
    const auto manager = runtime.manager();
    EXPECT_EQ(runtime.calls.lines(), Lines{registration});
    test::expectEval(runtime.context, "listener.length", "number", "3");
}

TEST(DraftManager, CallsTheRuntimeWithTheArgumentsInTheirOrderBeforeItReturns) {
    DraftRuntime runtime;
    DraftResults results;
    const auto manager = runtime.manager();
    manager->getDraftQueue(results.callback());
    manager->removeItem("d1", results.callback());
    manager->replaceItem("d1", "d2", results.callback());
    manager->mergeAction("source", "target", results.callback());
    manager->setMetadata("d1", {{"b", "2"}, {"a", "1"}}, results.callback());
    manager->startQueue();
    manager->stopQueue();
    manager->addExternalAction("record", {{"k", "v"}}, results.callback());
    manager->setExternalActionExecutor({}, results.callback());
    EXPECT_EQ(runtime.calls.lines(),
              (Lines{registration, "getQueue()", R"(removeDraftAction("d1"))",
                     R"(replaceAction("d1", "d2"))", R"(mergeActions("target", "source"))",
                     R"(setMetadata("d1", {"a":"1","b":"2"}))", "startQueue()", "stopQueue()",
                     R"(addCustomAction("EXTERNAL_ACTION", "record", "", {"k":"v"}))",
                     R"(setCustomActionExecutor("EXTERNAL_ACTION", function))"}));
    EXPECT_EQ(results.lines(), Lines{});
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
    EXPECT_EQ(DraftManager::externalActionHandlerId, "EXTERNAL_ACTION");
}

TEST(DraftManager, MergeSendsTargetThenSource) {
    DraftRuntime runtime;
    DraftResults results;
    const auto manager = runtime.manager();
    manager->mergeAction("A", "B", results.callback());
    EXPECT_EQ(runtime.calls.lines()[1], R"(mergeActions("B", "A"))");
}

TEST(DraftManager, CompletesWithWhatThePromisesAreFulfilledWith) {
    DraftRuntime runtime;
    DraftResults results;
    const auto manager = runtime.manager();
    manager->getDraftQueue(results.callback("get"));
    manager->removeItem("d1", results.callback("remove"));
    manager->replaceItem("d1", "d2", results.callback("replace"));
    manager->mergeAction("d1", "d2", results.callback("merge"));
    manager->setMetadata("d1", {}, results.callback("metadata"));
    runtime.resolve(0, "queue('d1', 'd2')");
    runtime.resolve(1, "queue()");
    runtime.resolve(2, "item('d3')");
    runtime.resolve(3, "item('d4')");
    runtime.resolve(4, "item('d5')");
    EXPECT_EQ(results.wait(5), (Lines{"get: started [d1 d2]", "remove: started []", "replace: d3",
                                      "merge: d4", "metadata: d5"}));
}

TEST(DraftManager, CompletesInTheOrderInWhichTheRuntimeSettles) {
    DraftRuntime runtime;
    DraftResults results;
    const auto manager = runtime.manager();
    const auto handle = manager->registerOnChangedListener(results.listener());
    manager->getDraftQueue(results.callback("first"));
    manager->getDraftQueue(results.callback("second"));
    manager->getDraftQueue(results.callback("third"));
    runtime.resolve(2, "queue()");
    runtime.run("listener(queue(), 'started')");
    runtime.resolve(0, "queue()");
    runtime.reject(1, "'no'");
    EXPECT_EQ(results.wait(4), (Lines{"third: started []", "event: started [] started -",
                                      "first: started []", "second: promiseRejection no"}));
}

TEST(DraftManager, CompletesOnItsNotificationQueue) {
    DraftRuntime runtime;
    test::Journal where("a callback");
    const auto note = [&](const auto&...) {
        const auto quality = platform::SerialQueue::currentQualityOfService();
        where.add(platform::SerialQueue::currentLabel() +
                  (quality == platform::QualityOfService::userInitiated ? " user-initiated" : ""));
    };
    const auto manager = runtime.manager();
    const auto handle = manager->registerOnChangedListener(note);
    manager->getDraftQueue(note);
    manager->removeItem("d1", note);
    manager->replaceItem("d1", "d2", note);
    manager->mergeAction("d1", "d2", note);
    manager->setMetadata("d1", {}, note);
    runtime.run("listener(queue(), 'started')");
    runtime.run("promises.forEach((promise, call) => call % 2 ? promise.reject() :"
                " promise.resolve(queue()))");
    EXPECT_EQ(where.wait(6), Lines(6, "DraftManagerNotification user-initiated"));
}

TEST(DraftManager, CompletesExternalActionsAndTheExecutorOnTheThreadThatSettles) {
    DraftRuntime runtime;
    Lines where;
    const auto note = [&](const auto& result) {
        where.push_back(test::textOf(result) +
                        (runtime.context.isEntered() ? " inside" : " outside"));
    };
    const auto manager = runtime.manager();
    manager->addExternalAction("record", {}, note);
    manager->setExternalActionExecutor({}, note);
    EXPECT_EQ(where, Lines{});
    runtime.resolve(0, "item('d1')");
    runtime.resolve(1, "undefined");
    EXPECT_EQ(where, (Lines{"d1 inside", "done inside"}));
}

TEST(DraftManager, FailsWithTheTextOfARejection) {
    DraftRuntime runtime;
    DraftResults results;
    const auto manager = runtime.manager();
    manager->removeItem("d1", results.callback());
    runtime.reject(0, "undefined");
    EXPECT_EQ(results.wait(1), Lines{"promiseRejection An unspecified error occured"});
}

TEST(DraftManager, FailsWithWhyAFulfilledPromiseCouldNotBeDecoded) {
    DraftRuntime runtime;
    DraftResults results;
    const auto manager = runtime.manager();
    manager->getDraftQueue(results.callback());
    manager->mergeAction("d1", "d2", results.callback());
    runtime.resolve(0, "({ queueState: 'started', items: [item('d1'), item('d2', { id: 7 })] })");
    runtime.resolve(1, "queue()");
    EXPECT_EQ(results.wait(2),
              (Lines{"decodingPromiseError items[1].id: expected a string, found a number",
                     "decodingPromiseError id: expected a string, found undefined"}));
}

TEST(DraftManager, NeverCompletesWhatTheRuntimeHasNoFunctionFor) {
    DraftRuntime runtime;
    DraftResults results;
    runtime.run("delete draftManager.getQueue");
    const auto manager = runtime.manager();
    manager->getDraftQueue(results.callback("never"));
    manager->removeItem("d1", results.callback("after"));
    runtime.resolve(0, "queue()");
    EXPECT_EQ(results.wait(1), Lines{"after: started []"});
    EXPECT_EQ(runtime.uncaught.lines(),
              Lines{"TypeError: getQueue: expected a function, found undefined"});
}

TEST(DraftManager, FailsAtOnceWhenAddingAnExternalActionGivesNoPromise) {
    DraftRuntime runtime;
    const auto manager = runtime.manager();
    for (const char* answer : {"undefined", "7", "'text'", "null", "({})", "true"}) {
        runtime.run("on.addCustomAction = () => (" + std::string(answer) + ")");
        Lines heard;
        manager->addExternalAction("record", {}, [&](const auto& result) {
            heard.push_back(test::textOf(result) +
                            (runtime.context.isEntered() ? " inside" : " outside"));
        });
        EXPECT_EQ(heard, Lines{"unknownError addCustomAction did not return a promise outside"})
            << answer;
    }
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST(DraftManager, FailsAtOnceWhenSettingTheExecutorGivesNoPromise) {
    DraftRuntime runtime;
    const auto manager = runtime.manager();
    for (const char* answer : {"undefined", "7", "'text'", "null", "({})", "true"}) {
        runtime.run("on.setCustomActionExecutor = () => (" + std::string(answer) + ")");
        Lines heard;
        manager->setExternalActionExecutor({}, [&](const auto& result) {
            heard.push_back(test::textOf(result) +
                            (runtime.context.isEntered() ? " inside" : " outside"));
        });
        EXPECT_EQ(heard, Lines{"unknownError addExternalAction did not return a promise outside"})
            << answer;
    }
}

TEST(DraftManager, FailsWhenAnAddedItemCannotBeDecoded) {
    DraftRuntime runtime;
    DraftResults results;
    const auto manager = runtime.manager();
    manager->addExternalAction("record", {}, results.callback());
    runtime.resolve(0, "({})");
    EXPECT_EQ(results.wait(1), Lines{"unknownError Unable to decode added item"});
}

TEST(DraftManager, KeepsTheLastWordOnStartingOrStopping) {
    DraftRuntime runtime;
    const auto manager = runtime.manager();
    EXPECT_EQ(manager->batching()->started, std::nullopt);
    manager->startQueue();
    EXPECT_EQ(manager->batching()->started, true);
    manager->stopQueue();
    EXPECT_EQ(manager->batching()->started, false);
}

TEST(DraftManager, KeepsTheLastWordOnceTheRuntimeHasHeardIt) {
    DraftRuntime runtime;
    const auto manager = runtime.manager();
    std::vector<std::optional<bool>> during;
    test::setFunction(runtime.context, "look", 0, [&](js::Scope& scope, js::Local, js::Arguments) {
        during.push_back(manager->batching()->started);
        return scope.undefined();
    });
    runtime.run("on.startQueue = on.stopQueue = () => look()");
    manager->startQueue();
    manager->stopQueue();
    EXPECT_EQ(during, (std::vector<std::optional<bool>>{std::nullopt, true}));
}

TEST(DraftManager, DoesNotWaitForTheQueueToStartOrStop) {
    DraftRuntime runtime;
    runtime.run("on.startQueue = () => { throw new Error('no start'); };"
                "on.stopQueue = () => 7;");
    const auto manager = runtime.manager();
    manager->startQueue();
    EXPECT_EQ(manager->batching()->started, true);
    manager->stopQueue();
    EXPECT_EQ(manager->batching()->started, false);
    EXPECT_EQ(runtime.uncaught.lines(), Lines{"Error: no start"});
}

TEST(DraftManager, RefusesToBeMadeOfNothing) {
    DraftRuntime runtime;
    EXPECT_THROW(DraftManager::create({}, {}, runtime.handOverQueue), std::invalid_argument);
    EXPECT_THROW(DraftManager::create(runtime.value("draftManager"), {}, nullptr),
                 std::invalid_argument);
}

TEST(DraftManager, GoesOnWithoutEventsWhenTheRuntimeRegistersNoListeners) {
    DraftRuntime runtime;
    DraftResults results;
    runtime.run("delete draftManager.registerDraftQueueChangedListener");
    const auto manager = runtime.manager();
    manager->getDraftQueue(results.callback());
    runtime.resolve(0, "queue()");
    EXPECT_EQ(results.wait(1), Lines{"started []"});
}

TEST(DraftManager, EndsTheRegistrationsOnTheMainQueueWhenItIsGone) {
    DraftRuntime runtime;
    auto manager = runtime.manager();
    const std::weak_ptr<DraftManager> life = manager;
    manager->setExternalActionExecutor({}, [](const auto&) {});
    runtime.resolve(0, "(...ended) => heard('unset(' + ended.map(show).join(', ') + ')')");
    manager.reset();
    EXPECT_TRUE(life.expired());
    EXPECT_EQ(runtime.calls.lines().size(), 2u);
    runtime.runMainQueue();
    EXPECT_THAT(runtime.calls.lines(),
                ElementsAre(registration, R"(setCustomActionExecutor("EXTERNAL_ACTION", function))",
                            "unregister()", "unset()"));
}

TEST(DraftManager, EndsEachRegistrationWhateverBecomesOfTheOther) {
    DraftRuntime runtime;
    runtime.run("draftManager.registerDraftQueueChangedListener = () => () => {"
                "    heard('unregister()'); throw new Error('not ended'); }");
    auto manager = runtime.manager();
    manager->setExternalActionExecutor({}, [](const auto&) {});
    runtime.resolve(0, "() => heard('unset()')");
    manager.reset();
    runtime.runMainQueue();
    EXPECT_EQ(runtime.calls.lines(),
              (Lines{R"(setCustomActionExecutor("EXTERNAL_ACTION", function))", "unregister()",
                     "unset()"}));
    EXPECT_EQ(runtime.uncaught.lines(), Lines{"Error: not ended"});
    // Only the second is there.
    runtime.run("draftManager.registerDraftQueueChangedListener = () => {}");
    manager = runtime.manager();
    manager->setExternalActionExecutor({}, [](const auto&) {});
    runtime.resolve(1, "() => heard('unset again()')");
    manager.reset();
    runtime.runMainQueue();
    EXPECT_EQ(runtime.calls.lines().back(), "unset again()");
}

TEST(DraftManager, HasNothingToEndWhereTheRuntimeGaveNoFunctions) {
    DraftRuntime runtime;
    runtime.run("draftManager.registerDraftQueueChangedListener = () => 7");
    auto manager = runtime.manager();
    manager->setExternalActionExecutor({}, [](const auto&) {});
    runtime.resolve(0, "undefined");
    manager.reset();
    runtime.runMainQueue();
    EXPECT_EQ(runtime.calls.lines(),
              Lines{R"(setCustomActionExecutor("EXTERNAL_ACTION", function))"});
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST(DraftManager, DropsCompletionsThatItDoesNotLiveToSee) {
    DraftRuntime runtime;
    DraftResults results;
    auto manager = runtime.manager();
    manager->getDraftQueue(results.callback("get"));
    manager->setExternalActionExecutor({}, results.callback("executor"));
    manager->addExternalAction("record", {}, results.callback("add"));
    const auto handle = manager->registerOnChangedListener(results.listener());
    manager.reset();
    runtime.resolve(0, "queue()");
    runtime.resolve(1, "() => heard('never')");
    runtime.run("listener(queue(), 'added')");
    runtime.resolve(2, "item('d1')");
    EXPECT_EQ(results.wait(1), Lines{"add: d1"});
    handle->unsubscribe();
    runtime.runMainQueue();
    EXPECT_EQ(runtime.calls.lines().back(), "unregister()");
    EXPECT_EQ(results.lines().size(), 1u);
}

TEST(DraftManager, EndsWithoutWaitingForTheEngine) {
    DraftRuntime runtime;
    auto manager = runtime.manager();
    test::Event isBusy("a busy engine");
    std::atomic<bool> hasEnded = false;
    test::setFunction(runtime.context, "hasEnded", 0,
                      [&](js::Scope& scope, js::Local, js::Arguments) {
                          isBusy.signal();
                          return scope.boolean(hasEnded);
                      });
    // It gives up when it is waited for.
    std::thread busy([&] {
        const std::string limit = std::to_string(test::waitLimit.count() * 1000);
        test::expectEval(runtime.context,
                         "const limit = Date.now() + " + limit +
                             "; var ended; while (!(ended = hasEnded()) && Date.now() < limit) {}"
                             "ended",
                         "boolean", "true");
    });
    isBusy.wait();
    manager.reset();
    if (test::engineEntry == test::EngineEntry::bound) {
        // The main thread does not wait for the work left for the engine's thread.
        test::runMainQueue();
    }
    hasEnded = true;
    busy.join();
    runtime.runMainQueue();
    EXPECT_EQ(runtime.calls.lines(), (Lines{registration, "unregister()"}));
}

TEST(DraftManager, StillCallsWhatWasSettledBeforeItWasDestroyed) {
    DraftRuntime runtime;
    DraftResults results;
    test::Event release("the end of the first completion");
    auto manager = runtime.manager();
    const auto handle = manager->registerOnChangedListener(results.listener());
    manager->getDraftQueue([&](const auto&) { release.wait(); });
    manager->getDraftQueue(results.callback("settled"));
    manager->getDraftQueue(results.callback("unsettled"));
    runtime.resolve(0, "queue()");
    runtime.resolve(1, "queue()");
    runtime.run("listener(queue(), 'started')");
    manager.reset();
    runtime.resolve(2, "queue()");
    release.signal();
    EXPECT_EQ(results.wait(2), (Lines{"settled: started []", "event: started [] started -"}));
}

TEST(DraftManager, TellsOfRejectionsOfExternalActionsAndTheExecutorAlsoWhenItIsGone) {
    DraftRuntime runtime;
    DraftResults results;
    auto manager = runtime.manager();
    manager->addExternalAction("record", {}, results.callback("add"));
    manager->setExternalActionExecutor({}, results.callback("executor"));
    manager->getDraftQueue(results.callback("get"));
    manager.reset();
    runtime.reject(0, "'no action'");
    runtime.reject(1, "'no executor'");
    runtime.reject(2, "'no queue'");
    EXPECT_EQ(results.lines(),
              (Lines{"add: promiseRejection no action", "executor: promiseRejection no executor"}));
}

TEST(DraftManager, LetsGoOfACompletionThatItHasCalledWhateverTheRuntimeKeeps) {
    DraftRuntime runtime;
    DraftResults results;
    const auto manager = runtime.manager();
    runtime.run("var kept = [];"
                "on.getQueue = () => ({ then(...settle) { kept.push(...settle); } });"
                "on.addCustomAction = on.getQueue;");
    std::weak_ptr<int> queued;
    std::weak_ptr<int> added;
    const auto holding = [&](std::weak_ptr<int>& life) {
        auto token = std::make_shared<int>();
        life = token;
        return [&results, token = std::move(token)](const auto&) {
            results.add("called");
        };
    };
    manager->getDraftQueue(holding(queued));
    manager->addExternalAction("record", {}, holding(added));
    EXPECT_FALSE(queued.expired() || added.expired());
    runtime.run("kept[0](queue()); kept[2](item('d1'));");
    results.wait(2);
    test::waitUntil("the end of the completions",
                    [&] { return queued.expired() && added.expired(); });
}

TEST(DraftManager, AsksWhereTheCallingThreadEntersTheEngine) {
    DraftRuntime runtime;
    std::thread::id where;
    test::setFunction(runtime.context, "note", 0, [&](js::Scope& scope, js::Local, js::Arguments) {
        where = std::this_thread::get_id();
        return scope.undefined();
    });
    runtime.run("on.getQueue = () => { note(); return Promise.resolve(queue()); }");
    const auto manager = runtime.manager();
    DraftResults results;
    std::thread::id entering;
    std::thread thread([&] {
        entering = runtime.context.perform([](js::Scope&) { return std::this_thread::get_id(); });
        manager->getDraftQueue(results.callback());
    });
    thread.join();
    EXPECT_EQ(where, entering);
    results.wait(1);
}

} // namespace
