// Any function that a facade calls, in the runtime or the application, may drop its last reference.

#include <zem/Core/BatchingDataService.h>
#include <zem/Core/BatchingDraftManager.h>
#include <zem/Core/DataService.h>
#include <zem/Core/DraftManager.h>
#include <zem/Core/DraftQueue.h>
#include <zem/Core/DraftQueueProxy.h>
#include <zem/JavaScript/Context.h>
#include <zem/TesselPluginZEM/DraftQueue/DraftQueuePlugin.h>

#include <gtest/gtest.h>

#include <Core/DraftRuntime.h>
#include <Core/ServiceRuntime.h>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zem;

/// Holds the only reference to a facade and drops it at a step of a given number, from 1.
/// Everything that the facade calls takes a step.
class Steps {
  public:
    explicit Steps(int last)
        : last(last) {}

    void hold(std::shared_ptr<void> facade) {
        const std::scoped_lock lock(mutex);
        owner = std::move(facade);
    }
    /// Steps before this do not count.
    void begin() { taken = 0; }
    void take() {
        if (++taken == last) {
            drop();
        }
    }
    void drop() {
        std::shared_ptr<void> dropped;
        const std::scoped_lock lock(mutex);
        dropped.swap(owner);
    }
    bool wasReached() const { return taken >= last; }

  private:
    const int last;
    std::atomic<int> taken = -1'000'000;
    std::mutex mutex;
    std::shared_ptr<void> owner;
};

/// A capture of the callbacks. Letting go of it is a step, too.
class Token {
  public:
    Token(std::shared_ptr<Steps> steps, std::shared_ptr<std::atomic<int>> alive)
        : steps(std::move(steps))
        , alive(std::move(alive)) {
        ++*this->alive;
    }
    ~Token() {
        steps->take();
        --*alive;
    }
    Token(const Token&) = delete;
    Token& operator=(const Token&) = delete;

    const std::shared_ptr<Steps> steps;

  private:
    const std::shared_ptr<std::atomic<int>> alive;
};

/// One facade, its runtime and its application.
class Stage {
  public:
    Stage(int last, bool isRejecting)
        : steps(std::make_shared<Steps>(last)) {
        context.setUncaughtHandler([](js::Scope&, const js::Exception&) {});
        test::setFunction(context, "step", 0,
                          [steps = steps](js::Scope& scope, js::Local, js::Arguments) {
                              steps->take();
                              return scope.undefined();
                          });
        test::evaluate(context, std::string("var isRejecting = ") +
                                    (isRejecting ? "true;" : "false;") + runtimeScript);
    }
    ~Stage() { context.setUncaughtHandler(nullptr); }
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    js::Value runtime() {
        return context.perform([](js::Scope& scope) {
            return scope.keep(scope.evaluate("runtime", "test.js").value());
        });
    }

    template <class Facade>
    Facade& hold(std::shared_ptr<Facade> facade) {
        Facade& held = *facade;
        steps->hold(std::move(facade));
        return held;
    }

    /// From here on steps count; replies that are still on their way to the runtime do not.
    void begin() {
        context.perform([](js::Scope&) {});
        steps->begin();
    }

    /// Fits every callback.
    auto callback() {
        return [token = token()](const auto&...) {
            token->steps->take();
        };
    }
    ExternalActionExecutor executor() {
        return [token = token()](const DraftQueueItem&, const CustomActionReply& reply) {
            token->steps->take();
            reply({});
        };
    }
    std::shared_ptr<const Token> token() const {
        return std::make_shared<const Token>(steps, alive);
    }

    /// Returns when all work set going has come to its end and every callback is gone.
    void settle() {
        test::waitUntil("the end of all adapter calls",
                        [] { return SharedPriorityQueue::priority()->operationCount() == 0; });
        steps->drop();
        test::runMainQueue();
        test::evaluate(context, "kept = {}");
        test::waitUntil("the end of all callbacks", [&] {
            test::collectGarbage(context);
            return *alive == 0;
        });
    }

    const js::Context context = test::makeContext();
    const std::shared_ptr<Steps> steps;

