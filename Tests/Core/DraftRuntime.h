#pragma once

// A runtime in JavaScript with a draft manager that writes down how it is called, and what the
// tests of the native draft managers need around it.

#include <zem/Core/BatchingDraftManager.h>
#include <zem/Core/DraftManager.h>
#include <zem/JavaScript/Context.h>
#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/JSON.h>

#include <gtest/gtest.h>

#include <Core/RecordingRuntime.h>
#include <Support/Engine.h>
#include <Support/Journal.h>
#include <Support/ManualQueue.h>
#include <Support/Wait.h>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace test {

/// Runs what the main queue holds.
inline void runMainQueue() {
    zem::platform::mainQueue()->async([] { zem::platform::RunLoop::main()->stop(); });
    zem::platform::RunLoop::main()->run();
}

inline std::string textOf(const zem::DraftManagerNativeError& error) {
    using Error = zem::DraftManagerNativeError;
    if (const auto* decoding = std::get_if<Error::DecodingPromiseError>(&error.value)) {
        return "decodingPromiseError " + decoding->error.description();
    }
    if (const auto* rejection = std::get_if<Error::PromiseRejection>(&error.value)) {
        return "promiseRejection " + rejection->message;
    }
    if (const auto* unknown = std::get_if<Error::UnknownError>(&error.value)) {
        return "unknownError " + unknown->message;
    }
    return "errorEncodingRequest";
}

inline std::string textOf(const zem::DraftQueueItem& item) {
    return item.id;
}

/// "started [d1 d2]".
inline std::string textOf(const zem::DraftManagerState& state) {
    std::string text(tessel::rawText(state.queueState));
    text += " [";
    for (const zem::DraftQueueItem& item : state.items) {
        text += &item == state.items.data() ? item.id : " " + item.id;
    }
    return text + "]";
}

template <class T>
std::string textOf(const std::expected<T, zem::DraftManagerNativeError>& result) {
    if (!result) {
        return textOf(result.error());
    }
    if constexpr (std::is_void_v<T>) {
        return "done";
    } else {
        return textOf(*result);
    }
}

/// Completions and listeners of callers, and what they heard.
class DraftResults : public Journal {
  public:
    DraftResults()
        : Journal("a draft result") {}

    /// Fits every completion.
    auto callback(std::string name = {}) {
        return [this, prefix = name.empty() ? name : name + ": "](const auto& result) {
            add(prefix + textOf(result));
        };
    }

    zem::DraftQueueChangedListener listener(std::string name = "event") {
        return [this, name = std::move(name)](const zem::DraftManagerState& state,
                                              zem::DraftQueueItemOperationType kind,
                                              const std::optional<zem::DraftQueueItem>& item) {
            add(name + ": " + textOf(state) + " " + std::string(tessel::rawText(kind)) + " " +
                (item ? item->id : "-"));
        };
    }
};

class DraftRuntime : public RecordingRuntime {
  public:
    DraftRuntime() {
        // Each call is written down and answered by what a test sets as `on`, or else by a promise
        // that is kept with the others, in the order of the calls.
        evaluate(context, R"js(
            var promises = [];
            var on = {};
            var listener, executor;
            var show = (value) => typeof value === "function" ? "function" :
                value === undefined ? "undefined" : JSON.stringify(value);
            var called = (name, self, values) => {
                const answering = on[name];
                if (self !== draftManager) heard("not called on the draft manager");
                let settle;
                const promise = new Promise((resolve, reject) => { settle = { resolve, reject }; });
                promises.push(settle);
                heard(name + "(" + values.map(show).join(", ") + ")");
                return answering ? answering(...values) : promise;
            };
            var draftManager = {
                registerDraftQueueChangedListener(...values) {
                    listener = values[0];
                    heard("register(" + values.map(show).join(", ") + ")");
                    return (...ended) => heard("unregister(" + ended.map(show).join(", ") + ")");
                },
            };
            for (const name of ["getQueue", "removeDraftAction", "replaceAction", "mergeActions",
                                "setMetadata", "startQueue", "stopQueue", "addCustomAction"]) {
                draftManager[name] = function (...values) { return called(name, this, values); };
            }
            draftManager.setCustomActionExecutor = function (...values) {
                executor = values[1];
                return called("setCustomActionExecutor", this, values);
            };
            var item = (id, more) => ({
                id, state: "pending", operationType: "update", timestamp: 1, ...more,
            });
            var queue = (...ids) => ({ queueState: "started", items: ids.map((id) => item(id)) });
        )js");
    }

    /// Runs the work that destroyed managers left to be done.
    ~DraftRuntime() { runMainQueue(); }

    std::shared_ptr<zem::DraftManager> manager(const zem::DraftManagerBatch& batch = {}) {
        return zem::DraftManager::create(value("draftManager"), batch, handOverQueue);
    }

    /// Runs what the main queue holds, and what that asks of the runtime.
    void runMainQueue() {
        test::runMainQueue();
        context.perform([](zem::js::Scope&) {});
    }

    /// Settles the promise of the call of this number, from 0.
    void resolve(int call, std::string_view script) { settle("resolve", call, script); }
    void reject(int call, std::string_view script) { settle("reject", call, script); }

    std::shared_ptr<ManualQueue> handOverQueue = std::make_shared<ManualQueue>();

  private:
    void settle(const char* how, int call, std::string_view script) {
        run("promises[" + std::to_string(call) + "]." + how + "(" + std::string(script) + ")");
    }
};

} // namespace test
