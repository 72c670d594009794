#include <zem/Tessel/Activity.h>

#include <gtest/gtest.h>

#include <Support/Wait.h>
#include <memory>
#include <thread>
#include <vector>

using tessel::Activity;
using tessel::ActivityToken;

TEST(Activity, CountsTheTokensThatLive) {
    const auto activity = std::make_shared<Activity>();
    EXPECT_EQ(activity->outstanding(), 0u);
    auto first = std::make_unique<ActivityToken>(activity);
    auto second = std::make_unique<ActivityToken>(activity);
    EXPECT_EQ(activity->outstanding(), 2u);
    first.reset();
    EXPECT_EQ(activity->outstanding(), 1u);
    second.reset();
    EXPECT_EQ(activity->outstanding(), 0u);
}

TEST(Activity, CallsTheIdleHandlerEachTimeItReachesZero) {
    const auto activity = std::make_shared<Activity>();
    test::Transcript transcript;
    activity->setIdleHandler(
        [&] { transcript.add("idle at " + std::to_string(activity->outstanding())); });
    auto first = std::make_unique<ActivityToken>(activity);
    auto second = std::make_unique<ActivityToken>(activity);
    first.reset();
    transcript.add("one left");
    second.reset();
    transcript.add("none left");
    first = std::make_unique<ActivityToken>(activity);
    first.reset();
    EXPECT_EQ(transcript.lines(),
              (std::vector<std::string>{"one left", "idle at 0", "none left", "idle at 0"}));
}

TEST(Activity, TheIdleHandlerMayReplaceItselfAndBeginAnew) {
    const auto activity = std::make_shared<Activity>();
    std::unique_ptr<ActivityToken> next;
    test::Transcript transcript;
    activity->setIdleHandler([&] {
        transcript.add("first");
        activity->setIdleHandler([&] { transcript.add("second"); });
        next = std::make_unique<ActivityToken>(activity);
    });
    std::make_unique<ActivityToken>(activity).reset();
    next.reset();
    activity->setIdleHandler(nullptr);
    std::make_unique<ActivityToken>(activity).reset();
    EXPECT_EQ(transcript.lines(), (std::vector<std::string>{"first", "second"}));
}

TEST(Activity, AnIdleHandlerMayBeTheLastToHoldIt) {
    auto activity = std::make_shared<Activity>();
    test::Event idle("idle");
    activity->setIdleHandler([&] { idle.signal(); });
    auto token = std::make_unique<ActivityToken>(std::move(activity));
    token.reset();
    idle.wait();
}

TEST(Activity, CountsFromAllThreads) {
    test::Transcript transcript;
    const auto activity = std::make_shared<Activity>();
    activity->setIdleHandler([&] { transcript.add("idle"); });
    auto last = std::make_unique<ActivityToken>(activity);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 1000; ++round) {
                const ActivityToken token(activity);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(activity->outstanding(), 1u);
    EXPECT_EQ(transcript.lines(), std::vector<std::string>());
    last.reset();
    EXPECT_EQ(transcript.lines(), (std::vector<std::string>{"idle"}));
}
