#include <zem/Platform/RunLoop.h>

#include <boost/describe.hpp>

#include <Support/CountingRunLoop.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
#include <Tessel/Bridge.h>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

using test::evaluate;
using test::expectEval;

namespace {

using zem::js::Context;
using zem::js::Exception;
using zem::js::Scope;

struct Handlers {
    tessel::Callback<std::string> onResult;
    std::optional<tessel::Callback<>> onError;
};
BOOST_DESCRIBE_STRUCT(Handlers, (), (onResult, onError))

/// Keeps the functions that it is given.
class Keeper : public tessel::Plugin, public std::enable_shared_from_this<Keeper> {
  public:
    std::string_view namespace_() const override { return "ZemKeeper"; }
    void bind(tessel::Connection& to) override {
        to.bind<"keep", &Keeper::keep>(*this);
        to.bind<"listen", &Keeper::listen>(*this);
        to.bind<"callNow", &Keeper::callNow>(*this);
        to.bind<"pair", &Keeper::pair>(*this);
        to.bind<"drop", &Keeper::drop>(*this);
    }
    void keep(tessel::Callback<std::string> callback) { kept.push_back(std::move(callback)); }
    void listen(tessel::Callback<std::string> callback) { kept.push_back(callback.asListener()); }
    void callNow(tessel::Callback<std::string> callback) { callback("x"); }
    void pair(tessel::Callback<>, double) {}
    void drop() { kept.clear(); }

    std::vector<tessel::Callback<std::string>> kept;
};

class Callback : public test::Bridge {
  protected:
    void SetUp() override {
        connection->add(*keeper);
        context.setUncaughtHandler(
            [this](Scope&, const Exception& exception) { uncaught.add(exception.text()); });
        evaluate(context, "var heard = [];");
    }

    void TearDown() override { context.setUncaughtHandler(nullptr); }

    /// The callback of a function that the script gives to ZemKeeper.keep.
    tessel::Callback<std::string> kept(const std::string& function) {
        evaluate(context, "ZemKeeper.keep(" + function + ")");
        auto callback = std::move(keeper->kept.back());
        keeper->kept.pop_back();
        return callback;
    }

    test::Transcript uncaught;
    std::shared_ptr<Keeper> keeper = std::make_shared<Keeper>();
};

bool bound() {
    return test::engineEntry == test::EngineEntry::bound;
}

} // namespace

TEST_F(Callback, CallsTheFunctionWithEncodedArguments) {
    evaluate(context, "function hear(...values) { heard.push(values); }");
    const auto hear = [&]<class... Types>(tessel::Callback<Types...>&&, Types... values) {
        decoded<tessel::Callback<Types...>>("hear").value()(std::move(values)...);
    };
    hear(tessel::Callback<>());
    hear(tessel::Callback<std::string, double>(), std::string("a"), 2.5);
    hear(tessel::Callback<std::optional<std::string>>(), std::optional<std::string>());
    hear(tessel::Callback<std::map<std::string, std::vector<double>>>(),
         std::map<std::string, std::vector<double>>{{"a", {1, 2}}});
    expectEval(context, "heard", "array", R"([[],["a",2.5],[null],[{"a":[1,2]}]])");
}

TEST_F(Callback, CallsWithValuesOfTheEngineItself) {
    const auto callback =
        decoded<tessel::Callback<zem::js::Value>>("(value) => heard.push(value === globalThis)")
            .value();
    callback(context.perform([](Scope& scope) { return scope.keep(scope.global()); }));
    expectEval(context, "heard", "array", "[true]");
}

TEST_F(Callback, TheFunctionHasNoReceiver) {
    kept("function () { 'use strict'; heard.push(this === undefined || this === globalThis); }")(
        "");
    expectEval(context, "heard", "array", "[true]");
}

TEST_F(Callback, OnlyFunctionsAreCallbacks) {
    using Any = tessel::Callback<>;
    EXPECT_EQ(failure<Any>("({})"), "expected a function, found an object");
    EXPECT_EQ(failure<Any>("'x'"), "expected a function, found a string");
    EXPECT_EQ(failure<Any>("null"), "expected a function, found null");
    EXPECT_EQ(failure<Any>("undefined"), "expected a function, found undefined");
    EXPECT_EQ(failure<Any>("({call() {}})"), "expected a function, found an object");
    for (const char* script :
         {"(() => heard.push(1))", "new Proxy(() => heard.push(2), {})",
          "(function (n) { heard.push(n); }).bind(null, 3)", "heard.push.bind(heard, 4)"}) {
        decoded<Any>(script).value()();
    }
    expectEval(context, "heard", "array", "[1,2,3,4]");
}

