// Contexts that the application made itself.

#include <zem/JavaScript/Context.h>
#include <zem/Platform/RunLoop.h>

#include <JavaScriptCore/JavaScript.h>
#include <gtest/gtest.h>

#include <JavaScript/Lives.h>
#include <Support/Engine.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// Exported by the engine, though its installed headers do not declare it.
extern "C" JSObjectRef JSGetMemoryUsageStatistics(JSContextRef context);

namespace {

using test::onEngineThread;
using zem::js::Arguments;
using zem::js::Context;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;
using zem::js::Value;

class AdoptedContext : public testing::Test {
  protected:
    AdoptedContext() {
        onEngineThread([&] { application = JSGlobalContextCreate(nullptr); });
        context = Context::adopt(application, test::engineRunLoop());
    }

    ~AdoptedContext() override {
        letGo();
        releaseApplications();
    }

    void releaseApplications() {
        if (application != nullptr) {
            onEngineThread([&] { JSGlobalContextRelease(application); });
            application = nullptr;
        }
    }

    /// Returns when our side is gone, its thread's part included.
    void letGo() {
        context = {};
        onEngineThread([] {});
    }

    /// The text of a script's value or exception. The application evaluates it, without ZEM.
    std::string evaluateByApplication(const char* source) {
        std::string text;
        onEngineThread([&] {
            JSStringRef script = JSStringCreateWithUTF8CString(source);
            JSValueRef thrown = nullptr;
            JSValueRef value = JSEvaluateScript(application, script, nullptr, nullptr, 1, &thrown);
            JSStringRelease(script);
            JSStringRef copy =
                JSValueToStringCopy(application, thrown != nullptr ? thrown : value, nullptr);
            std::vector<char> buffer(JSStringGetMaximumUTF8CStringSize(copy));
            JSStringGetUTF8CString(copy, buffer.data(), buffer.size());
            JSStringRelease(copy);
            text = buffer.data();
        });
        return text;
    }