  private:
    // Steps wherever a runtime can have code of its own: reading a method, calling it, asking its
    // answer for a "then", reading and calling that, reading what it settles with.
    static constexpr const char* runtimeScript = R"js(
        var kept = {};
        var watched = (value) => typeof value !== "object" ? value : new Proxy(value, {
            get(target, name) { step(); return target[name]; },
            has(target, name) { step(); return name in target; },
            ownKeys(target) { step(); return Reflect.ownKeys(target); },
        });
        var item = watched({
            id: "d1", state: "pending", operationType: "update", timestamp: 1, metadata: { a: "b" },
        });
        var queue = watched({ queueState: "started", items: [item] });
        var ending = () => step();
        var values = { getQueue: queue, removeDraftAction: queue, processNextAction: "SUCCESS",
                       setCustomActionExecutor: ending };
        var reason = { toString() { step(); return "no"; }, get error() { step(); return "no"; } };
        var answerOf = (name) => watched({
            then(fulfilled, rejected) {
                step();
                isRejecting ? rejected?.(reason) : fulfilled(values[name] ?? item);
                step();
            },
        });
        var runtime = watched(new Proxy({}, { get: (target, name) => (...given) => {
            step();
            const functions = given.filter((one) => typeof one === "function");
            if (name === "registerDraftQueueChangedListener") {
                kept.listener = functions[0];
                return ending;
            }
            if (name === "setCustomActionExecutor") kept.executor = functions[0];
            kept.executor?.(item, () => step());
            kept.listener?.(queue, "updated", item);
            if (name === "callProxyMethod") functions[isRejecting ? 1 : 0](reason);
            if (name === "subscribeToAdapter" || name.startsWith("invokeAdapter")) {
                functions[0](watched(isRejecting ? { error: "no" } : { data: {} }));
                step();
                return ending;
            }
            step();
            return answerOf(name);
        } }));
    )js";

    const std::shared_ptr<std::atomic<int>> alive = std::make_shared<std::atomic<int>>(0);
};

class SteppingBinaryStore final : public BinaryStore {
  public:
    explicit SteppingBinaryStore(std::shared_ptr<const Token> token)
        : token(std::move(token)) {}

    std::string store(const platform::Bytes&, const std::string&, std::uint64_t) override {
        token->steps->take();
        return "handle";
    }
    void cache(const platform::URL&, std::int64_t,
               std::function<void(std::expected<std::string, std::string>)>) override {}
    void setCanonicalUrl(const std::string&, const std::string&, std::int64_t) override {}
    std::optional<platform::Bytes> cachedData(const std::string&) override { return std::nullopt; }
    bool remove(const std::string&) override {
        token->steps->take();
        return true;
    }

  private:
    const std::shared_ptr<const Token> token;
};

class SteppingDraftQueue final : public DraftQueueable {
  public:
    explicit SteppingDraftQueue(std::shared_ptr<const Token> token)
        : token(std::move(token)) {}

    void callProxyMethod(std::string, std::string, DraftQueueCallback onResult,
                         DraftQueueCallback onError) override {
        token->steps->take();
        onResult("done");
        token->steps->take();
        onResult = nullptr;
        onError = nullptr;
        token->steps->take();
    }

  private:
    const std::shared_ptr<const Token> token;
};

struct Operation {
    const char* facade;
    const char* name;
    std::function<void(Stage& stage)> run;

    friend void PrintTo(const Operation& operation, std::ostream* out) {
        *out << operation.facade << "." << operation.name;
    }
};

using DataServiceCall = void (*)(DataServiceProtocolDeprecated& service, Stage& stage);
using DraftsCall = void (*)(DraftManagerProtocol& manager, Stage& stage);

void addDataService(std::vector<Operation>& all, const char* name, DataServiceCall call) {
    all.push_back(
        {"DataService", name, [call](Stage& stage) {
             auto& service = stage.hold(DataService::create(
                 stage.runtime(), std::make_shared<SteppingBinaryStore>(stage.token()), {}, 180));
             stage.begin();
             call(service, stage);
         }});
    // The second call replaces what the first has recorded, where only the last counts.
    all.push_back({"BatchingDataService", name, [call](Stage& stage) {
                       auto& service = stage.hold(BatchingDataService::create());
                       call(service, stage);
                       stage.begin();
                       call(service, stage);
                   }});
    all.push_back({"HandedOverDataService", name, [call](Stage& stage) {
                       const auto batching = BatchingDataService::create();
                       call(*batching, stage);
                       stage.begin();
                       stage.hold(DataService::create(
                           stage.runtime(), std::make_shared<SteppingBinaryStore>(stage.token()),
                           batching->takeState(), 180));
                   }});
}

