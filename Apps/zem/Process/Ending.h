#pragma once

// The end of a run: who asks for it first says how.

#include <zem/Platform/RunLoop.h>

#include <atomic>
#include <memory>
#include <utility>

namespace zem::host {

class Ending {
  public:
    /// `mainLoop` is what is stopped when the end is asked for.
    explicit Ending(std::shared_ptr<platform::RunLoop> mainLoop)
        : mainLoop(std::move(mainLoop)) {}

    /// Asks for the end. Any thread, any number of times; the first request decides on the code.
    void request(int exitCode) {
        int none = notRequested;
        if (requestedCode.compare_exchange_strong(none, exitCode)) {
            mainLoop->stop();
        }
    }

    bool requested() const { return requestedCode != notRequested; }

    /// Only once it was requested.
    int code() const { return requestedCode; }

  private:
    static constexpr int notRequested = -1;
    std::shared_ptr<platform::RunLoop> mainLoop;
    std::atomic<int> requestedCode = notRequested;
};

} // namespace zem::host
