#include <zem/Core/BatchingDraftManager.h>
#include <zem/Core/DraftManager.h>

#include <cstdio>
#include <future>

// Stands for the runtime: has one draft, and reports no changes.
constexpr const char* runtime = R"js(({
    registerDraftQueueChangedListener(listener) {
        return () => {};
    },
    async getQueue() {
        const metadata = { ZEM_ACTION_METADATA_API_NAME: "Account" };
        const draft = { id: "d1", state: "pending", operationType: "update", timestamp: 0, metadata };
        return { queueState: "waiting", items: [draft] };
    },
}))js";

int main() {
    // Asked for while there is no runtime yet.
    std::promise<zem::DraftManagerState> queue;
    const auto early = zem::BatchingDraftManager::create();
    early->getDraftQueue([&](auto result) {
        queue.set_value(result ? *std::move(result) : zem::DraftManagerState());
    });
    const auto handle = early->registerOnChangedListener(
        [](const zem::DraftManagerState& state, zem::DraftQueueItemOperationType, const auto&) {
            std::printf("%zu drafts\n", state.items.size());
        });

    const zem::platform::RunLoopThread thread("javascript");
    const auto context = zem::js::Context::create(thread.runLoop());
    const zem::js::Value draftManager = context.perform([](zem::js::Scope& scope) {
        return scope.keep(scope.evaluate(runtime, "runtime.js").value());
    });
    const auto drafts =
        zem::DraftManager::create(draftManager, *early->takeBatching(), zem::platform::mainQueue());
    for (const zem::DraftQueueItem& draft : queue.get_future().get().items) {
        std::printf("%s: %s\n", draft.id.c_str(), draft.targetApiName().value_or("").c_str());
    }
    handle->unsubscribe();
}