void addDrafts(std::vector<Operation>& all, const char* name, DraftsCall call) {
    const auto make = [](Stage& stage, const DraftManagerBatch& batch) {
        return DraftManager::create(stage.runtime(), batch,
                                    platform::SerialQueue::create("hand-over"));
    };
    all.push_back({"DraftManager", name, [call, make](Stage& stage) {
                       auto& manager = stage.hold(make(stage, {}));
                       manager.setExternalActionExecutor(stage.executor(), stage.callback());
                       manager.registerOnChangedListener(stage.callback());
                       stage.begin();
                       call(manager, stage);
                   }});
    all.push_back({"BatchingDraftManager", name, [call](Stage& stage) {
                       auto& manager = stage.hold(BatchingDraftManager::create());
                       call(manager, stage);
                       stage.begin();
                       call(manager, stage);
                   }});
    all.push_back({"HandedOverDrafts", name, [call, make](Stage& stage) {
                       const auto batching = BatchingDraftManager::create();
                       batching->setExternalActionExecutor(stage.executor(), stage.callback());
                       call(*batching, stage);
                       stage.begin();
                       stage.hold(make(stage, *batching->takeBatching()));
                   }});
}

template <class Config>
Config upload(const char* title) {
    Config config;
    config.title = title;
    config.fileData = {1, 2, 3};
    return config;
}

