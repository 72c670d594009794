// The promises of every facade that calls back, about its beginning and its end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Core/Facades.h>
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
using test::AnsweringRuntime;
using test::Heard;
using test::Journal;
using test::ServiceRuntime;
using testing::UnorderedElementsAreArray;
using Lines = std::vector<std::string>;

template <class Facade>
class FacadeLifecycle : public testing::Test {
  protected:
    ~FacadeLifecycle() override { expectNothingMore(); }

    /// Returns when all work set going has come to its end.
    static void settle(AnsweringRuntime& runtime) {
        test::waitUntil("the end of all adapter calls",
                        [] { return SharedPriorityQueue::priority()->operationCount() == 0; });
        test::runMainQueue();
        runtime.context.perform([](js::Scope&) {});
    }

    static void expectNothingMore() {
        test::runMainQueue();
        ServiceRuntime probe;
        probe.expectAllSlotsFree();
    }

    /// Of these calls of the runtime, those that this facade makes.
    static Lines ofFacade(Lines calls) {
        std::erase_if(calls, [](const std::string& call) {
            return !Facade::hasListenersInTheRuntime && !call.starts_with("invoke");
        });
        return calls;
    }

    /// The runtime has heard of all these, in some order, and of nothing else.
    static void expectCalls(AnsweringRuntime& runtime, const Lines& calls) {
        const Lines expected = ofFacade(calls);
        EXPECT_THAT(runtime.calls->wait(static_cast<int>(expected.size())),
                    UnorderedElementsAreArray(expected));
    }

    Heard hear(const std::string& name) {
        return [this, name](const std::string& text) {
            heard.add(name + ": " + text);
        };
    }

    Journal heard{"a result"};
};

using Facades = testing::Types<test::DirectDataService, test::HandedOverDataService,
                               test::DirectDrafts, test::HandedOverDrafts>;

class FacadeNames {
  public:
    template <class Facade>
    static std::string GetName(int) {
        return Facade::name;
    }
};

TYPED_TEST_SUITE(FacadeLifecycle, Facades, FacadeNames);

TYPED_TEST(FacadeLifecycle, AsksTheRuntimeWhenItIsReadyForWhatWasCalledBefore) {
    AnsweringRuntime runtime(test::makeContext());
    TypeParam facade(runtime);
    const Unsubscribe end = facade.listen("list", this->hear("listener"));
    facade.invoke("once", this->hear("caller"));
    EXPECT_EQ(runtime.calls->lines(), TypeParam::asksAtOnce ? Lines{"invoke once"} : Lines{});
    facade.becomeReady();
    this->expectCalls(runtime, {"listen list", "invoke once"});
    EXPECT_EQ(this->heard.lines(), Lines{});
    runtime.answer("once");
    runtime.answer("list");
    runtime.answer("list");
    EXPECT_EQ(this->heard.wait(3), (Lines{R"(caller: {"id":"once"})", R"(listener: {"id":"list"})",
                                          R"(listener: {"id":"list"})"}));
    end();
    this->expectCalls(runtime, {"listen list", "invoke once", "end list"});
    runtime.answer("list");
    this->settle(runtime);
    facade.destroy();
    this->expectNothingMore();
    EXPECT_EQ(this->heard.lines().size(), 3u);
}

TYPED_TEST(FacadeLifecycle, NeverAsksForWhatIsEndedBeforeItIsReady) {
    AnsweringRuntime runtime(test::makeContext());
    TypeParam facade(runtime);
    for (int times : {1, 2}) {
        const Unsubscribe end = facade.listen("list", this->hear("listener"));
        for (int time = 0; time < times; ++time) {
            end();
        }
    }
    facade.becomeReady();
    this->settle(runtime);
    EXPECT_EQ(runtime.calls->lines(), Lines{});
    runtime.answer("list");
    facade.destroy();
    this->settle(runtime);
    EXPECT_EQ(this->heard.lines(), Lines{});
}

TYPED_TEST(FacadeLifecycle, EndsOnceWhatIsEndedTwice) {
    AnsweringRuntime runtime(test::makeContext());
    TypeParam facade(runtime);
    const Unsubscribe before = facade.listen("before", this->hear("before"));
    facade.becomeReady();
    const Unsubscribe after = facade.listen("after", this->hear("after"));
    this->expectCalls(runtime, {"listen before", "listen after"});
    runtime.answer("before");
    runtime.answer("after");
    this->heard.wait(2);
    for (int time = 0; time < 2; ++time) {
        before();
        after();
    }
    const Lines all{"listen before", "listen after", "end before", "end after"};
    this->expectCalls(runtime, all);
    this->settle(runtime);
    this->expectCalls(runtime, all);
    facade.destroy();
    before();
    after();
    this->settle(runtime);
    this->expectCalls(runtime, all);
}

