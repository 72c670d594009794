#pragma once

// One draft action of the runtime's queue, as it crosses the bridge.

#include <zem/Core/DataServiceResult.h>
#include <zem/Tessel/Coding.h>
#include <zem/Tessel/Packing.h>

#include <boost/describe.hpp>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zem {

enum class DraftActionStatus { pending, uploading, error, completed };

inline constexpr std::array<std::pair<DraftActionStatus, std::string_view>, 4>
    draftActionStatusTexts{{
        {DraftActionStatus::pending, "pending"},
        {DraftActionStatus::uploading, "uploading"},
        {DraftActionStatus::error, "error"},
        {DraftActionStatus::completed, "completed"},
    }};

/// The effect of the action on its record.
enum class DraftActionOperationType { create, update, delete_, custom };

inline constexpr std::array<std::pair<DraftActionOperationType, std::string_view>, 4>
    draftActionOperationTypeTexts{{
        {DraftActionOperationType::create, "create"},
        {DraftActionOperationType::update, "update"},
        {DraftActionOperationType::delete_, "delete"},
        {DraftActionOperationType::custom, "custom"},
    }};

/// The server's answer to an upload that failed.
struct DraftQueueItemError {
    std::int64_t status = 0; ///< of HTTP
    std::map<std::string, std::string> headers;
    bool ok = false;
    std::string statusText;
    std::optional<std::string> bodyString;

    /// The body where it is a JSON array of nothing but objects; empty for any other body, and for
    /// none. Parsed on each call.
    std::vector<Dictionary> body() const;

    bool operator==(const DraftQueueItemError&) const = default;
};
BOOST_DESCRIBE_STRUCT(DraftQueueItemError, (), (status, headers, ok, statusText, bodyString))

struct DraftQueueItem {
    std::string id;
    std::optional<std::string> targetId; ///< of the record that the action is for
    DraftActionStatus state = DraftActionStatus::pending;
    DraftActionOperationType operationType = DraftActionOperationType::create;
    std::int64_t timestamp = 0; ///< when it was created, in the runtime's unit
    std::optional<Metadata> metadata;
    std::optional<DraftQueueItemError> error;

    /// The metadata's value under "ZEM_ACTION_METADATA_API_NAME".
    std::optional<std::string> targetApiName() const;

    bool operator==(const DraftQueueItem&) const = default;
};
BOOST_DESCRIBE_STRUCT(DraftQueueItem, (),
                      (id, targetId, state, operationType, timestamp, metadata, error))

} // namespace zem

namespace tessel {

template <>
struct RawTexts<zem::DraftActionStatus> {
    static constexpr auto& table = zem::draftActionStatusTexts;
};

template <>
struct RawTexts<zem::DraftActionOperationType> {
    static constexpr auto& table = zem::draftActionOperationTypeTexts;
};

template <>
inline constexpr bool isPacked<zem::DraftQueueItem> = true;

} // namespace tessel
