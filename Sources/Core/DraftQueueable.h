#pragma once

// A draft queue as JavaScript outside its own runtime sees it.

#include <functional>
#include <string>

namespace zem {

using DraftQueueCallback = std::function<void(std::string)>;

class DraftQueueable {
  public:
    virtual ~DraftQueueable() = default;

    /// Calls a method of the draft queue. Arguments and result are opaque texts. Calls exactly one
    /// of the callbacks, once: before returning or later, on any thread.
    virtual void callProxyMethod(std::string methodName, std::string serializedArgsArray,
                                 DraftQueueCallback onResult, DraftQueueCallback onError) = 0;
};

} // namespace zem
