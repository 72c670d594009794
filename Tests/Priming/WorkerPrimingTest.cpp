// Priming sessions of a runtime in JavaScript: what the runtime is called with, and what of its
// events reaches the application.

#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Priming/WorkerPrimingService.h>

#include <gtest/gtest.h>

#include <Support/Detached.h>
#include <Support/Engine.h>
#include <Support/Wait.h>
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using platform::Seconds;
using Code = PrimingError::ErrorCode;
using Lines = std::vector<std::string>;

constexpr Seconds limit = test::waitLimit;

/// Writes down the calls, with everything that is handed in.
constexpr const char* runtimeScript = R"js(
    var calls = [], configs = [];
    var session = {
        enqueue(...args) { calls.push(["enqueue", this === session, args]); return new Promise(() => {}); },
        cancel(...args) { calls.push(["cancel", this === session, args]); },
    };
    var runtime = { zemWorkerApi: { createPrimingSession(...args) { configs.push(args); return session; } } };
)js";

std::string textOf(const PrimingError& error) {
    std::string text =
        "error " + std::string(tessel::rawText(error.code)) + ", " + error.message + ",";
    for (const std::string& id : error.ids) {
        text += " " + id;
    }
    return text;
}

class HearingHandler final : public PrimingEventHandler {
  public:
    void onPrimed(std::vector<std::string> ids) override {
        std::string line = "primed";
        for (const std::string& id : ids) {
            line += " " + id;
        }
        hear(std::move(line));
    }
    void onError(PrimingError error) override { hear(textOf(error)); }

    std::string next() {
        happened.wait(++awaited);
        return transcript.lines().back();
    }

    test::Transcript transcript;
    test::Event happened{"an event of the session"};
    std::atomic<bool> heardInside = false;
    js::Context context;

  private:
    int awaited = 0;

    void hear(std::string line) {
        heardInside = heardInside || context.isEntered();
        transcript.add(std::move(line));
        happened.signal();
    }
};

class WorkerPrimingTest : public testing::Test {
  protected:
    WorkerPrimingTest() {
        context.setUncaughtHandler(
            [this](js::Scope&, const js::Exception& exception) { uncaught.add(exception.text()); });
        evaluate(runtimeScript);
        handler->context = context;
    }
    ~WorkerPrimingTest() override {
        handler->context = {};
        context.setUncaughtHandler(nullptr);
        evaluate("calls = configs = session = runtime = undefined");
    }

    void evaluate(const std::string& script) const { test::evaluate(context, script); }

    js::Value value(const std::string& script) const {
        return context.perform([&](js::Scope& scope) {
            return scope.keep(scope.evaluate("(" + script + ")", "test.js").value());
        });
    }

    std::shared_ptr<WorkerPrimingService> service() const {
        return WorkerPrimingService::create(value("runtime"));
    }

    PrimingService::Outcome created() const {
        const auto outcome = service()->createPrimingSession({handler}).wait(limit);
        EXPECT_TRUE(outcome.has_value()) << "waited for the session";
        return outcome.value();
    }

    std::shared_ptr<PrimingSession> session() const { return created().value(); }

    const js::Context context = test::makeContext();
    const std::shared_ptr<HearingHandler> handler = std::make_shared<HearingHandler>();
    test::Transcript uncaught;
};

TEST_F(WorkerPrimingTest, IsMadeOfTheWorkerApi) {
    EXPECT_NE(service(), nullptr);
    for (const char* runtime : {
             "{}",
             "undefined",
             "null",
             "5",
             "'text'",
             "{ zemWorkerApi: undefined }",
             "{ zemWorkerApi: 'text' }",
             "{ zemWorkerApi: {} }",
             "{ zemWorkerApi: { createPrimingSession: 'text' } }",
             "{ get zemWorkerApi() { throw 'x'; } }",
             "{ zemWorkerApi: { get createPrimingSession() { throw 'x'; } } }",
         }) {
        EXPECT_EQ(WorkerPrimingService::create(value(runtime)), nullptr) << runtime;
    }
    EXPECT_EQ(WorkerPrimingService::create({}), nullptr);
}

TEST_F(WorkerPrimingTest, CreatesASessionWithOneConfig) {
    EXPECT_NE(session(), nullptr);
    test::expectEval(context, "configs.map((args) => args.map((config) => Object.keys(config)))",
                     "array", R"([[["primingEventHandler"]]])");
    test::expectEval(context, R"js(
        const handler = configs[0][0].primingEventHandler;
        [Object.keys(handler), typeof handler.onError, handler.onError.length,
         typeof handler.onPrimed, handler.onPrimed.length])js",
                     "array", R"([["onError","onPrimed"],"function",1,"function",1])");
}

