// A draft manager in the hands of many threads.

#include <zem/Core/DraftManager.h>

#include <gtest/gtest.h>

#include <Core/DraftRuntime.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using test::DraftRuntime;

constexpr int threads = 8;
constexpr int rounds = 150;
constexpr int requestsOfARound = 7;

/// How often each request was answered. The completions hold it: those of a manager that is gone
/// may still come when the test is over.
class Answers : public std::enable_shared_from_this<Answers> {
  public:
    /// Fits every completion.
    auto next() {
        return [self = shared_from_this(), index = taken++](const auto&) {
            ++self->counts.at(index);
            ++self->total;
        };
    }
    std::size_t requests() const { return taken; }
    std::size_t answered() const { return total; }
    int most() const {
        return std::ranges::max_element(counts, {}, [](const auto& count) { return count.load(); })
            ->load();
    }

  private:
    std::array<std::atomic<int>, std::size_t{threads} * rounds * requestsOfARound> counts{};
    std::atomic<std::size_t> taken = 0;
    std::atomic<std::size_t> total = 0;
};

/// Everything that can be asked for, once; of a manager that somebody else may let go of meanwhile.
void askForEverything(DraftManager& manager, Answers& answers) {
    const auto handle = manager.registerOnChangedListener([](const auto&...) {});
    manager.startQueue();
    manager.getDraftQueue(answers.next());
    manager.removeItem("d1", answers.next());
    manager.replaceItem("d1", "d2", answers.next());
    manager.mergeAction("d1", "d2", answers.next());
    manager.setMetadata("d1", {{"k", "v"}}, answers.next());
    manager.addExternalAction("record", {}, answers.next());
    manager.setExternalActionExecutor(
        [](const auto&, const CustomActionReply& reply) { reply({}); }, answers.next());
    manager.stopQueue();
    handle->unsubscribe();
}

class DraftManagerStress : public testing::Test {
  protected:
    DraftManagerStress() {
        runtime.run(R"js(
            heard = () => {};
            let calls = 0;
            let removals = 0;
            // Now a promise, now something like one; now fulfilled, now rejected; late or at once.
            var answer = (value) => {
                switch (calls++ % 4) {
                case 0: return Promise.resolve(value);
                case 1: return Promise.reject("no");
                case 2: return { then(fulfilled, rejected) { fulfilled(value); rejected(); } };
                default: return new Promise((resolve) => Promise.resolve().then(() => resolve(value)));
                }
            };
            on.getQueue = () => answer(queue("d1"));
            on.removeDraftAction = (id) => {
                removals += 1;
                listener(queue(), "deleted", item(id));
                return answer(queue());
            };
            on.replaceAction = on.mergeActions = on.setMetadata = (id) => answer(item(id));
            on.addCustomAction = () => {
                executor?.(item("d9"), () => {});
                return answer(item("d9"));
            };
            on.setCustomActionExecutor = () => answer(() => {});
        )js");
    }

    DraftRuntime runtime;
    const std::shared_ptr<Answers> answers = std::make_shared<Answers>();
};

TEST_F(DraftManagerStress, AnswersEachRequestOnce) {
    const auto manager = runtime.manager();
    std::atomic<int> events = 0;
    manager->registerOnChangedListener([&](const auto&...) { ++events; });
    std::vector<std::thread> callers;
    for (int caller = 0; caller < threads; ++caller) {
        callers.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                askForEverything(*manager, *answers);
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    test::waitUntil("all answers", [&] { return answers->answered() == answers->requests(); });
    test::waitUntil("all events", [&] { return events == threads * rounds; });
    EXPECT_EQ(answers->requests(), std::size_t{threads} * rounds * requestsOfARound);
    EXPECT_EQ(answers->most(), 1);
    EXPECT_EQ(manager->batching()->subscriptions.size(), 1u);
    EXPECT_EQ(runtime.uncaught.lines(), std::vector<std::string>{});
}

TEST_F(DraftManagerStress, TellsOfChangesInTheRuntimesOrderWhicheverThreadsMakeThem) {
    const auto manager = runtime.manager();
    std::vector<std::string> heard; // written on the notification queue
    std::atomic<std::size_t> count = 0;
    manager->registerOnChangedListener(
        [&](const DraftManagerState&, auto, const std::optional<DraftQueueItem>& item) {
            heard.push_back(item->id);
            ++count;
        });
    // Another thread gets its chance between the number of a change and its end.
    test::setFunction(runtime.context, "giveWay", 0,
                      [](js::Scope& scope, js::Local, js::Arguments) {
                          std::this_thread::yield();
                          return scope.undefined();
                      });
    runtime.run(R"js(
        let number = 0;
        var change = () => {
            const changed = item(`${number++}`);
            listener({ get queueState() { giveWay(); return "started"; }, items: [] }, "updated",
                     changed);
        };
    )js");
    constexpr std::size_t changesOfAThread = 1000;
    std::array<std::thread, 4> changing;
    for (std::thread& thread : changing) {
        thread = std::thread([&] {
            for (std::size_t change = 0; change < changesOfAThread; ++change) {
                runtime.run("change()");
            }
        });
    }
    for (std::thread& thread : changing) {
        thread.join();
    }
    const std::size_t all = changing.size() * changesOfAThread;
    test::waitUntil("all changes", [&] { return count == all; });
    std::vector<std::string> expected;
    for (std::size_t number = 0; number < all; ++number) {
        expected.push_back(std::to_string(number));
    }
    EXPECT_EQ(heard, expected);
}

TEST_F(DraftManagerStress, MayBeLetGoOfMeanwhile) {
    std::mutex mutex;
    std::shared_ptr<DraftManager> current = runtime.manager();
    const auto manager = [&] {
        const std::scoped_lock lock(mutex);
        return current;
    };
    std::atomic<int> working = threads;
    std::vector<std::thread> callers;
    for (int caller = 0; caller < threads; ++caller) {
        callers.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                askForEverything(*manager(), *answers);
            }
            --working;
        });
    }
    int managers = 0;
    while (working > 0) {
        // Not of the batch of the one before: that is in use.
        auto next = runtime.manager();
        ++managers;
        const std::scoped_lock lock(mutex);
        std::swap(current, next);
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_GT(managers, 0);
    EXPECT_LE(answers->answered(), answers->requests());
    EXPECT_EQ(answers->most(), 1);
    const std::weak_ptr<DraftManager> life = current;
    current.reset();
    EXPECT_TRUE(life.expired());
    runtime.runMainQueue();
    EXPECT_EQ(runtime.uncaught.lines(), std::vector<std::string>{});
}

} // namespace