TEST_F(Callback, LiesInRecordsOptionalsAndArrays) {
    const Handlers handlers = decoded<Handlers>("({onResult: (text) => heard.push(text)})").value();
    handlers.onResult("a");
    EXPECT_FALSE(handlers.onError);
    EXPECT_EQ(failure<Handlers>("({onResult() {}, onError: 3})"),
              "onError: expected a function, found a number");
    const auto listed =
        decoded<std::vector<tessel::Callback<>>>("[1, 2].map((n) => () => heard.push(n))");
    for (const auto& callback : listed.value()) {
        callback();
    }
    expectEval(context, "heard", "array", R"(["a",1,2])");
}

TEST_F(Callback, OneThatHoldsNothingThrows) {
    const tessel::Callback<std::string> empty;
    EXPECT_FALSE(empty);
    EXPECT_THROW(empty("x"), std::bad_function_call);
}

TEST_F(Callback, CalledFromItsMethodItRunsBeforeOrAfterByTheWayIn) {
    evaluate(context, R"(
        ZemKeeper.callNow(() => heard.push('called'));
        heard.push('returned');)");
    expectEval(context, "heard", "array",
               bound() ? R"(["returned","called"])" : R"(["called","returned"])");
}

TEST_F(Callback, CalledFromAnotherThreadItDoesNotWaitForRunningScripts) {
    if (!bound()) {
        const auto callback = kept("(text) => heard.push(text)");
        std::thread([&] { callback("x"); }).join();
        expectEval(context, "heard", "array", R"(["x"])");
        return;
    }
    // The engine's thread is busy until the call has returned on another one.
    const auto callback = kept("(text) => heard.push(text)");
    test::Event called("the call returned");
    context.perform([&](Scope&) {
        std::thread([&] {
            callback("x");
            called.signal();
        }).detach();
        called.wait();
    });
    expectEval(context, "heard", "array", R"(["x"])");
}

TEST_F(Callback, CallsKeepTheOrderInWhichThreadsMadeThem) {
    const auto callback = kept("(text) => heard.push(text)");
    std::string expected;
    for (int turn = 0; turn < 50; ++turn) {
        std::thread([&] { callback(std::to_string(turn)); }).join();
        callback("main");
        expected += std::to_string(turn) + ",main,";
    }
    EXPECT_EQ(eval("heard.map((text) => text + ',').join('')"), expected);
}

