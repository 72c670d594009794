#pragma once

// A runtime in JavaScript with a data-service object that writes down how it is called, and what
// the tests of the services need around it.

#include <zem/Core/AdapterInvokeOperation.h>
#include <zem/Core/DataService.h>
#include <zem/Core/SharedPriorityQueue.h>
#include <zem/JavaScript/Context.h>
#include <zem/Platform/Queue.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/JSON.h>

#include <gtest/gtest.h>

#include <Core/RecordingRuntime.h>
#include <Support/Engine.h>
#include <Support/Journal.h>
#include <Support/Wait.h>
#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace test {

inline std::string textOf(const zem::DataServiceResult& result) {
    return result ? tessel::toText(*result) : result.error().errorDescription();
}

/// Callbacks of callers, and what they heard.
class Results : public Journal {
  public:
    Results()
        : Journal("a result") {}

    zem::ResultCallback callback(std::string name = {}) {
        return [this,
                prefix = name.empty() ? name : name + ": "](const zem::DataServiceResult& result) {
            add(prefix + textOf(result));
        };
    }
};

/// Takes all slots of the shared queue, so that nothing else starts until they are given back.
class HeldQueue {
  public:
    HeldQueue() {
        for (auto& slot : slots) {
            slot = zem::AdapterInvokeOperation::create(zem::AdapterRequestPriority::high);
            slot->setWorkBlock([this] { taken.signal(); });
            zem::SharedPriorityQueue::priority()->addOperation(slot);
        }
        taken.wait(static_cast<int>(slots.size()));
    }
    ~HeldQueue() { release(); }
    HeldQueue(const HeldQueue&) = delete;
    HeldQueue& operator=(const HeldQueue&) = delete;

    void releaseOne() { slots[released++]->finish(); }
    void release() {
        while (released < slots.size()) {
            releaseOne();
        }
    }

  private:
    Event taken{"a slot on the shared queue"};
    std::array<std::shared_ptr<zem::AdapterInvokeOperation>,
               zem::SharedPriorityQueue::maxConcurrentOperationCount>
        slots;
    std::size_t released = 0;
};

/// A subscription is live a moment after the runtime was asked for it.
inline void waitForSubscriptions(const zem::DataService& service, std::size_t count) {
    waitUntil("a live subscription", [&] { return service.subscriptionCount() == count; });
}

/// Drops the last reference that a test has, and returns when the service is gone: a call that is
/// just being made holds it for so long.
inline void destroy(std::shared_ptr<zem::DataService>& service) {
    const std::weak_ptr<zem::DataService> watched = service;
    service.reset();
    waitUntil("the end of a service", [&] { return watched.expired(); });
}

class ServiceRuntime : public RecordingRuntime {
  public:
    ServiceRuntime() {
        // Each call is written down and its callback kept, in the order of the calls. A function
        // that a test sets in `on` answers it.
        evaluate(context, R"js(
            var callbacks = [];
            var callbackOf = {};
            var on = {};
            var show = (value) => typeof value === "function" ? "callback" :
                value === undefined ? "undefined" : JSON.stringify(value);
            var called = (name, values) => {
                // Now: while this is heard of, the test may go on to something else.
                const answering = on[name];
                callbacks.push(values.find((value) => typeof value === "function"));
                callbackOf[values[0]] = callbacks.at(-1);
                heard(name + "(" + values.map(show).join(", ") + ")");
                return answering?.(...values);
            };
            var zem = {
                invokeAdapter(...values) { return called("invokeAdapter", values); },
                invokeAdapterWithMetadata(...values) {
                    return called("invokeAdapterWithMetadata", values);
                },
                invokeAdapterWithDraftToReplace(...values) {
                    return called("invokeAdapterWithDraftToReplace", values);
                },
                subscribeToAdapter(...values) {
                    called("subscribeToAdapter", values);
                    return () => heard("unsubscribe(" + values[0] + ")");
                },
                setRimvoRecordTTL(...values) { return called("setRimvoRecordTTL", values); },
                setMetadataTTL(...values) { return called("setMetadataTTL", values); },
            };
        )js");
    }

    /// Waits for the calls on their way to the runtime: one that has no answer by now would hold
    /// its slot for ever, and fails the test.
    ~ServiceRuntime() {
        try {
            waitUntil("the end of all adapter calls",
                      [] { return zem::SharedPriorityQueue::priority()->operationCount() == 0; });
            context.perform([](zem::js::Scope&) {});
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
    }

    std::shared_ptr<zem::DataService>
    service(zem::DataServiceState state = {},
            double watchdogTimeout = zem::DataService::defaultWatchdogTimeout) {
        return zem::DataService::create(value("zem"), nullptr, std::move(state), watchdogTimeout);
    }

    /// Answers the call of this number, from 0, with the value of a script.
    void answer(int call, std::string_view script) {
        evaluate(context, "callbacks[" + std::to_string(call) + "](" + std::string(script) + ")");
    }

    /// Answers the latest call of this adapter.
    void emit(std::string_view adapterId, std::string_view script) {
        evaluate(context,
                 "callbackOf[\"" + std::string(adapterId) + "\"](" + std::string(script) + ")");
    }

    /// Whether every slot on the shared queue is free: as many calls as it has slots run at once.
    void expectAllSlotsFree() {
        // Earlier calls that are still on their way do not count.
        Journal probes("a call of the probe");
        setFunction(context, "probed", 0,
                    [&](zem::js::Scope& scope, zem::js::Local,
                        zem::js::Arguments) -> zem::js::Result<zem::js::Local> {
                        probes.add({});
                        return scope.undefined();
                    });
        evaluate(context, "callbacks = []; on = { invokeAdapter: () => probed() };");
        const auto probing = service();
        constexpr int slots = zem::SharedPriorityQueue::maxConcurrentOperationCount;
        Results results;
        for (int index = 0; index < slots; ++index) {
            probing->invokeAdapter("probe", "{}", results.callback());
        }
        probes.wait(slots);
        for (int index = 0; index < slots; ++index) {
            answer(index, "{ data: {} }");
        }
        EXPECT_EQ(results.wait(slots), std::vector<std::string>(slots, "{}"));
        evaluate(context, "on = {};");
    }

    /// The clock of the services that a test makes, moved by hand.
    std::shared_ptr<zem::platform::ManualRunLoop> clock = zem::platform::ManualRunLoop::create();
};

} // namespace test