    JSGlobalContextRef application = nullptr;
    Context context;
};

TEST_F(AdoptedContext, IsTheApplicationsOwn) {
    EXPECT_EQ(evaluateByApplication("var mine = 'application'; mine"), "application");
    test::expectEval(context, "mine", "string", "application");
    test::evaluate(context, "var ours = 'library'");
    EXPECT_EQ(evaluateByApplication("ours"), "library");
}

TEST_F(AdoptedContext, CallsUsWithoutHavingEnteredThroughUs) {
    test::setFunction(context, "native", 1,
                      [this](Scope& scope, Local, Arguments arguments) -> Result<Local> {
                          EXPECT_TRUE(context.isEntered());
                          return scope.string("got " + scope.toText(arguments[0]));
                      });
    EXPECT_EQ(evaluateByApplication("native('this')"), "got this");
    EXPECT_FALSE(context.isEntered());
}

TEST_F(AdoptedContext, OutlivesTheApplicationsReference) {
    const Value kept =
        context.perform([](Scope& scope) { return scope.keep(scope.string("kept")); });
    releaseApplications();
    test::expectEval(context, "1 + 1", "number", "2");
    context = {};
    EXPECT_EQ(kept.context().perform([&](Scope& scope) { return scope.toText(scope.local(kept)); }),
              "kept");
}

TEST_F(AdoptedContext, FunctionsThrowOnceTheNativeSideIsGone) {
    test::setFunction(context, "native", 0, [](Scope& scope, Local, Arguments) -> Result<Local> {
        return scope.string("here");
    });
    EXPECT_EQ(evaluateByApplication("native()"), "here");
    letGo();
    EXPECT_EQ(evaluateByApplication("native()"), "Error: the native side of this function is gone");
    EXPECT_EQ(evaluateByApplication("try { native() } catch (error) { error instanceof Error }"),
              "true");
}

TEST_F(AdoptedContext, ClosuresGoWithTheirFunctionsWhenTheNativeSideIsGone) {
    test::Lives lives;
    test::setFunction(context, "native", 0,
                      [life = lives.begin()](Scope& scope, Local, Arguments) -> Result<Local> {
                          return scope.undefined();
                      });
    letGo();
    EXPECT_EQ(lives.ended(), 0);
    releaseApplications();
    lives.waitForEnd();
}

TEST_F(AdoptedContext, MayBeLetGoOfByOneOfItsOwnFunctions) {
    test::setFunction(context, "leave", 0, [this](Scope& scope, Local, Arguments) -> Result<Local> {
        context = {};
        return scope.string("left");
    });
    EXPECT_EQ(evaluateByApplication("leave()"), "left");
    onEngineThread([] {});
    EXPECT_EQ(evaluateByApplication("leave()"), "Error: the native side of this function is gone");
}

TEST_F(AdoptedContext, LeavesNoInterruptHandlerBehind) {
    int asked = 0;
    ASSERT_TRUE(context.setInterruptHandler([&] {
        ++asked;
        return true;
    }));
    test::expectEval(context, "while (true) {}", "exception", "JavaScript execution terminated.");
    EXPECT_EQ(asked, 1);
    letGo();
    EXPECT_EQ(evaluateByApplication("let n = 0; for (let i = 0; i < 3e7; ++i) n = i; n"),
              "29999999");
    EXPECT_EQ(asked, 1);
}

TEST_F(AdoptedContext, LeavesNoRejectionHandlerBehind) {
    test::Transcript transcript;
    ASSERT_TRUE(context.setRejectionHandler(
        [&](Scope&, const zem::js::Exception& reason) { transcript.add(reason.text()); }));
    EXPECT_EQ(evaluateByApplication("Promise.reject('heard'); 1"), "1");
    letGo();
    EXPECT_EQ(evaluateByApplication("Promise.reject('unheard'); 1"), "1");
    EXPECT_EQ(transcript.lines(), std::vector<std::string>{"heard"});
}

TEST_F(AdoptedContext, MayBeAdoptedTwice) {
    Context again = Context::adopt(application, test::engineRunLoop());
    test::setFunction(context, "first", 0, [](Scope& scope, Local, Arguments) -> Result<Local> {
        return scope.string("first");
    });
    test::expectEval(again, "first()", "string", "first");
    EXPECT_FALSE(again == context);
    const Value held = again.perform([](Scope& scope) { return scope.keep(scope.object()); });
    EXPECT_EQ(again.handleCount(), 1u);
    EXPECT_EQ(context.handleCount(), 0u);
    letGo();
    test::expectEval(again, "try { first() } catch (error) { error.message }", "string",
                     "the native side of this function is gone");
}

TEST_F(AdoptedContext, NeedNotHaveTheUsualGlobals) {
    EXPECT_EQ(evaluateByApplication(
                  "delete globalThis.TypeError; String = 5; Object.defineProperty(globalThis, "
                  "'RangeError', {get() { throw 'no' }}); 'done'"),
              "done");
    const Context bare = Context::adopt(application, test::engineRunLoop());
    bare.perform([](Scope& scope) {
        EXPECT_EQ(scope.fail(zem::js::ErrorType::typeError, "x").error().text(), "Error: x");
        EXPECT_EQ(scope.fail(zem::js::ErrorType::rangeError, "x").error().text(), "Error: x");
        EXPECT_EQ(scope.describe(*scope.evaluate("Symbol('s')", "")), "a symbol");
    });
    test::setFunction(bare, "f", 1, [](Scope& scope, Local, Arguments) -> Result<Local> {
        return scope.undefined();
    });
    test::expectEval(bare, "f instanceof Function && f.length", "number", "1");
}

// As many functions come and go as may: the engine's heap is the same afterwards.
TEST_F(AdoptedContext, HeapDoesNotGrowWithFunctionsMadeAndDropped) {
    const auto heapObjects = [&] {
        test::collectGarbage(context);
        double count = 0;
        onEngineThread([&] {
            JSObjectRef statistics = JSGetMemoryUsageStatistics(application);
            JSStringRef name = JSStringCreateWithUTF8CString("objectCount");
            count = JSValueToNumber(
                application, JSObjectGetProperty(application, statistics, name, nullptr), nullptr);
            JSStringRelease(name);
        });
        return count;
    };
    const auto makeSome = [&] {
        context.perform([](Scope& scope) {
            for (int index = 0; index < 10'000; ++index) {
                (void)scope.function("f", 0,
                                     [text = std::string(100, 'x')](Scope& inner, Local, Arguments)
                                         -> Result<Local> { return inner.string(text); });
            }
        });
    };
    makeSome();
    const double before = heapObjects();
    for (int round = 0; round < 10; ++round) {
        makeSome();
        test::collectGarbage(context);
    }
    EXPECT_NEAR(heapObjects(), before, 1000);
}

} // namespace
