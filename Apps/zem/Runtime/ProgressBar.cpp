#include "ProgressBar.h"

#include "Process/ByteCount.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <utility>

namespace zem::host {

namespace {

using Progress = CurlNetworkAdapter::Progress;

constexpr std::uint64_t barLength = 30;

struct Share {
    std::uint64_t done = 0;
    std::uint64_t total = 0; ///< 0 if it is not known
};

bool isSending(const Progress& transfer) {
    return transfer.toSend > 0 && transfer.received == 0;
}

Share shareOf(const Progress& transfer) {
    return isSending(transfer) ? Share{transfer.sent, transfer.toSend}
                               : Share{transfer.received, transfer.toReceive};
}

std::string nameOf(const std::vector<Progress>& transfers) {
    if (transfers.size() > 1) {
        return fmt::format("{} transfers", transfers.size());
    }
    return isSending(transfers.front()) ? "sending" : "receiving";
}

} // namespace

std::string describeProgress(const std::vector<Progress>& transfers) {
    std::vector<Share> shares;
    std::ranges::transform(transfers, std::back_inserter(shares), shareOf);
    const Share all = std::accumulate(
        shares.begin(), shares.end(), Share{}, [](const Share& sum, const Share& share) {
            return Share{sum.done + share.done, sum.total + share.total};
        });
    const std::string done = describeByteCount(all.done);
    if (std::ranges::any_of(shares, [](const Share& share) { return share.total == 0; })) {
        return fmt::format("{} {}", nameOf(transfers), done);
    }
    const auto partOf = [&](std::uint64_t whole) {
        const double part = static_cast<double>(all.done) / static_cast<double>(all.total);
        return static_cast<std::uint64_t>(std::min(part, 1.0) * static_cast<double>(whole));
    };
    const std::uint64_t filled = partOf(barLength);
    return fmt::format("{} [{}{}] {}%  {} of {}", nameOf(transfers), std::string(filled, '#'),
                       std::string(barLength - filled, '-'), partOf(100), done,
                       describeByteCount(all.total));
}

ProgressBar::ProgressBar(std::shared_ptr<platform::RunLoop> runLoop,
                         std::function<void(const std::string&)> show)
    : runLoop(std::move(runLoop))
    , show(std::move(show)) {}

void ProgressBar::update(const Progress& progress) {
    std::unique_ptr<platform::Timer> stopped;
    const platform::Lock lock(mutex);
    if (hasEnded) {
        return;
    }
    if (progress.isOver) {
        transfers.erase(progress.token);
        draw();
        if (transfers.empty()) {
            stopped = std::move(timer);
        }
        return;
    }
    transfers.try_emplace(progress.token, Transfer{runLoop->now(), {}}).first->second.progress =
        progress;
    if (timer == nullptr) {
        timer = runLoop->scheduleTimer(interval, true, [weak = weak_from_this()] {
            if (const auto alive = weak.lock()) {
                const platform::Lock again(alive->mutex);
                alive->draw();
            }
        });
    }
}

void ProgressBar::end() {
    std::unique_ptr<platform::Timer> stopped;
    const platform::Lock lock(mutex);
    hasEnded = true;
    transfers.clear();
    stopped = std::move(timer);
    draw();
}

/// Under the lock.
void ProgressBar::draw() {
    const auto now = runLoop->now();
    std::vector<Progress> longOnes;
    for (const auto& [token, transfer] : transfers) {
        if (now - transfer.begun >= delay) {
            longOnes.push_back(transfer.progress);
        }
    }
    std::string line = longOnes.empty() ? "" : describeProgress(longOnes);
    if (line != shown) {
        shown = std::move(line);
        show(shown);
    }
}

} // namespace zem::host
