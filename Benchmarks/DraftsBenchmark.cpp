// The cost of the draft manager beside the work that the engine has to do in any case: a long queue
// read whole; one whose items hold many fields unknown to the manager, beside the same floor; and
// many changes of a short one told to many listeners. The context is bound to a thread, as the
// host's is.

#include "BareEngine.h"
#include "Baton.h"
#include "Measure.h"
#include <zem/Core/DraftManager.h>
#include <zem/JavaScript/Context.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/JSValueCoder.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr const char* runtimeScript = R"js(
    function makeQueue(count) {
        const items = [];
        for (let n = 0; n < count; ++n) {
            const item = {
                id: "draft-" + n,
                targetId: "record-" + (1000000 + n),
                state: n % 10 === 0 ? "error" : "pending",
                operationType: n % 3 === 0 ? "create" : "update",
                timestamp: 1760000000000 + n,
                metadata: { ZEM_ACTION_METADATA_API_NAME: "Account", origin: "form-" + n % 7 },
            };
            if (n % 10 === 0) {
                item.error = {
                    status: 400,
                    headers: { "content-type": "application/json" },
                    ok: false,
                    statusText: "Bad Request",
                    bodyString: '[{"message":"Required fields are missing","errorCode":"E7"}]',
                };
            }
            items.push(item);
        }
        return { queueState: "started", items };
    }
    globalThis.long = makeQueue(10000);
    globalThis.wide = makeQueue(10000);
    for (const item of wide.items) {
        item.record = {};
        for (let field = 0; field < 30; ++field) {
            item.record["field" + field] = field % 2 === 0 ? "value " + field : field * 1.5;
        }
    }
    globalThis.asked = long;
    globalThis.short = makeQueue(100);
    let listener;
    globalThis.draftManager = {
        registerDraftQueueChangedListener(given) { listener = given; },
        getQueue() { return Promise.resolve(asked); },
    };
    globalThis.change = (count) => {
        for (let n = 0; n < count; ++n) listener(short, "updated", short.items[n % 100]);
    };
)js";

constexpr std::size_t longQueue = 10'000;
constexpr std::size_t shortQueue = 100;
constexpr int events = 10'000;
constexpr int listeners = 100;

void expectCount(std::size_t found, std::size_t expected) {
    if (found != expected) {
        throw std::runtime_error("the queue did not arrive whole");
    }
}

class Subject {
  public:
    Subject() {
        evaluate(runtimeScript);
        manager = zem::DraftManager::create(value("draftManager"), {}, context.lane());
        shortState = value("short");
    }

    void evaluate(std::string_view script) {
        context.perform(
            [&](zem::js::Scope& scope) { (void)scope.evaluate(script, "runtime.js").value(); });
    }

    zem::js::Value value(std::string_view script) {
        return context.perform([&](zem::js::Scope& scope) {
            return scope.keep(scope.evaluate(script, "runtime.js").value());
        });
    }

    /// Returns when the completion has the state.
    void getQueue() {
        manager->getDraftQueue([this](auto result) {
            held.emplace(std::move(result.value()));
            done.give();
        });
        done.take();
        expectCount(held->items.size(), longQueue);
    }

    void listen() {
        for (int count = 0; count < listeners; ++count) {
            manager->registerOnChangedListener([this](const zem::DraftManagerState& state,
                                                      zem::DraftQueueItemOperationType,
                                                      const std::optional<zem::DraftQueueItem>&) {
                itemsHeard += state.items.size();
                if (++eventsHeard == events * listeners) {
                    done.give();
                }
            });
        }
    }

    /// Returns when every listener has heard of every change.
    void change() {
        eventsHeard = 0;
        itemsHeard = 0;
        evaluate("change(" + std::to_string(events) + ")");
        done.take();
        expectCount(itemsHeard, shortQueue * events * listeners);
    }

    /// The states of as many changes.
    void decode() {
        context.perform([this](zem::js::Scope& scope) {
            for (int count = 0; count < events; ++count) {
                const auto state =
                    tessel::decodeLarge<zem::DraftManagerState>(scope, scope.local(shortState));
                expectCount(state.value().items.size(), shortQueue);
            }
        });
    }

    std::optional<zem::DraftManagerState> held;

  private:
    zem::platform::RunLoopThread thread{"engine"};
    zem::js::Context context = zem::js::Context::create(thread.runLoop());
    std::shared_ptr<zem::DraftManager> manager;
    zem::js::Value shortState;
    bench::Baton done;
    // Written on the notification queue until the baton is given.
    int eventsHeard = 0;
    std::size_t itemsHeard = 0;
};

} // namespace

int main() {
    Subject subject;
    bench::BareEngine bare(runtimeScript);
    for (const auto& [name, queue] :
         {std::pair("drafts.queue", "long"), std::pair("drafts.queue.wide", "wide")}) {
        subject.evaluate(std::string("asked = ") + queue);
        bench::report(bench::measure(
            {name, "ms", 5},
            [&] {
                subject.held.reset();
                return bench::milliseconds([&] { subject.getQueue(); });
            },
            [&] { return bench::milliseconds([&] { bare.stringify("long"); }); }, 25));
    }

    subject.listen();
    bench::report(bench::measure(
        {"drafts.events", "ms", 1.5},
        [&] { return bench::milliseconds([&] { subject.change(); }); },
        [&] { return bench::milliseconds([&] { subject.decode(); }); }, 5));
}
