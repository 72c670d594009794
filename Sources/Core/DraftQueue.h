#pragma once

// The runtime's queue that uploads drafts one at a time.

#include <zem/Core/DraftQueueNativeError.h>
#include <zem/JavaScript/Value.h>
#include <zem/Tessel/Coding.h>

#include <array>
#include <expected>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

namespace zem {

/// The outcome of asking the runtime to process the next action.
enum class ProcessActionResult {
    actionError,
    actionSucceeded,
    noActionToProcess,
    actionAlreadyProcessing,
    networkError,
    blockedOnError
};

inline constexpr std::array<std::pair<ProcessActionResult, std::string_view>, 6>
    processActionResultTexts{{
        {ProcessActionResult::actionError, "ERROR"},
        {ProcessActionResult::actionSucceeded, "SUCCESS"},
        {ProcessActionResult::noActionToProcess, "NO_ACTION_TO_PROCESS"},
        {ProcessActionResult::actionAlreadyProcessing, "ACTION_ALREADY_PROCESSING"},
        {ProcessActionResult::networkError, "NETWORK_ERROR"},
        {ProcessActionResult::blockedOnError, "BLOCKED_ON_ERROR"},
    }};

using ProcessActionCallback =
    std::function<void(std::expected<ProcessActionResult, DraftQueueNativeError>)>;

/// Thread-safe.
class DraftQueue {
  public:
    /// The queue that is the runtime's object `draftQueue`. Throws std::invalid_argument when that
    /// holds nothing.
    static std::shared_ptr<DraftQueue> create(js::Value draftQueue);

    /// Asks the runtime before it returns, on the calling thread (or on the engine's while that
    /// waits, where the context is bound to a thread). `response` is called once, on the thread on
    /// which the runtime settles its promise, also when the queue is gone by then; never when the
    /// runtime returns no promise, or never settles it. What the runtime throws goes to the
    /// context's uncaught handler.
    void processNextAction(ProcessActionCallback response);

  private:
    explicit DraftQueue(js::Value draftQueue);
    const js::Value draftQueue;
};

} // namespace zem

namespace tessel {

template <>
struct RawTexts<zem::ProcessActionResult> {
    static constexpr auto& table = zem::processActionResultTexts;
};

} // namespace tessel
