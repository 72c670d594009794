// What every facade that calls back promises about beginnings and ends, whichever facade it is.

#include <zem/Core/BatchingDataService.h>
#include <zem/Core/DataService.h>
#include <zem/JavaScript/Scope.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using test::HeldQueue;
using test::Journal;
using test::Results;
using test::ServiceRuntime;
using testing::UnorderedElementsAreArray;
using Lines = std::vector<std::string>;

/// A runtime that answers when it is told to, or at once.
class Runtime {
  public:
    explicit Runtime(js::Context made)
        : context(std::move(made)) {
        test::setFunction(context, "heard", 1,
                          [journal = calls](js::Scope& scope, js::Local, js::Arguments arguments) {
                              journal->add(scope.toText(arguments[0]));
                              return scope.undefined();
                          });
        test::evaluate(context, R"js(
            var answersAtOnce = false;
            var answers = {};
            var called = (kind, id, answer) => {
                const isAnsweredAtOnce = answersAtOnce;
                answers[id] = answer;
                heard(kind + " " + id);
                if (isAnsweredAtOnce) answer({ data: { id } });
            };
            var zem = {
                invokeAdapter(id, config, answer) { called("invoke", id, answer); },
                subscribeToAdapter(id, config, answer) {
                    called("listen", id, answer);
                    return () => heard("end " + id);
                },
            };
        )js");
    }

    js::Value zem() {
        return context.perform(
            [](js::Scope& scope) { return scope.keep(scope.evaluate("zem", "test.js").value()); });
    }
    void answerAtOnce() { test::evaluate(context, "answersAtOnce = true"); }
    void answer(const std::string& id) {
        test::evaluate(context, "answers." + id + "({ data: { id: '" + id + "' } })");
    }
    /// The application's reference: what is left of the context is what others hold.
    void letGoOfContext() { context = {}; }

    js::Context context;
    const std::shared_ptr<Journal> calls = std::make_shared<Journal>("a call of the runtime");
};

using Heard = std::function<void(std::string)>;

/// The service itself: until it is ready, calls wait for their turn.
class Direct {
  public:
    explicit Direct(Runtime& runtime)
        : held(std::in_place)
        , service(DataService::create(runtime.zem(), nullptr, {}, 180)) {}

    Unsubscribe listen(const std::string& id, Heard heard) {
        return service->subscribeToAdapter(id, "{}", callback(std::move(heard)));
    }
    void invoke(const std::string& id, Heard heard) {
        service->invokeAdapter(id, "{}", callback(std::move(heard)));
    }
    void becomeReady() { held.reset(); }
    void takeInStragglers() {}
    void destroy() { service.reset(); }

    static ResultCallback callback(Heard heard) {
        return [heard = std::move(heard)](const DataServiceResult& result) {
            heard(test::textOf(result));
        };
    }

  private:
    std::optional<HeldQueue> held;
    std::shared_ptr<DataService> service;
};

/// The batching service, and what is made of its state: until that is, calls are recorded.
class HandedOver {
  public:
    explicit HandedOver(Runtime& runtime)
        : zem(runtime.zem()) {}

    Unsubscribe listen(const std::string& id, Heard heard) {
        return current.load()->subscribeToAdapter(id, "{}", Direct::callback(std::move(heard)));
    }
    void invoke(const std::string& id, Heard heard) {
        current.load()->invokeAdapter(id, "{}", Direct::callback(std::move(heard)));
    }
    void becomeReady() {
        service = handOver();
        current = service.get();
    }
    /// What callers that had the batching service in hand asked of it after its state was taken.
    void takeInStragglers() { stragglers = handOver(); }
    void destroy() {
        stragglers.reset();
        service.reset();
        batching.reset();
    }

  private:
    std::shared_ptr<DataService> handOver() {
        return DataService::create(zem, nullptr, batching->takeState(), 180);
    }

    const js::Value zem;
    std::shared_ptr<BatchingDataService> batching = BatchingDataService::create();
    std::shared_ptr<DataService> service;
    std::shared_ptr<DataService> stragglers;
    std::atomic<DataServiceProtocol*> current = batching.get();
};

template <class Facade>
class ServiceLifecycle : public testing::Test {
  protected:
    ~ServiceLifecycle() override { expectNothingMore(); }

