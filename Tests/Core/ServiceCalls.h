#pragma once

// The four ways of asking the runtime's adapters for something, and what a test of all of them
// needs.

#include <zem/Core/DataService.h>

#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <algorithm>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace test {

/// One way of asking the runtime for something.
struct ServiceCall {
    const char* method;
    /// Returns what ends it: nothing for a one-shot call.
    zem::Unsubscribe (*ask)(zem::DataServiceProtocol& service, const std::string& config,
                            zem::ResultCallback callback);
    /// The text that a caller hears of an answer that says nothing.
    const char* nothing;
    bool isSubscription;

    friend void PrintTo(const ServiceCall& call, std::ostream* stream) { *stream << call.method; }
};

inline const ServiceCall serviceCalls[] = {
    {"invokeAdapter",
     [](zem::DataServiceProtocol& service, const std::string& config,
        zem::ResultCallback callback) -> zem::Unsubscribe {
         service.invokeAdapter("adapter", config, std::move(callback));
         return [] {
         };
     },
     "{}", false},
    {"invokeAdapterWithMetadata",
     [](zem::DataServiceProtocol& service, const std::string& config,
        zem::ResultCallback callback) -> zem::Unsubscribe {
         service.invokeAdapterWithMetadata("adapter", config, {{"a", "1"}}, std::move(callback));
         return [] {
         };
     },
     "{}", false},
    {"invokeAdapterWithDraftToReplace",
     [](zem::DataServiceProtocol& service, const std::string& config,
        zem::ResultCallback callback) -> zem::Unsubscribe {
         service.invokeAdapterWithDraftToReplace("adapter", config, "7", std::move(callback));
         return [] {
         };
     },
     "{}", false},
    {"subscribeToAdapter",
     [](zem::DataServiceProtocol& service, const std::string& config,
        zem::ResultCallback callback) {
         return service.subscribeToAdapter("adapter", config, std::move(callback));
     },
     "executeAdapter error - .unknown", true},
};

class ServiceCallTest : public testing::TestWithParam<ServiceCall> {
  protected:
    ~ServiceCallTest() override { EXPECT_EQ(runtime.uncaught.lines(), std::vector<std::string>{}); }

    zem::Unsubscribe ask(zem::DataServiceProtocol& service, zem::ResultCallback callback,
                         const std::string& config = "{}") {
        return GetParam().ask(service, config, std::move(callback));
    }

    /// The service of the value of a script.
    std::shared_ptr<zem::DataService> serviceOf(const std::string& script) {
        return zem::DataService::create(runtime.value(script), nullptr, {},
                                        zem::DataService::defaultWatchdogTimeout);
    }

    /// Replaces what the runtime does when it is asked.
    void onCall(const std::string& body) {
        evaluate(runtime.context, std::string("on.") + GetParam().method +
                                      " = (...values) => { const callback = "
                                      "callbacks.at(-1); " +
                                      body + " };");
    }

    /// How often the runtime's function was called to end the subscription.
    long ends() { return std::ranges::count(runtime.calls.lines(), "unsubscribe(adapter)"); }

    ServiceRuntime runtime;
    Results results;
};

inline std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what)) {
        text.replace(at, what.size(), with);
    }
    return text;
}

/// The name of a test's call.
inline std::string serviceCallName(const testing::TestParamInfo<ServiceCall>& call) {
    return call.param.method;
}

} // namespace test