TYPED_TEST(FacadeLifecycle, IsSilentWhenItIsDestroyedBeforeItIsReady) {
    AnsweringRuntime runtime(test::makeContext());
    auto token = std::make_shared<int>();
    const std::weak_ptr<int> life = token;
    Unsubscribe end;
    {
        TypeParam facade(runtime);
        end = facade.listen("list", [token](const std::string&) {});
        facade.invoke("once", [token = std::move(token)](const std::string&) {});
        facade.destroy();
    }
    end();
    this->settle(runtime);
    end();
    if (TypeParam::asksAtOnce) {
        // The runtime has the callback, until it answers.
        runtime.answer("once");
    } else {
        EXPECT_EQ(runtime.calls->lines(), Lines{});
    }
    test::waitUntil("the end of the callbacks", [&] { return life.expired(); });
}

TYPED_TEST(FacadeLifecycle, CanBeEndedWhenItsOwnerIsDestroyedFirst) {
    AnsweringRuntime runtime(test::makeContext());
    TypeParam facade(runtime);
    auto token = std::make_shared<int>();
    const std::weak_ptr<int> life = token;
    const Unsubscribe end =
        facade.listen("list", [token = std::move(token), hear = this->hear("listener")](
                                  const std::string& text) { hear(text); });
    facade.becomeReady();
    facade.invoke("unanswered", this->hear("caller"));
    this->expectCalls(runtime, {"listen list", "invoke unanswered"});
    runtime.answer("list");
    this->heard.wait(1);
    facade.destroy();
    test::waitUntil("the end of the callback", [&] { return life.expired(); });
    runtime.answer("list");
    runtime.answer("unanswered");
    end();
    end();
    const Lines all{"listen list", "invoke unanswered", "end list"};
    this->expectCalls(runtime, all);
    this->settle(runtime);
    this->expectCalls(runtime, all);
    EXPECT_EQ(this->heard.lines(), Lines{R"(listener: {"id":"list"})"});
}

TYPED_TEST(FacadeLifecycle, GoesOnWhenTheApplicationLetsGoOfTheContextFirst) {
    AnsweringRuntime runtime(test::makeUncheckedContext());
    TypeParam facade(runtime);
    // Each call makes the runtime tell its listeners, too: without the context, the test cannot.
    test::evaluate(runtime.context, "isAnsweredAtOnce = (kind) => {"
                                    "    if (kind !== 'invoke') return false;"
                                    "    Promise.resolve('list').then(answer);"
                                    "    return true;"
                                    "}");
    const Unsubscribe end = facade.listen("list", this->hear("listener"));
    runtime.letGoOfContext();
    facade.becomeReady();
    facade.invoke("first", this->hear("caller"));
    this->heard.wait(2);
    facade.invoke("second", this->hear("caller"));
    EXPECT_THAT(
        this->heard.wait(4),
        UnorderedElementsAreArray({R"(caller: {"id":"first"})", R"(listener: {"id":"list"})",
                                   R"(caller: {"id":"second"})", R"(listener: {"id":"list"})"}));
    facade.destroy();
    // From now on, `end` is the last owner of the context.
    end();
    this->expectCalls(runtime, {"listen list", "invoke first", "invoke second", "end list"});
}

TYPED_TEST(FacadeLifecycle, MayBeCalledFromItsCallbacks) {
    AnsweringRuntime runtime(test::makeContext());
    TypeParam facade(runtime);
    test::Arrival<Unsubscribe> inner("the inner subscription");
    const Unsubscribe outer = facade.listen("outer", [&](const std::string& text) {
        this->heard.add("outer: " + text);
        facade.invoke("once", [&](const std::string& answer) {
            this->heard.add("once: " + answer);
            inner.put(facade.listen("inner", this->hear("inner")));
        });
    });
    facade.becomeReady();
    this->expectCalls(runtime, {"listen outer"});
    runtime.answer("outer");
    this->expectCalls(runtime, {"listen outer", "invoke once"});
    runtime.answer("once");
    const Unsubscribe endInner = inner.get();
    this->expectCalls(runtime, {"listen outer", "invoke once", "listen inner"});
    runtime.answer("inner");
    EXPECT_EQ(this->heard.wait(3), (Lines{R"(outer: {"id":"outer"})", R"(once: {"id":"once"})",
                                          R"(inner: {"id":"inner"})"}));
    endInner();
    outer();
    this->expectCalls(runtime,
                      {"listen outer", "invoke once", "listen inner", "end inner", "end outer"});
    this->settle(runtime);
    facade.destroy();
}

