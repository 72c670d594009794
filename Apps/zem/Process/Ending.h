#pragma once

// The end of a run.

#include <zem/Platform/RunLoop.h>

#include <atomic>
#include <memory>
#include <utility>

namespace zem::host {

class Ending {
  public:
    /// The first request stops `mainLoop`.
    explicit Ending(std::shared_ptr<platform::RunLoop> mainLoop)
        : mainLoop(std::move(mainLoop)) {}

    /// Asks for the end. The first request sets the exit code. Any thread, any number of times.
    void request(int exitCode) {
        int none = notRequested;
        if (requestedCode.compare_exchange_strong(none, exitCode)) {
            mainLoop->stop();
        }
    }

    bool requested() const { return requestedCode != notRequested; }

    /// Only after a request.
    int code() const { return requestedCode; }

  private:
    static constexpr int notRequested = -1;
    std::shared_ptr<platform::RunLoop> mainLoop;
    std::atomic<int> requestedCode = notRequested;
};

} // namespace zem::host
