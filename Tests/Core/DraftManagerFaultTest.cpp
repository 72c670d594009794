// Runtimes whose promises and states are not as they should be.

#include <zem/Core/DraftManager.h>

#include <gtest/gtest.h>

#include <Core/DraftRuntime.h>
#include <Support/LogCapture.h>
#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using test::DraftResults;
using test::DraftRuntime;
using Lines = std::vector<std::string>;

/// One of the operations that ask the runtime for a promise.
struct Operation {
    const char* function;
    /// The script of the promise's value, and the text that the caller hears of it.
    const char* answer;
    const char* heard;
    void (*ask)(DraftManager& manager, DraftResults& results);
    /// The text of a rejection with undefined, and of one that has no text.
    const char* rejectedWithUndefined;
    const char* rejectedWithoutText;
    /// The text that the caller hears when there is no promise; empty for silence.
    const char* withoutPromise;
};

constexpr const char* unspecified = "promiseRejection An unspecified error occured";

const Operation operations[] = {
    {"getQueue", "queue('d1')", "started [d1]",
     [](DraftManager& manager, DraftResults& results) {
         manager.getDraftQueue(results.callback());
     },
     unspecified, unspecified, ""},
    {"removeDraftAction", "queue('d1')", "started [d1]",
     [](DraftManager& manager, DraftResults& results) {
         manager.removeItem("d1", results.callback());
     },
     unspecified, unspecified, ""},
    {"replaceAction", "item('d1')", "d1",
     [](DraftManager& manager, DraftResults& results) {
         manager.replaceItem("d1", "d2", results.callback());
     },
     unspecified, unspecified, ""},
    {"mergeActions", "item('d1')", "d1",
     [](DraftManager& manager, DraftResults& results) {
         manager.mergeAction("d1", "d2", results.callback());
     },
     unspecified, unspecified, ""},
    {"setMetadata", "item('d1')", "d1",
     [](DraftManager& manager, DraftResults& results) {
         manager.setMetadata("d1", {{"k", "v"}}, results.callback());
     },
     unspecified, unspecified, ""},
    {"addCustomAction", "item('d1')", "d1",
     [](DraftManager& manager, DraftResults& results) {
         manager.addExternalAction("record", {{"k", "v"}}, results.callback());
     },
     "promiseRejection undefined", "promiseRejection uknown error adding custom action",
     "unknownError addCustomAction did not return a promise"},
    {"setCustomActionExecutor", "undefined", "done",
     [](DraftManager& manager, DraftResults& results) {
         manager.setExternalActionExecutor({}, results.callback());
     },
     "promiseRejection undefined", "promiseRejection uknown error when setting executor",
     "unknownError addExternalAction did not return a promise"},
};

class DraftManagerFault : public testing::TestWithParam<Operation> {
  protected:
    void ask() { GetParam().ask(*manager, results); }
    /// Has the operation answered with the value of a script.
    void answerWith(const std::string& script) {
        runtime.run(std::string("on.") + GetParam().function + " = () => (" + script + ")");
    }
    std::string answer() const { return GetParam().answer; }
    /// All lines heard, once every answer on its way has arrived.
    Lines heard() {
        DraftResults marker;
        runtime.run("on.getQueue = () => Promise.resolve(queue())");
        manager->getDraftQueue(marker.callback());
        marker.wait(1);
        return results.lines();
    }
    Lines once(const char* line) const { return *line == 0 ? Lines{} : Lines{line}; }

    DraftRuntime runtime;
    DraftResults results;
    std::shared_ptr<DraftManager> manager = runtime.manager();
};

TEST_P(DraftManagerFault, OfAPromiseThatIsNeverSettledIsSilence) {
    ask();
    EXPECT_EQ(heard(), Lines{});
    manager.reset();
    EXPECT_EQ(results.lines(), Lines{});
}

TEST_P(DraftManagerFault, OfAPromiseThatWasRejectedBeforeIsHandled) {
    ASSERT_TRUE(runtime.context.setRejectionHandler(
        [this](js::Scope&, const js::Exception& reason) { runtime.uncaught.add(reason.text()); }));
    answerWith("Promise.reject('early')");
    ask();
    EXPECT_EQ(heard(), Lines{"promiseRejection early"});
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
    runtime.context.setRejectionHandler(nullptr);
}

