// The door of a group: whichever of its contexts is entered, and whoever made them, one thread is
// in.

#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Private/Door.h>
#include <zem/Platform/RunLoop.h>

#include <JavaScriptCore/JavaScript.h>
#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using test::onEngineThread;
using zem::js::Arguments;
using zem::js::Context;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;

constexpr int rounds = 50;

void inParallel(const std::vector<std::function<void()>>& works) {
    std::vector<std::thread> threads;
    threads.reserve(works.size());
    for (const auto& work : works) {
        threads.emplace_back([&work] {
            for (int round = 0; round < rounds; ++round) {
                work();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Two contexts of one group, of the application's own.
class Door : public testing::Test {
  protected:
    Door() {
        onEngineThread([this] {
            group = JSContextGroupCreate();
            first = JSGlobalContextCreateInGroup(group, nullptr);
            second = JSGlobalContextCreateInGroup(group, nullptr);
        });
    }

    ~Door() override {
        onEngineThread([this] {
            JSGlobalContextRelease(first);
            JSGlobalContextRelease(second);
            JSContextGroupRelease(group);
        });
        EXPECT_EQ(meetings, 0);
    }

    Context adopt(JSGlobalContextRef global) {
        return Context::adopt(global, test::engineRunLoop());
    }

    /// Gives the context's JavaScript a function that notices any other thread inside the group.
    void watch(const Context& context) {
        test::setFunction(context, "native", 0,
                          [this](Scope& scope, Local, Arguments) -> Result<Local> {
                              meetings += inside++;
                              ++calls;
                              test::letOthersIn(scope);
                              --inside;
                              return scope.undefined();
                          });
    }

    /// Work behind the door: has promise jobs call the native function.
    std::function<void(Scope&)> runJobs = [this](Scope& scope) {
        meetings += inside;
        EXPECT_TRUE(scope.evaluate("Promise.resolve().then(native).then(native)", ""));
        meetings += inside;
    };

    JSContextGroupRef group = nullptr;
    JSGlobalContextRef first = nullptr;
    JSGlobalContextRef second = nullptr;
    std::atomic<int> inside = 0;
    std::atomic<int> meetings = 0;
    std::atomic<int> calls = 0;
};

TEST_F(Door, IsOneForTheContextsOfAGroup) {
    const Context one = adopt(first);
    const Context other = adopt(second);
    watch(one);
    watch(other);
    inParallel({[&] { one.perform(runJobs); }, [&] { other.perform(runJobs); },
                [&] { one.perform([&](Scope&) { other.perform(runJobs); }); },
                [&] {
                    other.perform([&](Scope&) { one.perform(runJobs); });
                }});
    EXPECT_EQ(calls, 4 * rounds * 2);
}

// The application's thread uses the C API as it always did, within `perform`.
TEST_F(Door, IsTheApplicationsToo) {
    const Context context = adopt(first);
    watch(context);
    JSStringRef script = JSStringCreateWithUTF8CString("Promise.resolve().then(native)");
    inParallel({[&] { context.perform(runJobs); }, [&] { context.perform(runJobs); },
                [&] {
                    context.perform([&](Scope&) {
                        meetings += inside;
                        JSEvaluateScript(first, script, nullptr, nullptr, 1, nullptr);
                    });
                }});
    JSStringRelease(script);
    EXPECT_EQ(calls, rounds * 5);
}

TEST_F(Door, IsTakenToAdoptAContext) {
    const Context context = adopt(first);
    test::Event atTheDoor("another thread about to adopt");
    test::Transcript transcript;
    std::thread other;
    context.perform([&](Scope& scope) {
        other = std::thread([&] {
            atTheDoor.signal();
            (void)adopt(second);
            transcript.add("adopted");
        });
        atTheDoor.wait();
        test::letOthersIn(scope);
        transcript.add("work done");
    });
    other.join();
    EXPECT_EQ(transcript.lines(), (std::vector<std::string>{"work done", "adopted"}));
}

// A bound one is let go of on its own thread, later.
TEST_F(Door, IsTakenToLetAContextGo) {
    const Context context = adopt(first);
    Context another = adopt(second);
    test::Event atTheDoor("another thread about to let go");
    test::Transcript transcript;
    std::thread other;
    context.perform([&](Scope& scope) {
        other = std::thread([&] {
            atTheDoor.signal();
            another = {};
            onEngineThread([&] { transcript.add("let go"); });
        });
        atTheDoor.wait();
        test::letOthersIn(scope);
        transcript.add("work done");
    });
    other.join();
    EXPECT_EQ(transcript.lines(), (std::vector<std::string>{"work done", "let go"}));
}

// Contexts of ZEM's own are groups of their own; a thread may be in several.
TEST_F(Door, OfAnAdoptedContextIsEnteredFromThoseOfOwnContexts) {
    const Context adopted = adopt(first);
    watch(adopted);
    const Context own = test::makeContext();
    inParallel({[&] { adopted.perform(runJobs); },
                [&] { own.perform([&](Scope&) { adopted.perform(runJobs); }); },
                [&] {
                    const Context passing = test::makeUncheckedContext();
                    passing.perform([&](Scope&) { adopted.perform(runJobs); });
                }});
    EXPECT_EQ(calls, 3 * rounds * 2);
}

// One thread goes from the first engine into the second, while a thread in the second answers the
// first.
TEST(TwoEngines, AnAnswerDoesNotWaitForTheOtherEngine) {
    const zem::platform::RunLoopThread callingThread("calling engine");
    const zem::platform::RunLoopThread answeringThread("answering engine");
    const auto makeContext = [](const zem::platform::RunLoopThread& thread) {
        return test::engineEntry == test::EngineEntry::bound ? Context::create(thread.runLoop())
                                                             : Context::create();
    };
    const Context calling = makeContext(callingThread);
    const Context answering = makeContext(answeringThread);
    test::Event inCalling("a thread inside the calling engine");
    test::Event inAnswering("a thread inside the answering engine");
    test::Event called("the call");
    test::Event answered("the answer");
    std::thread caller([&] {
        calling.perform([&](Scope&) {
            inCalling.signal();
            inAnswering.wait();
            answering.perform([&](Scope&) { called.signal(); });
        });
    });
    answering.perform([&](Scope&) {
        inAnswering.signal();
        inCalling.wait();
        calling.async([&](Scope&) { answered.signal(); });
    });
    called.wait();
    answered.wait();
    caller.join();
}

TEST_F(Door, LetsAThreadInAgain) {
    const Context context = adopt(first);
    test::setFunction(context, "native", 0, [&](Scope&, Local, Arguments) {
        return context.perform([](Scope& again) { return again.evaluate("6 * 7", ""); });
    });
    test::expectEval(context, "native()", "number", "42");
}

TEST_F(Door, IsLeftToAThreadThatWaitsAfterSixteenEntries) {
    const auto door = zem::js::Door::of(group);
    std::atomic<bool> wasIn = false;
    door->lock();
    std::thread waiting([&] {
        const std::scoped_lock entry(*door);
        wasIn = true;
    });
    test::waitUntil("a thread at the head of the line", [&] { return door->isAwaited(); });
    door->unlock();
    const auto enterAgain = [&] {
        const std::scoped_lock entry(*door);
    };
    for (int overtaking = 0; overtaking < 16; ++overtaking) {
        enterAgain();
    }
    enterAgain();
    EXPECT_TRUE(wasIn);
    waiting.join();
}

} // namespace
