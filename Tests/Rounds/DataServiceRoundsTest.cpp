// A hundred thousand subscriptions, one after the other, leave nothing behind. A program of its
// own: the allocators keep memory for each thread that ever worked, and other tests leave many.

#include <zem/Core/DataService.h>
#include <zem/JavaScript/Scope.h>

#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define ZEM_KEEPS_FREED_MEMORY 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZEM_KEEPS_FREED_MEMORY 1
#endif
#endif

namespace {

using namespace zem;

std::int64_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    std::int64_t total = 0;
    std::int64_t resident = 0;
    statm >> total >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

class Rounds {
  public:
    Rounds() {
        test::setFunction(context, "ended", 0, [this](js::Scope& scope, js::Local, js::Arguments) {
            ++ended;
            return scope.undefined();
        });
        test::evaluate(context, R"js(
            var zem = {
                subscribeToAdapter(id, config, answer) {
                    answer({ data: { id } });
                    return () => ended();
                },
            };
        )js");
        service = DataService::create(context.perform([](js::Scope& scope) {
            return scope.keep(scope.evaluate("zem", "test.js").value());
        }),
                                      nullptr, {}, DataService::defaultWatchdogTimeout);
    }

    /// As many subscriptions, each of which is answered and ended, some at a time.
    void run(int count) {
        for (int done = 0; done < count; done += atATime) {
            std::vector<Unsubscribe> ends;
            for (int index = 0; index < atATime; ++index) {
                ends.push_back(service->subscribeToAdapter(
                    "adapter", "{}", [this](const DataServiceResult&) { ++heard; }));
            }
            begun += atATime;
            test::waitUntil("the answers", [this] { return heard == begun; });
            for (const Unsubscribe& end : ends) {
                end();
            }
            test::waitUntil("the ends", [this] { return ended == begun; });
        }
        test::waitUntil("the end of all adapter calls",
                        [] { return SharedPriorityQueue::priority()->operationCount() == 0; });
        test::collectGarbage(context);
    }

    void expectHandles(std::size_t count) {
        test::waitUntil("the end of the handles", [&] {
            test::collectGarbage(context);
            return context.handleCount() == count;
        });
    }

    js::Context context = test::makeContext();
    std::shared_ptr<DataService> service;

  private:
    static constexpr int atATime = 100;

    std::atomic<int> heard = 0;
    std::atomic<int> ended = 0;
    int begun = 0;
};

TEST(DataServiceRounds, LeaveNoHandleAndNoMemoryBehind) {
    constexpr int tenth = 10'000;
    Rounds rounds;
    const std::size_t handles = rounds.context.handleCount();
    [[maybe_unused]] std::vector<std::int64_t> resident;
    for (int index = 0; index < 10; ++index) {
        rounds.run(tenth);
        resident.push_back(residentBytes());
    }
    rounds.expectHandles(handles);
    EXPECT_EQ(rounds.service->subscriptionCount(), 0u);
#ifndef ZEM_KEEPS_FREED_MEMORY
    // Memory that the allocator and the engine's collector keep for later comes and goes: the most
    // of the first tenths is compared with the least of the last. At least 30,000 rounds lie
    // between them, and each may leave less than 200 bytes: any object of a round takes as much.
    const std::int64_t early = *std::max_element(resident.begin(), resident.begin() + 4);
    const std::int64_t late = *std::min_element(resident.end() - 4, resident.end());
    constexpr std::int64_t tolerance = 6 * 1000 * 1000;
    EXPECT_LT(late - early, tolerance);
#endif
}

} // namespace
