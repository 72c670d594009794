#include <zem/Core/BatchingDataService.h>
#include <zem/Core/DataService.h>
#include <zem/Tessel/JSON.h>

#include <cstdio>
#include <future>

// What the runtime would be: it answers every subscription at once.
constexpr const char* runtime = R"js(({
    subscribeToAdapter(adapterId, config, callback, requestContext) {
        callback({ data: { adapterId, ...JSON.parse(config) } });
        return () => {};
    },
}))js";

int main() {
    // Asked for while there is no runtime yet.
    std::promise<std::string> answer;
    const auto early = zem::BatchingDataService::create();
    const zem::Unsubscribe unsubscribe = early->subscribeToAdapter(
        "getAccounts", R"({"limit":2})", [&](const zem::DataServiceResult& result) {
            answer.set_value(result ? tessel::toText(*result) : result.error().errorDescription());
        });

    const zem::platform::RunLoopThread thread("javascript");
    const auto context = zem::js::Context::create(thread.runLoop());
    const zem::js::Value dataService = context.perform([](zem::js::Scope& scope) {
        return scope.keep(scope.evaluate(runtime, "runtime.js").value());
    });
    const auto service = zem::DataService::create(dataService, nullptr, early->takeState(),
                                                  zem::DataService::defaultWatchdogTimeout);
    std::puts(answer.get_future().get().c_str());
    unsubscribe();
}