TEST_F(WorkerPrimingTest, LeavesOutAHandlerThatIsNotThere) {
    EXPECT_TRUE(service()->createPrimingSession({}).wait(limit).value());
    test::expectEval(context, "configs.map((args) => args.map((config) => Object.keys(config)))",
                     "array", "[[[]]]");
}

TEST_F(WorkerPrimingTest, FailsWhereTheRuntimeCreatesNothing) {
    for (const char* answer :
         {"undefined", "null", "5", "(() => { throw new Error('broken'); })()"}) {
        evaluate("runtime.zemWorkerApi.createPrimingSession = () => " + std::string(answer));
        EXPECT_EQ(created().error(),
                  (PrimingError{Code::unknown, "Unable to create priming session", {}}))
            << answer;
    }
    EXPECT_EQ(uncaught.lines(), Lines{"Error: broken"});
    evaluate("runtime.zemWorkerApi.createPrimingSession = {}"); // an object, but no function
    EXPECT_EQ(created().error().message, "Unable to create priming session");
}

TEST_F(WorkerPrimingTest, EnqueuesOnePieceOfWork) {
    const auto made = session();
    EXPECT_TRUE(
        made->enqueue({{"Visit", {{"v1", "v2"}, {"Name", "Date"}}}, {"Report", {{}, {"Name"}}}})
            .wait(limit)
            .value());
    test::expectEval(context, "calls", "array",
                     R"([["enqueue",true,[{"type":"record-fields","records":{)"
                     R"("Report":{"ids":[],"fields":["Name"]},)"
                     R"("Visit":{"ids":["v1","v2"],"fields":["Name","Date"]}}}]]])");
}

TEST_F(WorkerPrimingTest, EnqueuesNothingAtAll) {
    EXPECT_TRUE(session()->enqueue({}).wait(limit).value());
    test::expectEval(context, "calls", "array",
                     R"([["enqueue",true,[{"type":"record-fields","records":{}}]]])");
}

TEST_F(WorkerPrimingTest, CancelsWithoutArguments) {
    EXPECT_TRUE(session()->cancel().wait(limit).value());
    test::expectEval(context, "calls", "array", R"([["cancel",true,[]]])");
}

TEST_F(WorkerPrimingTest, CallsReachTheRuntimeInTheirOrder) {
    const auto made = session();
    std::optional<platform::Future<PrimingSession::Outcome>> last;
    for (int turn = 0; turn < 20; ++turn) {
        std::ignore = made->enqueue({{std::to_string(turn), {}}});
        last = made->cancel();
    }
    EXPECT_TRUE(last->wait(limit).value());
    std::string expected;
    for (int turn = 0; turn < 20; ++turn) {
        expected += (turn == 0 ? "" : ",") + std::to_string(turn) + ",cancel";
    }
    test::expectEval(context,
                     "calls.map(([name, , args]) => name === 'enqueue' ? "
                     "Object.keys(args[0].records)[0] : name).join()",
                     "string", expected);
}

TEST_F(WorkerPrimingTest, NeverFailsWhateverTheRuntimeDoes) {
    const auto made = session();
    evaluate("session.enqueue = () => { throw new Error('full'); }; delete session.cancel");
    EXPECT_TRUE(made->enqueue({}).wait(limit).value());
    EXPECT_TRUE(made->cancel().wait(limit).value());
    EXPECT_EQ(uncaught.lines(),
              (Lines{"Error: full", "TypeError: cancel: expected a function, found undefined"}));
}

TEST_F(WorkerPrimingTest, TellsTheHandlerWhatIsPrimed) {
    const auto made = session();
    evaluate("configs[0][0].primingEventHandler.onPrimed(['a', 'b'])");
    EXPECT_EQ(handler->next(), "primed a b");
    evaluate("configs[0][0].primingEventHandler.onPrimed([])");
    EXPECT_EQ(handler->next(), "primed");
    EXPECT_FALSE(handler->heardInside);
}

