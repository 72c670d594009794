#include <zem/Core/BatchingDataService.h>
#include <zem/Core/DataService.h>
#include <zem/Tessel/JSON.h>

#include <cstdio>

// Stands for the runtime: answers for accounts at once, and for contacts never.
constexpr const char* runtime = R"js(({
    subscribeToAdapter(adapterId, config, callback, requestContext) {
        if (adapterId === "getAccounts") callback({ data: { adapterId, ...JSON.parse(config) } });
        return () => {};
    },
}))js";

// In seconds. Elsewhere DataService::defaultWatchdogTimeout, three minutes, will do.
constexpr double watchdogTimeout = 1;

void print(const zem::DataServiceResult& result) {
    const std::string text = result ? tessel::toText(*result) : result.error().errorDescription();
    std::puts(text.c_str());
}

int main() {
    const auto runLoop = zem::platform::RunLoop::current();
    // Asked for while there is no runtime yet.
    const auto early = zem::BatchingDataService::create();
    const zem::Unsubscribe accounts =
        early->subscribeToAdapter("getAccounts", R"({"limit":2})", print);
    const zem::Unsubscribe contacts = early->subscribeToAdapter(
        "getContacts", "{}", [runLoop](const zem::DataServiceResult& result) {
            print(result);
            runLoop->stop();
        });

    const zem::platform::RunLoopThread thread("javascript");
    const auto context = zem::js::Context::create(thread.runLoop());
    const zem::js::Value dataService = context.perform([](zem::js::Scope& scope) {
        return scope.keep(scope.evaluate(runtime, "runtime.js").value());
    });
    const auto service =
        zem::DataService::create(dataService, nullptr, early->takeState(), watchdogTimeout);
    // This thread made the service: nothing times out unless it runs its run loop.
    runLoop->run();
    accounts();
    contacts();
}
