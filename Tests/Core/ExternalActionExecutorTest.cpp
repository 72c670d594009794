// External actions: how the runtime has them carried out natively.

#include <zem/Core/DraftManager.h>

#include <gtest/gtest.h>

#include <Core/DraftRuntime.h>
#include <Support/LogCapture.h>
#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using test::DraftResults;
using test::DraftRuntime;
using Lines = std::vector<std::string>;

constexpr const char* success = R"(replied {"type":"SUCCESS"})";

class ExternalActionExecution : public testing::Test {
  protected:
    ExternalActionExecution() {
        runtime.run("var reply = (...results) => heard('replied ' + results.map(show).join(', '))");
    }

    void setExecutor(ExternalActionExecutor executor) {
        manager->setExternalActionExecutor(std::move(executor), results.callback());
        runtime.calls.wait(2);
    }
    /// The runtime's transcript since the executor was set.
    Lines replies(int count) {
        Lines all = runtime.calls.wait(2 + count);
        return {all.begin() + 2, all.end()};
    }
    /// Returns when everything sent to the runtime has arrived.
    void settle() {
        runtime.context.perform([](js::Scope&) {});
    }

    DraftRuntime runtime;
    DraftResults results;
    std::shared_ptr<DraftManager> manager = runtime.manager();
};

TEST_F(ExternalActionExecution, GetsTheActionAndSendsTheResultBack) {
    setExecutor([&](const DraftQueueItem& action, const CustomActionReply& reply) {
        results.add(action.id + " " + action.targetId.value_or("-"));
        reply({CustomActionResultType::failure,
               CustomActionError{CustomActionErrorType::networkError, "no coverage"}});
    });
    runtime.run("executor(item('d1', { targetId: 'r1' }), reply)");
    EXPECT_EQ(replies(1), Lines{R"(replied {"type":"FAILURE","error":{"type":"NETWORK_ERROR",)"
                                R"("message":"no coverage"}})"});
    EXPECT_EQ(results.lines(), Lines{"d1 r1"});
}

TEST_F(ExternalActionExecution, IsCalledOnTheThreadOfTheRuntime) {
    bool wasInside = false;
    setExecutor([&](const auto&, const auto&) { wasInside = runtime.context.isEntered(); });
    runtime.run("executor(item('d1'), reply)");
    EXPECT_TRUE(wasInside);
}

TEST_F(ExternalActionExecution, SendsAFailureForAnActionThatCannotBeDecoded) {
    setExecutor([&](const auto&, const auto&) { results.add("called"); });
    runtime.run("executor({}, reply); executor(undefined, reply); executor(item(7), reply)");
    EXPECT_EQ(replies(3), Lines(3, R"(replied {"type":"FAILURE","error":{"type":"CLIENT_ERROR",)"
                                   R"("message":"Unable to decode draft item"}})"));
    EXPECT_EQ(results.lines(), Lines{});
}