    /// What has been set going has come to its end.
    static void settle(Runtime& runtime) {
        test::waitUntil("the end of all adapter calls",
                        [] { return SharedPriorityQueue::priority()->operationCount() == 0; });
        runtime.context.perform([](js::Scope&) {});
    }

    static void expectNothingMore() {
        ServiceRuntime probe;
        probe.expectAllPlacesFree();
    }

    Heard hear(const std::string& name) {
        return [this, name](const std::string& text) {
            heard.add(name + ": " + text);
        };
    }

    Journal heard{"a result"};
};

using Facades = testing::Types<Direct, HandedOver>;

class FacadeNames {
  public:
    template <class Facade>
    static std::string GetName(int) {
        return std::is_same_v<Facade, Direct> ? "DataService" : "BatchingDataService";
    }
};

TYPED_TEST_SUITE(ServiceLifecycle, Facades, FacadeNames);

TYPED_TEST(ServiceLifecycle, AsksTheRuntimeWhenItIsReadyForWhatWasCalledBefore) {
    Runtime runtime(test::makeContext());
    TypeParam facade(runtime);
    const Unsubscribe end = facade.listen("list", this->hear("listener"));
    facade.invoke("once", this->hear("caller"));
    EXPECT_EQ(runtime.calls->lines(), Lines{});
    facade.becomeReady();
    EXPECT_THAT(runtime.calls->wait(2), UnorderedElementsAreArray({"listen list", "invoke once"}));
    EXPECT_EQ(this->heard.lines(), Lines{});
    runtime.answer("once");
    runtime.answer("list");
    runtime.answer("list");
    runtime.answer("once");
    EXPECT_EQ(this->heard.wait(3), (Lines{R"(caller: {"id":"once"})", R"(listener: {"id":"list"})",
                                          R"(listener: {"id":"list"})"}));
    end();
    EXPECT_EQ(runtime.calls->wait(3)[2], "end list");
    runtime.answer("list");
    this->settle(runtime);
    facade.destroy();
    this->expectNothingMore();
    EXPECT_EQ(this->heard.lines().size(), 3u);
}

TYPED_TEST(ServiceLifecycle, NeverAsksForWhatIsEndedBeforeItIsReady) {
    Runtime runtime(test::makeContext());
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
    facade.destroy();
    EXPECT_EQ(this->heard.lines(), Lines{});
}

TYPED_TEST(ServiceLifecycle, EndsOnceWhatIsEndedTwice) {
    Runtime runtime(test::makeContext());
    TypeParam facade(runtime);
    const Unsubscribe before = facade.listen("before", this->hear("before"));
    facade.becomeReady();
    const Unsubscribe after = facade.listen("after", this->hear("after"));
    runtime.calls->wait(2);
    runtime.answer("before");
    runtime.answer("after");
    this->heard.wait(2);
    for (int time = 0; time < 2; ++time) {
        before();
        after();
    }
    runtime.calls->wait(4);
    this->settle(runtime);
    EXPECT_THAT(runtime.calls->lines(), UnorderedElementsAreArray({"listen before", "listen after",
                                                                   "end before", "end after"}));
    facade.destroy();
    before();
    after();
    this->settle(runtime);
    EXPECT_EQ(runtime.calls->lines().size(), 4u);
}

TYPED_TEST(ServiceLifecycle, IsSilentWhenItIsDestroyedBeforeItIsReady) {
    Runtime runtime(test::makeContext());
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
    EXPECT_EQ(runtime.calls->lines(), Lines{});
    test::waitUntil("the end of the callbacks", [&] { return life.expired(); });
}

TYPED_TEST(ServiceLifecycle, CanBeEndedWhenItsOwnerIsDestroyedFirst) {
    Runtime runtime(test::makeContext());
    TypeParam facade(runtime);
    auto token = std::make_shared<int>();
    const std::weak_ptr<int> life = token;
    const Unsubscribe end =
        facade.listen("list", [token = std::move(token), hear = this->hear("listener")](
                                  const std::string& text) { hear(text); });
    facade.becomeReady();
    facade.invoke("unanswered", this->hear("caller"));
    runtime.calls->wait(2);
    runtime.answer("list");
    this->heard.wait(1);
    facade.destroy();
    test::waitUntil("the end of the callback", [&] { return life.expired(); });
    runtime.answer("list");
    runtime.answer("unanswered");
    end();
    end();
    EXPECT_EQ(runtime.calls->wait(3)[2], "end list");
    this->settle(runtime);
    EXPECT_EQ(runtime.calls->lines().size(), 3u);
    EXPECT_EQ(this->heard.lines(), Lines{R"(listener: {"id":"list"})"});
}

