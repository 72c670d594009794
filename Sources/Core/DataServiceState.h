#pragma once

// The state that one service hands over to the next.

#include <zem/Core/BatchingSubscription.h>
#include <zem/Core/ContentAdapterConfigs.h>
#include <zem/Core/DataServiceResult.h>
#include <zem/Core/MutatingWireSubscription.h>
#include <zem/Core/WireSubscription.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace zem {

/// A time to live that waits for the runtime.
struct TTLWrapper {
    std::int64_t ttlValue = 0;
    std::function<void()> ttlCompletion;
};

/// All lists are in the order of the requests.
struct DataServiceState {
    std::vector<std::shared_ptr<BatchingSubscription<ResultCallback, WireSubscription>>>
        subscriptions;
    std::vector<std::shared_ptr<MutatingWireSubscription>> mutatingSubscriptions;
    std::vector<std::shared_ptr<ContentVersionOperation>> contentVersionOperations;
    std::optional<TTLWrapper> recordTTL;
    std::optional<TTLWrapper> metadataTTL;
};

class DataServiceStateProviding {
  public:
    virtual ~DataServiceStateProviding() = default;

    /// Hands over what the service has recorded or keeps, and leaves it with nothing. The
    /// callbacks and unsubscribe callbacks of the callers keep working in the service that is made
    /// of it. No callback is called twice at once, also while both services are alive.
    ///
    /// A runtime that was asked for a subscription before is asked for it a second time. It is told
    /// of the end of the first one then, and never of the end of the second: the caller's
    /// unsubscribe callback silences that one, but in the runtime it stays open as long as the
    /// runtime's object lives. An application that minds lets that object go and takes a fresh one,
    /// or ends its subscriptions and asks for them anew instead of handing them over.
    [[nodiscard]] virtual DataServiceState takeState() = 0;
};

} // namespace zem
