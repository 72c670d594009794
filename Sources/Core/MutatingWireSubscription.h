#pragma once

// A one-shot call that was made before there was a runtime.

#include <zem/Core/AdapterRequestContext.h>
#include <zem/Core/DataServiceResult.h>

#include <optional>
#include <string>
#include <variant>

namespace zem {

/// The difference between a mutating call and a plain one.
struct SpecialOperation {
    struct SetMetadata {
        Metadata metadata;
        bool operator==(const SetMetadata&) const = default;
    };
    struct ReplaceDraft {
        std::string draftIdToReplace;
        bool operator==(const ReplaceDraft&) const = default;
    };

    static SpecialOperation setMetadata(Metadata metadata) {
        return {SetMetadata{std::move(metadata)}};
    }
    static SpecialOperation replaceDraft(std::string draftIdToReplace) {
        return {ReplaceDraft{std::move(draftIdToReplace)}};
    }

    bool operator==(const SpecialOperation&) const = default;

    std::variant<SetMetadata, ReplaceDraft> value;
};

/// Compared by identity.
struct MutatingWireSubscription {
    std::string adapterId;
    std::string config;
    /// Absent for a plain `invokeAdapter`.
    std::optional<SpecialOperation> specialOperation;
    std::optional<AdapterRequestContext> requestContext;
    ResultCallback callback;
};

} // namespace zem