TYPED_TEST(FacadeLifecycle, EndsItselfAndAnotherFromACallback) {
    AnsweringRuntime runtime(test::makeContext());
    TypeParam facade(runtime);
    std::array<Unsubscribe, 3> ends;
    for (std::size_t index = 0; index < ends.size(); ++index) {
        const std::string id = "l" + std::to_string(index);
        ends[index] = facade.listen(id, [&, id](const std::string&) {
            ends[0]();
            ends[1]();
            this->heard.add(id); // the last that it touches
        });
    }
    facade.becomeReady();
    this->expectCalls(runtime, {"listen l0", "listen l1", "listen l2"});
    runtime.answer("l0");
    this->heard.wait(1);
    this->expectCalls(runtime, {"listen l0", "listen l1", "listen l2", "end l0", "end l1"});
    for (const char* id : {"l0", "l1", "l2"}) {
        runtime.answer(id);
    }
    EXPECT_EQ(this->heard.wait(2), (Lines{"l0", "l2"}));
    this->settle(runtime);
    this->expectCalls(runtime, {"listen l0", "listen l1", "listen l2", "end l0", "end l1"});
    ends[2]();
    facade.destroy();
    this->settle(runtime);
    this->expectCalls(runtime,
                      {"listen l0", "listen l1", "listen l2", "end l0", "end l1", "end l2"});
    EXPECT_EQ(this->heard.lines().size(), 2u);
}

TYPED_TEST(FacadeLifecycle, MayBeDestroyedFromItsCallback) {
    AnsweringRuntime runtime(test::makeContext());
    TypeParam facade(runtime);
    Unsubscribe end = facade.listen("list", [&](const std::string& text) {
        facade.destroy();
        this->heard.add(text);
    });
    facade.becomeReady();
    this->expectCalls(runtime, {"listen list"});
    runtime.answer("list");
    this->heard.wait(1);
    runtime.answer("list");
    end();
    this->expectCalls(runtime, {"listen list", "end list"});
    this->settle(runtime);
    EXPECT_EQ(this->heard.lines(), Lines{R"({"id":"list"})"});
}

TYPED_TEST(FacadeLifecycle, LosesNothingWhileItBecomesReadyUnderItsCallers) {
    constexpr int threads = 4;
    constexpr int requests = 100;
    AnsweringRuntime runtime(test::makeContext());
    TypeParam facade(runtime);
    std::array<std::atomic<int>, threads * requests * 2> answers{};
    std::atomic<int> asked = 0;
    std::vector<std::vector<Unsubscribe>> ends(threads);
    std::vector<std::thread> callers;
    for (int thread = 0; thread < threads; ++thread) {
        callers.emplace_back([&, thread] {
            for (int request = 0; request < requests; ++request) {
                const int number = (thread * requests + request) * 2;
                const auto count = [&, number](int offset) {
                    return
                        [&, place = static_cast<std::size_t>(number + offset)](const std::string&) {
                            ++answers[place];
                        };
                };
                ends[static_cast<std::size_t>(thread)].push_back(
                    facade.listen("l" + std::to_string(number), count(0)));
                facade.invoke("i" + std::to_string(number), count(1));
                ++asked;
            }
        });
    }
    test::waitUntil("callers at work", [&] { return asked >= threads * requests / 4; });
    runtime.answerAtOnce();
    facade.becomeReady();
    for (std::thread& caller : callers) {
        caller.join();
    }
    facade.takeInStragglers();
    runtime.answerWhatWasAskedBefore();
    const auto total = [&](std::size_t offset) {
        int all = 0;
        for (std::size_t place = offset; place < answers.size(); place += 2) {
            all += std::min(answers[place].load(), 1);
        }
        return all;
    };
    test::waitUntil("all answers", [&] { return total(1) == threads * requests; });
    this->settle(runtime);
    for (int number = 0; number < threads * requests * 2; number += 2) {
        runtime.answer("l" + std::to_string(number));
    }
    test::waitUntil("all events", [&] { return total(0) == threads * requests; });
    this->settle(runtime);
    for (std::size_t place = 1; place < answers.size(); place += 2) {
        EXPECT_EQ(answers[place], 1) << place;
    }
    for (const auto& some : ends) {
        for (const Unsubscribe& end : some) {
            end();
        }
    }
    Lines all;
    for (int number = 0; number < threads * requests * 2; number += 2) {
        all.push_back("listen l" + std::to_string(number));
        all.push_back("invoke i" + std::to_string(number));
        all.push_back("end l" + std::to_string(number));
    }
    this->settle(runtime);
    const Lines expected = this->ofFacade(all);
    Lines calls = runtime.calls->wait(static_cast<int>(expected.size()));
    Lines sorted = expected;
    std::ranges::sort(sorted);
    std::ranges::sort(calls);
    EXPECT_EQ(calls, sorted);
    facade.destroy();
}

} // namespace
