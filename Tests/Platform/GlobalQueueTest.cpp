#include <zem/Platform/Queue.h>

#include <gmock/gmock.h>

#include <Support/Wait.h>
#include <csignal>
#include <pthread.h>
#include <thread>

using namespace zem::platform;
using test::Arrival;
using test::Event;
using test::Transcript;
using testing::ElementsAre;

namespace {

constexpr int threads = 64;

} // namespace

TEST(GlobalQueue, RunsATaskOnAnotherThread) {
    Arrival<std::thread::id> ranOn("the task");
    globalQueue().async([&] { ranOn.put(std::this_thread::get_id()); });
    EXPECT_NE(ranOn.get(), std::this_thread::get_id());
}

TEST(GlobalQueue, IsOneAQualityOfService) {
    EXPECT_EQ(&globalQueue(), &globalQueue(QualityOfService::unspecified));
    EXPECT_EQ(&globalQueue(QualityOfService::utility), &globalQueue(QualityOfService::utility));
    EXPECT_NE(&globalQueue(QualityOfService::utility), &globalQueue(QualityOfService::background));
}

TEST(GlobalQueue, RunsSixtyFourTasksAtOnce) {
    Event started("every task started");
    Event gate("the gate");
    Event ended("every task ended");
    for (int index = 0; index < threads; ++index) {
        globalQueue().async([&] {
            started.signal();
            gate.wait();
            ended.signal();
        });
    }
    started.wait(threads);
    gate.signal();
    ended.wait(threads);
    EXPECT_EQ(ended.signalled(), threads);
}

TEST(GlobalQueue, GivesTheFirstFreeThreadToTheHighestQualityOfService) {
    Event started("every thread taken");
    Event oneFree("one thread free");
    Event gate("the gate");
    Event ended("every task ended");
    globalQueue().async([&] {
        started.signal();
        oneFree.wait();
        ended.signal();
    });
    for (int index = 1; index < threads; ++index) {
        globalQueue().async([&] {
            started.signal();
            gate.wait();
            ended.signal();
        });
    }
    started.wait(threads);
    Transcript transcript;
    Event last("the last of the tasks");
    const std::vector<std::pair<QualityOfService, std::string>> tasks = {
        {QualityOfService::background, "background"},
        {QualityOfService::unspecified, "unspecified, first"},
        {QualityOfService::utility, "utility"},
        {QualityOfService::userInteractive, "user interactive"},
        {QualityOfService::unspecified, "unspecified, second"},
        {QualityOfService::userInitiated, "user initiated"},
    };
    for (const auto& [qualityOfService, name] : tasks) {
        globalQueue(qualityOfService).async([&, name] {
            transcript.add(name);
            last.signal();
        });
    }
    oneFree.signal();
    last.wait(static_cast<int>(tasks.size()));
    EXPECT_THAT(transcript.lines(),
                ElementsAre("user interactive", "user initiated", "unspecified, first",
                            "unspecified, second", "utility", "background"));
    gate.signal();
    ended.wait(threads);
}

TEST(GlobalQueue, LetsTheCollectorsSignalThrough) {
    Arrival<bool> blocked("the signal mask");
    globalQueue().async([&] {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        blocked.put(sigismember(&mask, SIGUSR1) == 1);
    });
    EXPECT_FALSE(blocked.get());
}
