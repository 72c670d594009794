#pragma once

// A draft queue that is an object of a runtime.

#include <zem/Core/DraftQueueable.h>
#include <zem/JavaScript/Value.h>
#include <zem/Platform/Mutex.h>

#include <memory>
#include <string>

namespace zem {

/// Passes calls on to the object's function `callProxyMethod`, on the calling thread (or on the
/// engine's while that waits, where the context is bound to a thread): with the two texts, a
/// function for the result and a function for what went wrong. What it returns does not matter.
///
/// A callback is called on the thread on which the runtime answers, with the string form of the
/// result or the text of the error; where the function cannot be called or throws without having
/// answered, on the calling thread before the call returns. What the runtime throws goes to the
/// context's uncaught handler besides. Of several answers the first counts; then both callbacks are
/// let go of. A runtime that neither answers nor forgets the functions keeps them. The proxy itself
/// may go meanwhile. Thread-safe.
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

    platform::Mutex lock;
    js::Value tesselDraftQueue;
};

} // namespace zem
