#pragma once

// The way to the draft queue for JavaScript that is not of the draft queue's own runtime.

#include <zem/Core/DraftQueueable.h>
#include <zem/Platform/Mutex.h>
#include <zem/Tessel/Callback.h>
#include <zem/Tessel/Plugin.h>

#include <memory>
#include <string>
#include <string_view>

namespace zem {

/// Offers the method `callProxyMethod(methodName, serializedArgsArray, onResult, onError)`, two
/// texts and two functions of a text, and passes every call on unchanged to the draft queue that is
/// installed. Calls that were passed on are answered also when the plugin is gone. Thread-safe.
class DraftQueuePlugin final : public tessel::Plugin,
                               public std::enable_shared_from_this<DraftQueuePlugin> {
  public:
    /// `draftQueue` may be null: calls then fail at once.
    static std::shared_ptr<DraftQueuePlugin> create(std::shared_ptr<DraftQueueable> draftQueue);

    /// A call uses the one that is installed when it begins; null takes it out.
    void setDraftQueue(std::shared_ptr<DraftQueueable> value);

    std::string_view namespace_() const override { return "ZemDraftQueue"; }
    void bind(tessel::Connection& to) override;

    /// The method natively; `onError` is called before it returns when there is no draft queue.
    void callProxyMethod(std::string methodName, std::string serializedArgsArray,
                         DraftQueueCallback onResult, DraftQueueCallback onError);

  private:
    explicit DraftQueuePlugin(std::shared_ptr<DraftQueueable> draftQueue);
    void runtimeCallProxyMethod(std::string methodName, std::string serializedArgsArray,
                                const tessel::Callback<std::string>& onResult,
                                const tessel::Callback<std::string>& onError);

    platform::Mutex lock;
    std::shared_ptr<DraftQueueable> draftQueue;
};

} // namespace zem
