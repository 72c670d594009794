#pragma once

// A draft queue that is an object of a runtime.

#include <zem/Core/DraftQueueable.h>
#include <zem/JavaScript/Value.h>
#include <zem/Platform/Mutex.h>

#include <memory>
#include <string>

namespace zem {

/// Passes calls on to the object's own function `callProxyMethod`, on the calling thread (or on the
/// engine's while that waits, where the context is bound to a thread). Callbacks are called on the
/// thread on which the runtime answers, or before the call returns where that cannot be asked; of
/// several answers the first counts. Thread-safe.
class DraftQueueProxy final : public DraftQueueable {
  public:
    /// `tesselDraftQueue` may hold nothing: every call then fails.
    static std::shared_ptr<DraftQueueProxy> create(js::Value tesselDraftQueue);

    /// A call uses the object that is set when it begins.
    void setTesselDraftQueue(js::Value value);

    void callProxyMethod(std::string methodName, std::string serializedArgsArray,
                         DraftQueueCallback onResult, DraftQueueCallback onError) override;

  private:
    explicit DraftQueueProxy(js::Value tesselDraftQueue);

    mutable platform::Mutex lock;
    js::Value tesselDraftQueue;
};

} // namespace zem
