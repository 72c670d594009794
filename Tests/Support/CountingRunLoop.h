#pragma once

// A run loop that counts what is posted to it.

#include <zem/Platform/RunLoop.h>

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

namespace test {

class CountingRunLoop final : public zem::platform::RunLoop {
  public:
    /// Posts to `counted`, which somebody runs.
    explicit CountingRunLoop(std::shared_ptr<RunLoop> counted)
        : loop(std::move(counted)) {}

    /// How many tasks were posted so far.
    int posts() const { return count; }

    void perform(zem::platform::Task task) override {
        ++count;
        loop->perform(std::move(task));
    }
    std::unique_ptr<zem::platform::Timer> scheduleTimer(zem::platform::Seconds interval,
                                                        bool repeats,
                                                        std::function<void()> block) override {
        return loop->scheduleTimer(interval, repeats, std::move(block));
    }
    TimePoint now() const override { return loop->now(); }
    bool isCurrent() const override { return loop->isCurrent(); }
    void run() override { loop->run(); }
    void stop() override { loop->stop(); }
    bool runUntil(const std::function<bool()>& done, zem::platform::Seconds limit) override {
        return loop->runUntil(done, limit);
    }

  private:
    const std::shared_ptr<RunLoop> loop;
    std::atomic<int> count = 0;
};

} // namespace test