TEST_F(WorkerPrimingTest, TellsTheHandlerEveryError) {
    const auto made = session();
    const auto report = [&](const std::string& error) {
        evaluate("configs[0][0].primingEventHandler.onError(" + error + ")");
        return handler->next();
    };
    EXPECT_EQ(report("{ code: 'not-found', message: 'gone', ids: ['a', 'b'] }"),
              "error not-found, gone, a b");
    EXPECT_EQ(report("{ code: 'of a later version', message: 'm', ids: [] }"), "error unknown, m,");
    EXPECT_EQ(report("{ code: 'canceled', message: 'm' }"),
              "error unknown, ids: expected an array, found undefined,");
    EXPECT_EQ(report("'text'"), "error unknown, expected an object, found a string,");
    EXPECT_EQ(report(""), "error unknown, expected an object, found undefined,");
    EXPECT_FALSE(handler->heardInside);
}

TEST_F(WorkerPrimingTest, RefusesIdsThatAreNone) {
    const auto made = session();
    test::expectEval(context, "configs[0][0].primingEventHandler.onPrimed([1])", "exception",
                     "TypeError: WorkerPrimingEventHandler.onPrimed, argument 1: [0]: expected a "
                     "string, found a number");
    test::expectEval(context, "configs[0][0].primingEventHandler.onPrimed()", "exception",
                     "TypeError: WorkerPrimingEventHandler.onPrimed, argument 1: expected an "
                     "array, found undefined");
    EXPECT_EQ(handler->transcript.lines(), Lines{});
}

TEST_F(WorkerPrimingTest, EventsReachTheHandlerWhenTheSessionIsGone) {
    session().reset();
    evaluate("configs[0][0].primingEventHandler.onPrimed(['late'])");
    EXPECT_EQ(handler->next(), "primed late");
}

TEST_F(WorkerPrimingTest, TheRuntimeKeepsTheHandlerAndLetsItGo) {
    std::weak_ptr<HearingHandler> weak;
    {
        const auto own = std::make_shared<HearingHandler>();
        weak = own;
        EXPECT_TRUE(service()->createPrimingSession({own}).wait(limit).value());
    }
    EXPECT_FALSE(weak.expired());
    evaluate("configs = []");
    test::collectGarbage(context);
    test::waitUntil("the handler is let go of", [&] {
        test::collectGarbage(context);
        return weak.expired();
    });
}

TEST_F(WorkerPrimingTest, CallsBackOnceAwayFromTheEngine) {
    test::Event called("all callbacks");
    test::Transcript transcript;
    std::shared_ptr<PrimingSession> made;
    const auto note = [&](const std::string& line) {
        transcript.add(line + (context.isEntered() ? " inside" : ""));
        called.signal();
    };
    service()->createPrimingSession({}, [&](PrimingService::Outcome outcome) {
        made = outcome.value();
        note("created");
    });
    called.wait(1);
    made->enqueue({},
                  [&](PrimingSession::Outcome outcome) { note(outcome ? "enqueued" : "failed"); });
    called.wait(2);
    made->cancel([&](PrimingSession::Outcome outcome) { note(outcome ? "canceled" : "failed"); });
    called.wait(3);
    made->cancel(nullptr); // nobody wants to hear
    EXPECT_EQ(transcript.lines(), (Lines{"created", "enqueued", "canceled"}));
}

TEST_F(WorkerPrimingTest, IsAwaited) {
    test::Event ended("the coroutine's end");
    [](std::shared_ptr<PrimingService> service, test::Event& end) -> test::Detached {
        const auto session = co_await service->createPrimingSession({});
        EXPECT_TRUE((co_await session.value()->enqueue({})).has_value());
        EXPECT_TRUE((co_await session.value()->cancel()).has_value());
        end.signal();
    }(service(), ended);
    ended.wait();
    test::expectEval(context, "calls.map(([name]) => name).join()", "string", "enqueue,cancel");
}

TEST(WorkerPrimingThreadTest, AnswersWhenTheContextsThreadHasEnded) {
    auto thread = std::make_optional<platform::RunLoopThread>("short");
    std::shared_ptr<WorkerPrimingService> service;
    std::shared_ptr<PrimingSession> session;
    js::Value runtime;
    {
        const auto context = js::Context::create(thread->runLoop());
        test::evaluate(context, runtimeScript);
        runtime = context.perform([](js::Scope& scope) {
            return scope.keep(scope.evaluate("runtime", "test.js").value());
        });
        service = WorkerPrimingService::create(runtime);
        session = service->createPrimingSession({}).wait(limit).value().value();
    }
    thread.reset();
    EXPECT_EQ(service->createPrimingSession({}).wait(limit).value().error().message,
              "Unable to create priming session");
    EXPECT_TRUE(session->enqueue({}).wait(limit).value());
    EXPECT_TRUE(session->cancel().wait(limit).value());
    EXPECT_EQ(WorkerPrimingService::create(runtime), nullptr);
}

} // namespace