TEST_P(DraftManagerFault, OfAPromiseThatIsSettledTwiceIsNone) {
    answerWith("({ then(fulfilled, rejected) {"
               "    fulfilled(" +
               answer() + "); rejected('late'); fulfilled({}); } })");
    ask();
    EXPECT_EQ(heard(), once(GetParam().heard));
    answerWith("({ then(fulfilled, rejected) {"
               "    rejected('first'); fulfilled(" +
               answer() + "); rejected('late'); } })");
    ask();
    EXPECT_EQ(heard(), (Lines{GetParam().heard, "promiseRejection first"}));
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_P(DraftManagerFault, OfAThenableThatSettlesBeforeItReturnsIsNone) {
    answerWith("({ then(fulfilled) { fulfilled(" + answer() + "); } })");
    ask();
    answerWith("Object.assign(() => {}, { then(fulfilled) { fulfilled(" + answer() + "); } })");
    ask();
    EXPECT_EQ(heard(), (Lines{GetParam().heard, GetParam().heard}));
}

TEST_P(DraftManagerFault, OfAThenableThatSettlesLaterIsNone) {
    answerWith("({ then(fulfilled) { late = fulfilled; } })");
    runtime.run("var late");
    ask();
    EXPECT_EQ(heard(), Lines{});
    runtime.run("late(" + answer() + ")");
    EXPECT_EQ(heard(), once(GetParam().heard));
}

TEST_P(DraftManagerFault, OfAProxyThatHidesItsThenIsNoneWhereItIsNotAsked) {
    const bool isAsked = *GetParam().withoutPromise != 0;
    Lines expected;
    for (const char* has : {"return false;", "throw new Error('mine');"}) {
        answerWith("new Proxy({}, { has() { " + std::string(has) +
                   " }, get: (target, name) =>"
                   "    name === 'then' ? (fulfilled) => fulfilled(" +
                   answer() + ") : undefined })");
        ask();
        expected.emplace_back(isAsked ? GetParam().withoutPromise : GetParam().heard);
        EXPECT_EQ(heard(), expected) << has;
    }
    EXPECT_EQ(runtime.uncaught.lines(), isAsked ? Lines{"Error: mine"} : Lines{});
}

TEST_P(DraftManagerFault, OfAThenThatIsAnotherEachTimeIsNoneBecauseItIsReadOnce) {
    answerWith("{ get then() { heard('read then'); return (fulfilled) => fulfilled(" + answer() +
               "); } }");
    ask();
    EXPECT_EQ(heard(), once(GetParam().heard));
    Lines calls = runtime.calls.lines();
    EXPECT_EQ(std::ranges::count(calls, "read then"), 1);
}

TEST_P(DraftManagerFault, OfAPromiseOfAPromiseIsNone) {
    answerWith("Promise.resolve(Promise.resolve(" + answer() + "))");
    ask();
    EXPECT_EQ(heard(), once(GetParam().heard));
}

TEST_P(DraftManagerFault, OfARejectionHasTheTextOfItsReason) {
    const std::pair<const char*, std::string> reasons[] = {
        {"undefined", GetParam().rejectedWithUndefined},
        {"", GetParam().rejectedWithUndefined},
        {"null", "promiseRejection null"},
        {"'no coverage'", "promiseRejection no coverage"},
        {"''", "promiseRejection "},
        {"new Error('not now')", "promiseRejection Error: not now"},
        {"{ error: 'not read' }", "promiseRejection [object Object]"},
        {"{ toString() { return 'mine'; } }", "promiseRejection mine"},
        {"7", "promiseRejection 7"},
        {"[1, 2]", "promiseRejection 1,2"},
        {"Object.create(null)", GetParam().rejectedWithoutText},
        {"{ toString() { throw 1; } }", GetParam().rejectedWithoutText},
        {"{ toString: null, valueOf: null }", GetParam().rejectedWithoutText},
    };
    Lines expected;
    for (const auto& [reason, text] : reasons) {
        answerWith("Promise.reject(" + std::string(reason) + ")");
        ask();
        expected.push_back(text);
        EXPECT_EQ(heard(), expected) << reason;
    }
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_P(DraftManagerFault, OfAnAnswerThatIsNoPromiseIsToldOrReported) {
    const std::pair<const char*, const char*> answers[] = {
        {"undefined", "undefined"},
        {"null", "null"},
        {"7", "a number"},
        {"'text'", "a string"},
        {"true", "a boolean"},
        {"({})", "an object"},
        {"[]", "an array"},
        {"() => {}", "a function"},
        {"Symbol()", "a symbol"},
        {"7n", "a BigInt"},
        {"({ then: undefined })", "an object"},
    };
    Lines told;
    Lines reported;
    for (const auto& [script, kind] : answers) {
        answerWith(script);
        ask();
        if (*GetParam().withoutPromise == 0) {
            reported.push_back(std::string("TypeError: ") + GetParam().function +
                               ": expected a promise, found " + kind);
        } else {
            told.push_back(GetParam().withoutPromise);
        }
        EXPECT_EQ(results.lines(), told) << script;
        EXPECT_EQ(runtime.uncaught.lines(), reported) << script;
    }
    EXPECT_EQ(heard(), told);
}

TEST_P(DraftManagerFault, OfAThenThatCannotBeCalledIsReported) {
    answerWith("({ then: 7 })");
    ask();
    answerWith("({ then() { throw new Error('no then'); } })");
    ask();
    EXPECT_EQ(heard(), Lines{});
    EXPECT_EQ(runtime.uncaught.lines(),
              (Lines{"TypeError: then: expected a function, found a number", "Error: no then"}));
}

TEST_P(DraftManagerFault, OfAThenThatThrowsBeforeItSettlesIsReportedToo) {
    runtime.run("var late");
    answerWith("({ then(fulfilled) { late = fulfilled; throw new Error('early'); } })");
    ask();
    EXPECT_EQ(runtime.uncaught.lines(), Lines{"Error: early"});
    EXPECT_EQ(heard(), Lines{});
    runtime.run("late(" + answer() + ")");
    EXPECT_EQ(heard(), once(GetParam().heard));
}

TEST_P(DraftManagerFault, OfAThenThatThrowsWhenItHasSettledIsReportedToo) {
    answerWith("({ then(fulfilled) { fulfilled(" + answer() + "); throw new Error('late'); } })");
    ask();
    EXPECT_EQ(heard(), once(GetParam().heard));
    EXPECT_EQ(runtime.uncaught.lines(), Lines{"Error: late"});
}

TEST_P(DraftManagerFault, OfAFunctionThatThrowsIsReported) {
    answerWith("(() => { throw new Error('mine'); })()");
    ask();
    runtime.run(std::string("delete draftManager.") + GetParam().function);
    ask();
    runtime.run("Object.defineProperty(draftManager, '" + std::string(GetParam().function) +
                "', { get() { throw new Error('a getter'); }, configurable: true })");
    ask();
    runtime.run("delete draftManager." + std::string(GetParam().function) + "; draftManager." +
                GetParam().function + " = 7;");
    ask();
    EXPECT_EQ(results.lines(),
              *GetParam().withoutPromise == 0 ? Lines{} : Lines(4, GetParam().withoutPromise));
    const std::string expected =
        std::string("TypeError: ") + GetParam().function + ": expected a function, found ";
    EXPECT_EQ(runtime.uncaught.lines(), (Lines{"Error: mine", expected + "undefined",
                                               "Error: a getter", expected + "a number"}));
}

TEST_P(DraftManagerFault, OfAnAnswerThatIsNoPromiseLetsGoOfTheCompletion) {
    std::weak_ptr<int> token;
    for (const char* value : {"undefined", "7", "({})"}) {
        runtime.run(std::string("on.getQueue = () => ") + value);
        auto held = std::make_shared<int>();
        token = held;
        manager->getDraftQueue([held = std::move(held)](const auto&) {});
        EXPECT_TRUE(token.expired()) << value;
    }
}

TEST_P(DraftManagerFault, OfACallerWithoutACompletionIsNone) {
    manager->getDraftQueue({});
    manager->removeItem("d1", {});
    manager->replaceItem("d1", "d2", {});
    manager->mergeAction("d1", "d2", {});
    manager->setMetadata("d1", {}, {});
    manager->addExternalAction("record", {}, {});
    manager->setExternalActionExecutor({}, {});
    runtime.run("promises.forEach((promise) => promise.resolve(queue()))");
    EXPECT_EQ(heard(), Lines{});
}

TEST_P(DraftManagerFault, OfACompletionThatThrowsIsLoggedAndNobodyElses) {
    test::LogCapture log;
    manager->getDraftQueue([](const auto&) { throw std::runtime_error("no"); });
    manager->addExternalAction("record", {}, [](const auto&) { throw std::runtime_error("no"); });
    runtime.run("promises.forEach((promise) => promise.resolve(queue()))");
    EXPECT_EQ(heard(), Lines{});
    EXPECT_EQ(log.lines(), Lines(2, "a completion threw: <private>"));
    EXPECT_EQ(runtime.uncaught.lines(), Lines{});
}

TEST_P(DraftManagerFault, OfARuntimeThatIsNoObjectIsReported) {
    auto orphan = DraftManager::create(runtime.value("7"), {}, runtime.handOverQueue);
    GetParam().ask(*orphan, results);
    EXPECT_EQ(results.lines(), once(GetParam().withoutPromise));
    EXPECT_EQ(runtime.uncaught.lines(),
              (Lines{"TypeError: registerDraftQueueChangedListener: called on a number, which is "
                     "no object",
                     std::string("TypeError: ") + GetParam().function +
                         ": called on a number, which is no object"}));
}

TEST_P(DraftManagerFault, OfAnApplicationThatLetsGoOfItsContextIsNone) {
    DraftResults late;
    js::Context context = test::makeUncheckedContext();
    test::evaluate(context, R"js(
        var item = (id) => ({ id, state: "pending", operationType: "update", timestamp: 1 });
        var queue = (...ids) => ({ queueState: "started", items: ids.map(item) });
        var draftManager = new Proxy({}, { get: (target, name) => (...values) =>
            name.startsWith("register") ? undefined
                : Promise.resolve(answer()) });
    )js");
    test::evaluate(context, "var answer = () => (" + answer() + ")");
    auto other = DraftManager::create(context.perform([](js::Scope& scope) {
        return scope.keep(scope.evaluate("draftManager", "test.js").value());
    }),
                                      {}, runtime.handOverQueue);
    context = {};
    GetParam().ask(*other, late);
    EXPECT_EQ(late.wait(1), Lines{GetParam().heard});
    other.reset();
    test::runMainQueue();
}

std::string nameOf(const testing::TestParamInfo<Operation>& operation) {
    return operation.param.function;
}
INSTANTIATE_TEST_SUITE_P(Operations, DraftManagerFault, testing::ValuesIn(operations), nameOf);

} // namespace
