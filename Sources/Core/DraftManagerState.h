#pragma once

// The draft queue at a moment, and how it changes.

#include <zem/Core/DraftQueueItem.h>
#include <zem/Tessel/Coding.h>

#include <boost/describe.hpp>

#include <array>
#include <string_view>
#include <utility>
#include <vector>

namespace zem {

enum class DraftQueueState { started, stopped, error, waiting };

inline constexpr std::array<std::pair<DraftQueueState, std::string_view>, 4> draftQueueStateTexts{{
    {DraftQueueState::started, "started"},
    {DraftQueueState::stopped, "stopped"},
    {DraftQueueState::error, "error"},
    {DraftQueueState::waiting, "waiting"},
}};

struct DraftManagerState {
    DraftQueueState queueState = DraftQueueState::stopped;
    std::vector<DraftQueueItem> items; ///< in the runtime's order

    bool operator==(const DraftManagerState&) const = default;
};
BOOST_DESCRIBE_STRUCT(DraftManagerState, (), (queueState, items))

/// The kind of a change of the queue.
enum class DraftQueueItemOperationType {
    ItemAdded,
    ItemUploading,
    ItemUpdated,
    ItemDeleted,
    ItemCompleted,
    ItemFailed,
    QueueStarted,
    QueueStopped
};

/// The runtime's words for them, which are not the cases' names.
inline constexpr std::array<std::pair<DraftQueueItemOperationType, std::string_view>, 8>
    draftQueueItemOperationTypeTexts{{
        {DraftQueueItemOperationType::ItemAdded, "added"},
        {DraftQueueItemOperationType::ItemUploading, "uploading"},
        {DraftQueueItemOperationType::ItemUpdated, "updated"},
        {DraftQueueItemOperationType::ItemDeleted, "deleted"},
        {DraftQueueItemOperationType::ItemCompleted, "completed"},
        {DraftQueueItemOperationType::ItemFailed, "failed"},
        {DraftQueueItemOperationType::QueueStarted, "started"},
        {DraftQueueItemOperationType::QueueStopped, "stopped"},
    }};

} // namespace zem

namespace tessel {

template <>
struct RawTexts<zem::DraftQueueState> {
    static constexpr auto& table = zem::draftQueueStateTexts;
};

template <>
struct RawTexts<zem::DraftQueueItemOperationType> {
    static constexpr auto& table = zem::draftQueueItemOperationTypeTexts;
};

} // namespace tessel
