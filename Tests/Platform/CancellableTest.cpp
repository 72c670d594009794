#include <zem/Platform/Cancellable.h>

#include <gmock/gmock.h>

#include <Support/Wait.h>
#include <atomic>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

using namespace zem::platform;
using test::Transcript;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(AnyCancellable, CancelsOnce) {
    Transcript transcript;
    {
        AnyCancellable cancellable([&] { transcript.add("cancel"); });
        EXPECT_THAT(transcript.lines(), IsEmpty());
        cancellable.cancel();
        cancellable.cancel();
        EXPECT_THAT(transcript.lines(), ElementsAre("cancel"));
    }
    EXPECT_THAT(transcript.lines(), ElementsAre("cancel"));
}

TEST(AnyCancellable, CancelsWhenDestroyed) {
    Transcript transcript;
    {
        const AnyCancellable cancellable([&] { transcript.add("cancel"); });
    }
    EXPECT_THAT(transcript.lines(), ElementsAre("cancel"));
}

TEST(AnyCancellable, CancelsWhatAnAssignmentReplacesAndNotWhatWasMovedAway) {
    Transcript transcript;
    AnyCancellable kept([&] { transcript.add("first"); });
    {
        AnyCancellable second([&] { transcript.add("second"); });
        kept = std::move(second);
        EXPECT_THAT(transcript.lines(), ElementsAre("first"));
        AnyCancellable third(std::move(kept));
        kept = std::move(third);
        EXPECT_THAT(transcript.lines(), ElementsAre("first"));
    }
    EXPECT_THAT(transcript.lines(), ElementsAre("first"));
    kept = AnyCancellable();
    EXPECT_THAT(transcript.lines(), ElementsAre("first", "second"));
}

TEST(AnyCancellable, MayBeDestroyedByItsOwnTask) {
    Transcript transcript;
    std::unique_ptr<AnyCancellable> cancellable;
    cancellable = std::make_unique<AnyCancellable>([&] {
        cancellable.reset();
        transcript.add("cancel");
    });
    cancellable->cancel();
    EXPECT_EQ(cancellable, nullptr);
    EXPECT_THAT(transcript.lines(), ElementsAre("cancel"));
}

TEST(AnyCancellable, LetsItsTaskGoOnceCancelled) {
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = captured;
    AnyCancellable cancellable([captured = std::move(captured)] {});
    cancellable.cancel();
    EXPECT_TRUE(weak.expired());
}

TEST(AnyCancellable, CancelsOnceFromManyThreads) {
    for (int round = 0; round < 200; ++round) {
        std::atomic<int> cancelled = 0;
        AnyCancellable cancellable([&] { ++cancelled; });
        std::vector<std::jthread> threads;
        for (int index = 0; index < 4; ++index) {
            threads.emplace_back([&] { cancellable.cancel(); });
        }
        threads.clear();
        ASSERT_EQ(cancelled, 1);
    }
}

#ifndef NDEBUG

TEST(AnyCancellableDeathTest, CancelledWithALockHeldEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            AnyCancellable cancellable([] {});
            Mutex mutex;
            Lock lock(mutex);
            cancellable.cancel();
        },
        "zem: a lock is held while something is cancelled");
}

#endif