TEST_F(ExternalActionExecution, SendsNothingForAnActionThatCannotBeDecodedWithoutACallback) {
    setExecutor([&](const auto&, const auto&) { results.add("called"); });
    runtime.run("executor({}); executor(); executor({}, 7); executor({}, {})");
    settle();
    EXPECT_EQ(replies(0), Lines{});
    EXPECT_EQ(results.lines(), Lines{});
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_F(ExternalActionExecution, IsCalledWithoutACallbackAndItsReplyGoesNowhere) {
    setExecutor([&](const DraftQueueItem& action, const CustomActionReply& reply) {
        reply({});
        results.add(action.id);
    });
    runtime.run("executor(item('d1')); executor(item('d2'), 7); executor(item('d3'), null)");
    settle();
    EXPECT_EQ(results.lines(), (Lines{"d1", "d2", "d3"}));
    EXPECT_EQ(replies(0), Lines{});
}

TEST_F(ExternalActionExecution, SendsTheFirstOfSeveralReplies) {
    setExecutor([&](const auto&, const CustomActionReply& reply) {
        reply({});
        reply({CustomActionResultType::failure, std::nullopt});
        const CustomActionReply copy = reply;
        copy({CustomActionResultType::failure, std::nullopt});
    });
    runtime.run("executor(item('d1'), reply)");
    settle();
    EXPECT_EQ(replies(1), Lines{success});
}

TEST_F(ExternalActionExecution, MayReplyFromAnotherThreadLater) {
    test::Arrival<CustomActionReply> kept("the reply");
    setExecutor([&](const auto&, CustomActionReply reply) { kept.put(std::move(reply)); });
    runtime.run("executor(item('d1'), reply)");
    settle();
    EXPECT_EQ(replies(0), Lines{});
    std::thread other([reply = kept.get()] { reply({}); });
    other.join();
    EXPECT_EQ(replies(1), Lines{success});
}

TEST_F(ExternalActionExecution, MayReplyWhenTheManagerIsGone) {
    test::Arrival<CustomActionReply> kept("the reply");
    setExecutor([&](const auto&, CustomActionReply reply) { kept.put(std::move(reply)); });
    runtime.run("executor(item('d1'), reply)");
    manager.reset();
    kept.get()({});
    EXPECT_EQ(replies(1), Lines{success});
}

TEST_F(ExternalActionExecution, IsCalledAsLongAsTheRuntimeHasIt) {
    setExecutor([&](const DraftQueueItem& action, const CustomActionReply& reply) {
        results.add(action.id);
        reply({});
    });
    manager.reset();
    runtime.run("executor(item('d1'), reply)");
    EXPECT_EQ(replies(1), Lines{success});
    EXPECT_EQ(results.lines(), Lines{"d1"});
}

TEST_F(ExternalActionExecution, MayNeverReply) {
    setExecutor([&](const auto&, const auto&) { results.add("called"); });
    runtime.run("executor(item('d1'), reply)");
    settle();
    EXPECT_EQ(replies(0), Lines{});
    EXPECT_EQ(results.lines(), Lines{"called"});
}

TEST_F(ExternalActionExecution, MayThrow) {
    test::LogCapture log;
    setExecutor([&](const auto&, const CustomActionReply& reply) {
        reply({});
        throw std::runtime_error("no");
    });
    runtime.run("executor(item('d1'), reply)");
    EXPECT_EQ(replies(1), Lines{success});
    EXPECT_EQ(log.lines(), Lines{"an external action executor threw: <private>"});
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_F(ExternalActionExecution, ReportsWhatTheCallbackThrows) {
    setExecutor([&](const auto&, const CustomActionReply& reply) { reply({}); });
    runtime.run("executor(item('d1'), () => { heard('called'); throw new Error('mine'); });"
                "executor({}, () => { heard('called'); throw new Error('mine too'); })");
    replies(2);
    settle();
    Lines uncaught = runtime.uncaught.lines();
    std::ranges::sort(uncaught);
    EXPECT_EQ(uncaught, (Lines{"Error: mine", "Error: mine too"}));
}

TEST_F(ExternalActionExecution, IsReplacedByEndingTheRegistrationBefore) {
    const auto set = [&](const char* name) {
        manager->setExternalActionExecutor(
            [this, name](const DraftQueueItem& action, const auto&) {
                results.add(name + (" " + action.id));
            },
            results.callback(name));
    };
    set("first");
    runtime.resolve(0, "(...values) => heard('unset first(' + values.map(show).join(', ') + ')')");
    set("second");
    runtime.resolve(1, "() => heard('unset second()')");
    runtime.run("executor(item('d1'), reply)");
    EXPECT_EQ(results.lines(), (Lines{"first: done", "second: done", "second d1"}));
    EXPECT_EQ(
        runtime.calls.lines(),
        (Lines{"register(function)", R"(setCustomActionExecutor("EXTERNAL_ACTION", function))",
               "unset first()", R"(setCustomActionExecutor("EXTERNAL_ACTION", function))"}));
    manager.reset();
    runtime.runMainQueue();
    const Lines all = runtime.calls.lines();
    EXPECT_EQ(Lines(all.end() - 2, all.end()), (Lines{"unregister()", "unset second()"}));
}

TEST_F(ExternalActionExecution, IsRecordedWithItsCompletion) {
    manager->setExternalActionExecutor([&](const auto&, const auto&) { results.add("executor"); },
                                       results.callback("first"));
    const auto& recorded = manager->batching()->externalActionExecutor;
    ASSERT_TRUE(recorded);
    recorded->executor({}, {});
    recorded->completion({});
    EXPECT_EQ(results.lines(), (Lines{"executor", "first: done"}));
    manager->setExternalActionExecutor({}, {});
    EXPECT_FALSE(manager->batching()->externalActionExecutor->executor);
}

TEST_F(ExternalActionExecution, IsRecordedBeforeTheRuntimeHearsOfIt) {
    Lines during;
    test::setFunction(runtime.context, "look", 0, [&](js::Scope& scope, js::Local, js::Arguments) {
        during.push_back(manager->batching()->externalActionExecutor ? "recorded" : "absent");
        return scope.undefined();
    });
    runtime.run("on.setCustomActionExecutor = () => look()");
    setExecutor({});
    EXPECT_EQ(during, Lines{"recorded"});
}

TEST_F(ExternalActionExecution, MayCallTheManagerWhenAnotherTakesItsPlace) {
    auto token = std::shared_ptr<void>(nullptr, [&](void*) { manager->startQueue(); });
    manager->setExternalActionExecutor({}, [token = std::move(token)](const auto&) {});
    // No other owner of the completion is left.
    runtime.resolve(0, "undefined");
    manager->setExternalActionExecutor({}, {});
    EXPECT_EQ(runtime.calls.lines().back(), "startQueue()");
}

TEST_F(ExternalActionExecution, IsEndedUntilAnotherIsRegistered) {
    const auto unset = [](const char* name) {
        return std::string("() => heard('unset ") + name + "')";
    };
    const auto ends = [&] {
        Lines all = runtime.calls.lines();
        std::erase_if(all, [](const std::string& call) { return !call.starts_with("unset"); });
        return all;
    };
    setExecutor({});
    runtime.resolve(0, unset("first"));
    manager->setExternalActionExecutor({}, {}); // is never answered
    manager->setExternalActionExecutor({}, {});
    runtime.reject(2, "'no'");
    EXPECT_EQ(ends(), (Lines{"unset first", "unset first"}));
    manager->setExternalActionExecutor({}, {});
    runtime.resolve(3, unset("fourth"));
    EXPECT_EQ(ends(), (Lines{"unset first", "unset first", "unset first"}));
    manager->setExternalActionExecutor({}, {});
    runtime.resolve(4, "undefined");
    manager->setExternalActionExecutor({}, {});
    manager.reset();
    runtime.runMainQueue();
    EXPECT_EQ(ends(), (Lines{"unset first", "unset first", "unset first", "unset fourth"}));
}

TEST_F(ExternalActionExecution, IsEndedWhenItIsReplacedFromItsCompletion) {
    manager->setExternalActionExecutor({}, [&](const auto&) {
        manager->setExternalActionExecutor({}, results.callback("second"));
    });
    runtime.resolve(0, "() => heard('unset first')");
    runtime.resolve(1, "() => heard('unset second')");
    EXPECT_EQ(results.lines(), Lines{"second: done"});
    const std::string set = R"(setCustomActionExecutor("EXTERNAL_ACTION", function))";
    EXPECT_EQ(runtime.calls.lines(), (Lines{"register(function)", set, "unset first", set}));
}

TEST_F(ExternalActionExecution, IsAFunctionOfTwoArgumentsThatGivesNothingBack) {
    setExecutor([](const auto&, const auto&) {});
    test::expectEval(runtime.context, "executor.length", "number", "2");
    test::expectEval(runtime.context, "executor(item('d1'), reply)", "undefined", "undefined");
    test::expectEval(runtime.context, "executor({}, () => 7)", "undefined", "undefined");
}

TEST_F(ExternalActionExecution, GoesOnWhenEndingTheRegistrationBeforeThrows) {
    setExecutor({});
    runtime.resolve(0, "() => { throw new Error('not ended'); }");
    manager->setExternalActionExecutor({}, results.callback("second"));
    runtime.resolve(1, "undefined");
    EXPECT_EQ(results.lines(), (Lines{"done", "second: done"}));
    EXPECT_EQ(runtime.uncaught.lines(), Lines{"Error: not ended"});
}

TEST_F(ExternalActionExecution, FailsWhereTheEngineCanNoLongerBeEntered) {
    DraftResults late;
    {
        platform::RunLoopThread thread("short");
        js::Context context = js::Context::create(thread.runLoop());
        auto orphan = DraftManager::create(context.perform([](js::Scope& scope) {
            return scope.keep(
                scope.evaluate("({ registerDraftQueueChangedListener() {} })", "test.js").value());
        }),
                                           {}, runtime.handOverQueue);
        context = {};
        std::swap(orphan, manager);
    }
    const test::LogCapture log;
    manager->setExternalActionExecutor({}, late.callback("executor"));
    manager->addExternalAction("record", {}, late.callback("add"));
    manager->getDraftQueue(late.callback("get"));
    manager->startQueue();
    EXPECT_EQ(late.lines(), (Lines{"executor: unknownError an unknown JSContext error occurred",
                                   "add: unknownError addCustomAction did not return a promise"}));
    EXPECT_EQ(log.lines().size(), 4u);
    manager.reset();
}

} // namespace