std::vector<Operation> makeOperations() {
    std::vector<Operation> all;
    addDataService(all, "invokeAdapter", [](auto& service, auto& stage) {
        service.invokeAdapter("a", "{}", stage.callback());
    });
    addDataService(all, "invokeAdapterWithMetadata", [](auto& service, auto& stage) {
        service.invokeAdapterWithMetadata("a", "{}", {{"k", "v"}}, stage.callback());
    });
    addDataService(all, "invokeAdapterWithDraftToReplace", [](auto& service, auto& stage) {
        service.invokeAdapterWithDraftToReplace("a", "{}", "d1", stage.callback());
    });
    addDataService(all, "futures", [](auto& service, auto& stage) {
        const auto token = stage.token();
        (void)service.invokeAdapter("a", "{}", std::nullopt);
    });
    addDataService(all, "subscribeToAdapter", [](auto& service, auto& stage) {
        const auto end = service.subscribeToAdapter("a", "{}", stage.callback());
        test::waitUntil("the end of all adapter calls",
                        [] { return SharedPriorityQueue::priority()->operationCount() == 0; });
        end();
        end();
    });
    addDataService(all, "subscribeToAdapterEndedAtOnce", [](auto& service, auto& stage) {
        service.subscribeToAdapter("a", "{}", stage.callback())();
    });
    addDataService(all, "executeAdapter", [](auto& service, auto& stage) {
        service.executeAdapter("a", "{}", std::nullopt, [token = stage.token()](const auto&) {
            token->steps->take();
            return true;
        });
    });
    addDataService(all, "setRimvoRecordTTL", [](auto& service, auto& stage) {
        service.setRimvoRecordTTL(1, stage.callback());
    });
    addDataService(all, "setMetadataTTL",
                   [](auto& service, auto& stage) { service.setMetadataTTL(1, stage.callback()); });
    addDataService(all, "createContentDocumentAndVersion", [](auto& service, auto& stage) {
        service.createContentDocumentAndVersion(
            upload<CreateContentDocumentAndVersionConfig>("title"), std::nullopt, stage.callback());
    });
    addDataService(all, "createContentVersion", [](auto& service, auto& stage) {
        service.createContentVersion(upload<CreateContentVersionConfig>("title"), Metadata{},
                                     stage.callback());
    });
    addDataService(all, "createContentVersionRefused", [](auto& service, auto& stage) {
        service.createContentVersion(upload<CreateContentVersionConfig>("\xff"), std::nullopt,
                                     stage.callback());
    });
    const auto takeState = [](auto& service, Stage& stage) {
        (void)service.subscribeToAdapter("a", "{}", stage.callback());
        stage.begin();
        (void)service.takeState();
    };
    all.push_back({"DataService", "takeState", [takeState](Stage& stage) {
                       takeState(stage.hold(DataService::create(stage.runtime(), nullptr, {}, 180)),
                                 stage);
                   }});
    all.push_back({"BatchingDataService", "takeState", [takeState](Stage& stage) {
                       takeState(stage.hold(BatchingDataService::create()), stage);
                   }});

    addDrafts(all, "getDraftQueue",
              [](auto& manager, auto& stage) { manager.getDraftQueue(stage.callback()); });
    addDrafts(all, "removeItem",
              [](auto& manager, auto& stage) { manager.removeItem("d1", stage.callback()); });
    addDrafts(all, "replaceItem", [](auto& manager, auto& stage) {
        manager.replaceItem("d1", "d2", stage.callback());
    });
    addDrafts(all, "mergeAction", [](auto& manager, auto& stage) {
        manager.mergeAction("d1", "d2", stage.callback());
    });
    addDrafts(all, "setMetadata", [](auto& manager, auto& stage) {
        manager.setMetadata("d1", {{"k", "v"}}, stage.callback());
    });
    addDrafts(all, "registerOnChangedListener", [](auto& manager, auto& stage) {
        const auto handle = manager.registerOnChangedListener(stage.callback());
        test::evaluate(stage.context, "kept.listener?.(queue, 'updated', item)");
        handle->unsubscribe();
        handle->unsubscribe();
    });
    addDrafts(all, "startQueue", [](auto& manager, auto& stage) {
        const auto token = stage.token();
        manager.startQueue();
    });
    addDrafts(all, "stopQueue", [](auto& manager, auto& stage) {
        const auto token = stage.token();
        manager.stopQueue();
    });
    addDrafts(all, "setExternalActionExecutor", [](auto& manager, auto& stage) {
        manager.setExternalActionExecutor(stage.executor(), stage.callback());
    });
    addDrafts(all, "addExternalAction", [](auto& manager, auto& stage) {
        manager.addExternalAction("r1", {{"k", "v"}}, stage.callback());
    });

    all.push_back({"DraftQueue", "processNextAction", [](Stage& stage) {
                       auto& queue = stage.hold(DraftQueue::create(stage.runtime()));
                       stage.begin();
                       queue.processNextAction(stage.callback());
                   }});
    all.push_back({"DraftQueueProxy", "callProxyMethod", [](Stage& stage) {
                       auto& proxy = stage.hold(DraftQueueProxy::create(stage.runtime()));
                       stage.begin();
                       proxy.callProxyMethod("m", "[]", stage.callback(), stage.callback());
                   }});
    all.push_back({"DraftQueueProxy", "callProxyMethodOfNothing", [](Stage& stage) {
                       auto& proxy = stage.hold(DraftQueueProxy::create({}));
                       stage.begin();
                       proxy.callProxyMethod("m", "[]", stage.callback(), stage.callback());
                   }});
    all.push_back({"DraftQueuePlugin", "callProxyMethod", [](Stage& stage) {
                       auto& plugin = stage.hold(DraftQueuePlugin::create(
                           std::make_shared<SteppingDraftQueue>(stage.token())));
                       stage.begin();
                       plugin.callProxyMethod("m", "[]", stage.callback(), stage.callback());
                   }});
    all.push_back({"DraftQueuePlugin", "callProxyMethodOfNothing", [](Stage& stage) {
                       auto& plugin = stage.hold(DraftQueuePlugin::create(nullptr));
                       stage.begin();
                       plugin.callProxyMethod("m", "[]", stage.callback(), stage.callback());
                   }});
    all.push_back({"DraftQueuePlugin", "setDraftQueue", [](Stage& stage) {
                       auto& plugin = stage.hold(DraftQueuePlugin::create(
                           std::make_shared<SteppingDraftQueue>(stage.token())));
                       stage.begin();
                       plugin.setDraftQueue(nullptr);
                   }});
    return all;
}

const std::vector<Operation>& operations() {
    static const std::vector<Operation> all = makeOperations();
    return all;
}

class FacadeOwner : public testing::TestWithParam<Operation> {};

TEST_P(FacadeOwner, MayBeDroppedByWhateverTheOperationCalls) {
    for (const bool isRejecting : {false, true}) {
        bool isReached = true;
        int last = 1;
        for (; isReached; ++last) {
            Stage stage(last, isRejecting);
            GetParam().run(stage);
            stage.settle();
            isReached = stage.steps->wasReached();
        }
        EXPECT_GT(last, 2) << "nothing was called";
    }
}

std::string nameOf(const testing::TestParamInfo<Operation>& operation) {
    return std::string(operation.param.facade) + "_" + operation.param.name;
}
INSTANTIATE_TEST_SUITE_P(, FacadeOwner, testing::ValuesIn(operations()), nameOf);

} // namespace