TEST_F(Callback, MayBeCalledCopiedAndDroppedOnManyThreadsAtOnce) {
    const auto callback = kept("(text) => heard.push(text)");
    constexpr int threads = 4;
    constexpr int calls = 100;
    std::vector<std::thread> callers;
    for (int thread = 0; thread < threads; ++thread) {
        callers.emplace_back([copy = callback, thread] {
            for (int call = 0; call < calls; ++call) {
                const auto another = copy;
                another(std::to_string(thread) + ":" + std::to_string(call));
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(eval("heard.length"), "400");
    for (int thread = 0; thread < threads; ++thread) {
        const std::string mine = std::to_string(thread) + ":";
        std::string expected;
        for (int call = 0; call < calls; ++call) {
            expected += mine + std::to_string(call) + " ";
        }
        EXPECT_EQ(eval("heard.filter((text) => text.startsWith('" + mine +
                       "')).map((text) => text + ' ').join('')"),
                  expected);
    }
}

TEST_F(Callback, WhatTheFunctionThrowsReachesTheUncaughtHandlerOnce) {
    const auto callback = kept("(text) => { heard.push(text); throw new RangeError(text); }");
    callback("a");
    std::thread([&] { callback("b"); }).join();
    expectEval(context, "heard", "array", R"(["a","b"])");
    EXPECT_EQ(uncaught.lines(), (std::vector<std::string>{"RangeError: a", "RangeError: b"}));
}

TEST_F(Callback, WhatTheFunctionThrowsStaysOutOfTheMethodThatCalledIt) {
    expectEval(context, "ZemKeeper.callNow(() => { throw 'x'; }); 'went on'", "string", "went on");
    expectEval(context, "'fence'", "string", "fence");
    EXPECT_EQ(uncaught.lines(), (std::vector<std::string>{"x"}));
}

TEST_F(Callback, CallingAClassIsAnUncaughtException) {
    kept("class {}")("");
    expectEval(context, "'fence'", "string", "fence");
    ASSERT_EQ(uncaught.lines().size(), 1u);
    EXPECT_TRUE(uncaught.lines()[0].starts_with("TypeError: Cannot call a class constructor"))
        << uncaught.lines()[0];
}

TEST_F(Callback, CopiesShareOneHandle) {
    const std::size_t before = context.handleCount();
    {
        const auto callback = kept("() => 0");
        const auto copy = callback;
        const auto listener = callback.asListener();
        EXPECT_EQ(context.handleCount(), before + 1);
        EXPECT_TRUE(copy.target().value().isSameHandle(listener.target().value()));
    }
    EXPECT_EQ(context.handleCount(), before);
}

TEST_F(Callback, MayBeDroppedOnAnyThread) {
    const std::size_t before = context.handleCount();
    auto callback = std::make_unique<tessel::Callback<std::string>>(kept("() => 0"));
    std::thread([&] { callback.reset(); }).join();
    EXPECT_EQ(context.handleCount(), before);
}

TEST_F(Callback, MayBeDroppedWhileItsFunctionRuns) {
    const std::size_t before = context.handleCount();
    evaluate(context, "ZemKeeper.keep((text) => { ZemKeeper.drop(); heard.push(text); })");
    {
        // Not a copy: the plugin's is the only one.
        const auto& callback = keeper->kept.front();
        callback("x");
    }
    expectEval(context, "heard", "array", R"(["x"])");
    EXPECT_TRUE(keeper->kept.empty());
    EXPECT_EQ(context.handleCount(), before);
}

TEST_F(Callback, MayBeCalledWhenConnectionAndPluginAreGone) {
    const auto callback = kept("(text) => heard.push(text)");
    connection.reset();
    keeper.reset();
    callback("x");
    expectEval(context, "heard", "array", R"(["x"])");
}

TEST_F(Callback, KeepsItsContextAlive) {
    test::Arrival<std::string> arrived("the call");
    std::optional<tessel::Callback<std::string>> callback;
    {
        const Context mine = test::makeUncheckedContext();
        test::setFunction(mine, "arrive", 1,
                          [&](Scope& scope, zem::js::Local,
                              zem::js::Arguments arguments) -> zem::js::Result<zem::js::Local> {
                              arrived.put(scope.toText(arguments[0]));
                              return scope.undefined();
                          });
        tessel::Connection own(mine);
        own.add(*keeper);
        evaluate(mine, "ZemKeeper.keep((text) => arrive(text + '!'))");
        callback = std::move(keeper->kept.back());
        keeper->kept.clear();
    }
    (*callback)("still here");
    EXPECT_EQ(arrived.get(), "still here!");
    std::thread([&] { callback.reset(); }).join();
}

TEST_F(Callback, ACallAfterTheContextsThreadHasEndedIsDropped) {
    auto thread = std::make_optional<zem::platform::RunLoopThread>("short");
    std::optional<tessel::Callback<std::string>> callback;
    {
        const Context mine = Context::create(thread->runLoop());
        tessel::Connection own(mine);
        own.add(*keeper);
        evaluate(mine, "ZemKeeper.keep((text) => 0)");
        callback = std::move(keeper->kept.back());
        keeper->kept.clear();
    }
    thread.reset();
    (*callback)("x");
    std::move(*callback).callInLane("x");
    callback.reset();
}

TEST_F(Callback, CalledForTheLastTimeItHoldsNothing) {
    auto callback = kept("(text) => heard.push(text)");
    const std::size_t before = context.handleCount();
    std::move(callback)("x");
    EXPECT_FALSE(callback);
    EXPECT_THROW(std::move(callback)("y"), std::bad_function_call);
    expectEval(context, "heard", "array", R"(["x"])");
    EXPECT_EQ(context.handleCount(), before - 1);
    EXPECT_EQ(connection->activity().outstanding(), 0u);
}

TEST_F(Callback, CalledInTheLaneItHasRunBeforeTheCallReturns) {
    auto callback = kept("(text) => { heard.push(text); throw 'x'; }");
    const std::size_t before = context.handleCount();
    test::Event called("the call returned");
    context.lane()->async([&] {
        std::move(callback).callInLane("x");
        EXPECT_EQ(context.handleCount(), before - 1);
        expectEval(context, "heard", "array", R"(["x"])");
        called.signal();
    });
    called.wait();
    EXPECT_FALSE(callback);
    EXPECT_THROW(std::move(callback).callInLane("y"), std::bad_function_call);
    EXPECT_EQ(connection->activity().outstanding(), 0u);
}

// A handle that is dropped outside of the engine takes another entry to be let go of.
TEST_F(Callback, CalledForTheLastTimeItWakesTheEnginesThreadOnce) {
    zem::platform::RunLoopThread thread("engine");
    const auto loop = std::make_shared<test::CountingRunLoop>(thread.runLoop());
    const Context mine = Context::create(loop);
    tessel::Connection own(mine);
    own.add(*keeper);
    evaluate(mine, "var heard = []; for (let i = 0; i < 10; ++i)"
                   "    ZemKeeper.keep((text) => heard.push(text))");
    int before = loop->posts();
    for (auto& callback : std::exchange(keeper->kept, {})) {
        std::thread([&] { std::move(callback)("x"); }).join();
    }
    mine.perform([](Scope&) {}); // behind the calls
    EXPECT_EQ(loop->posts() - before, 10 + 1);

    // Captures of the function that makes the arguments are let go of in the same entry.
    evaluate(mine, "ZemKeeper.keep((text) => heard.push(text))");
    evaluate(mine, "ZemKeeper.keep((text) => heard.push(text))");
    before = loop->posts();
    auto uncalled = std::move(keeper->kept[0]);
    std::move(keeper->kept[1]).callWith([uncalled = std::move(uncalled)](Scope& scope) {
        return std::array{scope.string("y")};
    });
    keeper->kept.clear();
    mine.perform([](Scope&) {});
    EXPECT_EQ(loop->posts() - before, 1 + 1);
    expectEval(mine, "heard.join('')", "string", "xxxxxxxxxxy");
    EXPECT_EQ(mine.handleCount(), 0u);
}

TEST_F(Callback, CountsAsOutstandingWhileACopyLives) {
    tessel::Activity& activity = connection->activity();
    EXPECT_EQ(activity.outstanding(), 0u);
    {
        const auto first = kept("() => 0");
        const auto copy = first;
        EXPECT_EQ(activity.outstanding(), 1u);
        const auto second = kept("() => 0");
        EXPECT_EQ(activity.outstanding(), 2u);
    }
    EXPECT_EQ(activity.outstanding(), 0u);
}

TEST_F(Callback, AListenerDoesNotCount) {
    evaluate(context, "ZemKeeper.listen((text) => heard.push(text))");
    EXPECT_EQ(connection->activity().outstanding(), 0u);
    keeper->kept.front()("x");
    expectEval(context, "heard", "array", R"(["x"])");
    keeper->drop();
}

TEST_F(Callback, TheIdleHandlerHearsTheLastOneGo) {
    test::Transcript transcript;
    connection->activity().setIdleHandler([&] { transcript.add("idle"); });
    auto first = kept("() => 0");
    auto second = kept("() => 0");
    first = {};
    transcript.add("first dropped");
    std::thread([&] { second = {}; }).join();
    transcript.add("second dropped");
    EXPECT_EQ(transcript.lines(),
              (std::vector<std::string>{"first dropped", "idle", "second dropped"}));
    connection->activity().setIdleHandler(nullptr);
}

TEST_F(Callback, ACallThatHasNotRunYetCounts) {
    test::Transcript transcript;
    test::Event idle("idle");
    connection->activity().setIdleHandler([&] {
        transcript.add("idle");
        idle.signal();
    });
    test::setFunction(
        context, "note", 0,
        [&](Scope& scope, zem::js::Local, zem::js::Arguments) -> zem::js::Result<zem::js::Local> {
            transcript.add("called");
            return scope.undefined();
        });
    {
        auto callback = kept("() => note()");
        context.perform([&](Scope&) {
            callback("x");
            callback = {};
        });
    }
    idle.wait();
    EXPECT_EQ(transcript.lines(), (std::vector<std::string>{"called", "idle"}));
    connection->activity().setIdleHandler(nullptr);
}

TEST_F(Callback, OneThatWasDecodedBeforeAFailureIsGivenBack) {
    const std::size_t before = context.handleCount();
    expectEval(context, "ZemKeeper.pair(() => 0, 'x')", "exception",
               "TypeError: ZemKeeper.pair, argument 2: expected a number, found a string");
    EXPECT_EQ(connection->activity().outstanding(), 0u);
    EXPECT_EQ(context.handleCount(), before);
}

TEST_F(Callback, PromiseJobsRunWithTheCall) {
    kept("(text) => { Promise.resolve(text).then((t) => heard.push(t)); heard.push('first'); }")(
        "then");
    expectEval(context, "heard", "array", R"(["first","then"])");
}
