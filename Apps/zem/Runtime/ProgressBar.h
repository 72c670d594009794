#pragma once

// How far long transfers have come.

#include <zem/Adapters/CurlNetworkAdapter.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/RunLoop.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace zem::host {

/// One line about all these transfers: "sending [###---] 50%  1.0 MB of 2.0 MB". Without a bar if
/// the length of one of them is not known.
std::string describeProgress(const std::vector<CurlNetworkAdapter::Progress>& transfers);

/// Shows one line about the transfers that have taken half a second. Thread-safe.
class ProgressBar : public std::enable_shared_from_this<ProgressBar> {
  public:
    static constexpr platform::Seconds delay{0.5};
    static constexpr platform::Seconds interval{0.1};

    /// `show` gets the line, or an empty text when there is no such transfer any more. It is called
    /// one call at a time, from any thread, with a lock held: it must not call back. The clock is
    /// the run loop's.
    ProgressBar(std::shared_ptr<platform::RunLoop> runLoop,
                std::function<void(const std::string&)> show);

    /// Takes what a network adapter reports.
    void update(const CurlNetworkAdapter::Progress& progress);

    /// Removes the line. No other follows.
    void end();

  private:
    struct Transfer {
        platform::RunLoop::TimePoint begun;
        CurlNetworkAdapter::Progress progress;
    };

    void draw();

    const std::shared_ptr<platform::RunLoop> runLoop;
    const std::function<void(const std::string&)> show;

    platform::Mutex mutex; // guards the rest
    std::map<std::string, Transfer> transfers;
    std::unique_ptr<platform::Timer> timer;
    std::string shown;
    bool hasEnded = false;
};

} // namespace zem::host