TYPED_TEST(ServiceLifecycle, GoesOnWhenTheApplicationLetsGoOfTheContextFirst) {
    Runtime runtime(test::makeUncheckedContext());
    TypeParam facade(runtime);
    runtime.answerAtOnce();
    const Unsubscribe before = facade.listen("before", this->hear("listener"));
    runtime.letGoOfContext();
    facade.becomeReady();
    this->heard.wait(1);
    const Unsubscribe after = facade.listen("after", this->hear("listener"));
    this->heard.wait(2);
    facade.invoke("once", this->hear("caller"));
    EXPECT_EQ(this->heard.wait(3),
              (Lines{R"(listener: {"id":"before"})", R"(listener: {"id":"after"})",
                     R"(caller: {"id":"once"})"}));
    before();
    EXPECT_EQ(runtime.calls->wait(4)[3], "end before");
    facade.destroy();
    // The last of those who hold the context, from now on.
    after();
    EXPECT_EQ(runtime.calls->wait(5)[4], "end after");
}

TYPED_TEST(ServiceLifecycle, MayBeCalledFromItsCallbacks) {
    Runtime runtime(test::makeContext());
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
    runtime.calls->wait(1);
    runtime.answerAtOnce();
    runtime.answer("outer");
    EXPECT_EQ(this->heard.wait(3), (Lines{R"(outer: {"id":"outer"})", R"(once: {"id":"once"})",
                                          R"(inner: {"id":"inner"})"}));
    inner.get()();
    outer();
    runtime.calls->wait(5);
    this->settle(runtime);
    facade.destroy();
}

TYPED_TEST(ServiceLifecycle, EndsItselfAndAnotherFromACallback) {
    Runtime runtime(test::makeContext());
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
    runtime.calls->wait(3);
    test::evaluate(runtime.context, "for (let round = 0; round < 2; ++round)"
                                    "    for (const id of ['l0', 'l1', 'l2']) answers[id]({})");
    EXPECT_EQ(this->heard.wait(3), (Lines{"l0", "l2", "l2"}));
    runtime.calls->wait(5);
    this->settle(runtime);
    EXPECT_EQ(std::ranges::count(runtime.calls->lines(), "end l0"), 1);
    EXPECT_EQ(std::ranges::count(runtime.calls->lines(), "end l1"), 1);
    EXPECT_EQ(runtime.calls->lines().size(), 5u);
    ends[2]();
    runtime.calls->wait(6);
    facade.destroy();
}

TYPED_TEST(ServiceLifecycle, MayBeDestroyedFromItsCallback) {
    Runtime runtime(test::makeContext());
    TypeParam facade(runtime);
    Unsubscribe end = facade.listen("list", [&](const std::string& text) {
        facade.destroy();
        this->heard.add(text);
    });
    facade.becomeReady();
    runtime.calls->wait(1);
    runtime.answer("list");
    this->heard.wait(1);
    runtime.answer("list");
    end();
    runtime.calls->wait(2);
    this->settle(runtime);
    EXPECT_EQ(this->heard.lines(), Lines{R"({"id":"list"})"});
}

TYPED_TEST(ServiceLifecycle, LosesNothingWhileItBecomesReadyUnderItsCallers) {
    constexpr int threads = 4;
    constexpr int requests = 100;
    Runtime runtime(test::makeContext());
    TypeParam facade(runtime);
    runtime.answerAtOnce();
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
    facade.becomeReady();
    for (std::thread& caller : callers) {
        caller.join();
    }
    facade.takeInStragglers();
    const auto total = [&] {
        int all = 0;
        for (const auto& count : answers) {
            all += count;
        }
        return all;
    };
    test::waitUntil("all answers", [&] { return total() >= threads * requests * 2; });
    this->settle(runtime);
    for (const auto& some : ends) {
        for (const Unsubscribe& end : some) {
            end();
        }
    }
    runtime.calls->wait(threads * requests * 3);
    this->settle(runtime);
    EXPECT_TRUE(std::ranges::all_of(answers, [](const auto& count) { return count == 1; }));
    EXPECT_EQ(runtime.calls->lines().size(), static_cast<std::size_t>(threads * requests * 3));
    facade.destroy();
}

} // namespace
