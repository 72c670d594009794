#pragma once

// The run loop of the JavaScript thread, as the context uses it.

#include <zem/Platform/RunLoop.h>

#include <atomic>
#include <functional>
#include <memory>

namespace zem::host {

/// Passes everything on to another run loop until it is closed. After that, tasks that have not run
/// are dropped at their turn, and no timer fires.
class ClosableRunLoop final : public platform::RunLoop {
  public:
    explicit ClosableRunLoop(std::shared_ptr<platform::RunLoop> loop);

    /// Any thread.
    void close() { *closed = true; }

    void perform(platform::Task task) override;
    std::unique_ptr<platform::Timer> scheduleTimer(platform::Seconds interval, bool repeats,
                                                   std::function<void()> block) override;
    TimePoint now() const override { return loop->now(); }
    bool isCurrent() const override { return loop->isCurrent(); }
    void run() override { loop->run(); }
    void stop() override { loop->stop(); }
    bool runUntil(const std::function<bool()>& done, platform::Seconds limit) override {
        return loop->runUntil(done, limit);
    }

  private:
    std::shared_ptr<platform::RunLoop> loop;
    std::shared_ptr<std::atomic<bool>> closed = std::make_shared<std::atomic<bool>>(false);
};

} // namespace zem::host
