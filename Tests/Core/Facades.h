#pragma once

// The facades over the runtime's objects, each in the same few words: something that is listened
// to, and something that is asked for once.

#include <zem/Core/BatchingDataService.h>
#include <zem/Core/BatchingDraftManager.h>
#include <zem/Core/DataService.h>
#include <zem/Core/DraftManager.h>
#include <zem/JavaScript/Scope.h>

#include <Core/DraftRuntime.h>
#include <Core/ServiceRuntime.h>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace test {

/// A runtime that answers when it is told to, or what it is asked for at once. It has the objects
/// of all facades.
class AnsweringRuntime {
  public:
    explicit AnsweringRuntime(zem::js::Context made)
        : context(std::move(made)) {
        setFunction(
            context, "heard", 1,
            [journal = calls](zem::js::Scope& scope, zem::js::Local, zem::js::Arguments arguments) {
                journal->add(scope.toText(arguments[0]));
                return scope.undefined();
            });
        evaluate(context, R"js(
            var isAnsweredAtOnce = (kind) => false;
            // What is asked for until it has been answered, and all that the runtime knows to listen.
            var answers = {};
            var answer = (id) => (answers[id] ?? tell)(id);
            var called = (kind, id, answering) => {
                const atOnce = isAnsweredAtOnce(kind);
                answers[id] = answering;
                heard(kind + " " + id);
                if (atOnce) answer(id);
            };
            var zem = {
                invokeAdapter(id, config, answer) {
                    called("invoke", id, (id) => { delete answers[id]; answer({ data: { id } }); });
                },
                subscribeToAdapter(id, config, answer) {
                    called("listen", id, (id) => answer({ data: { id } }));
                    return () => { delete answers[id]; heard("end " + id); };
                },
            };

            var listeners = new Set();
            var item = (id) => ({ id, state: "pending", operationType: "update", timestamp: 1 });
            var queue = (id) => ({ queueState: "started", items: [item(id)] });
            var tell = (id) => {
                for (const listener of listeners) listener(queue(id), "updated", item(id));
            };
            var draftManager = {
                registerDraftQueueChangedListener(listener) {
                    listeners.add(listener);
                    return () => listeners.delete(listener);
                },
                removeDraftAction(id) {
                    return new Promise((resolve) => called("invoke", id, (id) => {
                        delete answers[id];
                        resolve(queue(id));
                    }));
                },
            };
        )js");
    }

    zem::js::Value value(std::string_view script) {
        return context.perform([&](zem::js::Scope& scope) {
            return scope.keep(scope.evaluate(script, "test.js").value());
        });
    }
    /// Answers everything at once from now on. Earlier calls stay unanswered.
    void answerAtOnce() { evaluate(context, "isAnsweredAtOnce = () => true"); }
    /// Answers what is asked for, or tells those who listen, under this name.
    void answer(const std::string& id) { evaluate(context, "answer('" + id + "')"); }
    void answerWhatWasAskedBefore() {
        evaluate(context, "for (const id of Object.keys(answers)) answer(id);");
    }
    /// Drops the application's reference: other owners alone keep the context from now on.
    void letGoOfContext() { context = {}; }

    zem::js::Context context;
    const std::shared_ptr<Journal> calls = std::make_shared<Journal>("a call of the runtime");
};

using Heard = std::function<void(std::string)>;

/// The facades differ in these members:
/// - `name`, for people.
/// - `asksAtOnce`: it has nothing to wait for before it is ready.
/// - `hasListenersInTheRuntime`: the runtime knows who listens, and is told of the end. Where it is
///   not, it tells everybody of everything.
class OfTheDataService {
  public:
    static constexpr bool asksAtOnce = false;
    static constexpr bool hasListenersInTheRuntime = true;

    static zem::ResultCallback callback(Heard heard) {
        return [heard = std::move(heard)](const zem::DataServiceResult& result) {
            heard(textOf(result));
        };
    }
    static zem::Unsubscribe listen(zem::DataServiceProtocol& service, const std::string& id,
                                   Heard heard) {
        return service.subscribeToAdapter(id, "{}", callback(std::move(heard)));
    }
    static void invoke(zem::DataServiceProtocol& service, const std::string& id, Heard heard) {
        service.invokeAdapter(id, "{}", callback(std::move(heard)));
    }
};

/// The service itself: until it is ready, calls wait for their turn.
class DirectDataService : public OfTheDataService {
  public:
    static constexpr const char* name = "DataService";

    explicit DirectDataService(AnsweringRuntime& runtime)
        : held(std::in_place)
        , service(zem::DataService::create(runtime.value("zem"), nullptr, {}, 180)) {}

    zem::Unsubscribe listen(const std::string& id, Heard heard) {
        return OfTheDataService::listen(*service, id, std::move(heard));
    }
    void invoke(const std::string& id, Heard heard) {
        OfTheDataService::invoke(*service, id, std::move(heard));
    }
    void becomeReady() { held.reset(); }
    void takeInStragglers() {}
    void destroy() { service.reset(); }

  private:
    std::optional<HeldQueue> held;
    std::shared_ptr<zem::DataService> service;
};

/// The batching service, and the service made of its state. Until then, calls are recorded.
class HandedOverDataService : public OfTheDataService {
  public:
    static constexpr const char* name = "BatchingDataService";

    explicit HandedOverDataService(AnsweringRuntime& runtime)
        : zem(runtime.value("zem")) {}

    zem::Unsubscribe listen(const std::string& id, Heard heard) {
        return OfTheDataService::listen(*current.load(), id, std::move(heard));
    }
    void invoke(const std::string& id, Heard heard) {
        OfTheDataService::invoke(*current.load(), id, std::move(heard));
    }
    void becomeReady() {
        service = handOver();
        current = service.get();
    }
    /// Takes over the calls that reached the batching service after its state was taken.
    void takeInStragglers() { stragglers = handOver(); }
    void destroy() {
        stragglers.reset();
        service.reset();
        batching.reset();
    }

  private:
    std::shared_ptr<zem::DataService> handOver() {
        return zem::DataService::create(zem, nullptr, batching->takeState(), 180);
    }

    const zem::js::Value zem;
    std::shared_ptr<zem::BatchingDataService> batching = zem::BatchingDataService::create();
    std::shared_ptr<zem::DataService> service;
    std::shared_ptr<zem::DataService> stragglers;
    std::atomic<zem::DataServiceProtocol*> current = batching.get();
};

class OfTheDrafts {
  public:
    static constexpr bool hasListenersInTheRuntime = false;

    static std::string textOf(const std::string& id) { return R"({"id":")" + id + "\"}"; }
    static zem::Unsubscribe listen(zem::DraftManagerProtocol& manager, const std::string& id,
                                   Heard heard) {
        return [handle = manager.registerOnChangedListener(
                    [id, heard = std::move(heard)](const auto&, auto, const auto& item) {
                        if (item->id == id) {
                            heard(textOf(id));
                        }
                    })] {
            handle->unsubscribe();
        };
    }
    static void invoke(zem::DraftManagerProtocol& manager, const std::string& id, Heard heard) {
        manager.removeItem(id, [heard = std::move(heard)](const auto& result) {
            heard(textOf(result->items.at(0).id));
        });
    }
};

/// The manager itself, which asks at once.
class DirectDrafts : public OfTheDrafts {
  public:
    static constexpr const char* name = "DraftManager";
    static constexpr bool asksAtOnce = true;

    explicit DirectDrafts(AnsweringRuntime& runtime)
        : manager(zem::DraftManager::create(runtime.value("draftManager"), {},
                                            std::make_shared<ManualQueue>())) {}

    zem::Unsubscribe listen(const std::string& id, Heard heard) {
        return OfTheDrafts::listen(*manager, id, std::move(heard));
    }
    void invoke(const std::string& id, Heard heard) {
        OfTheDrafts::invoke(*manager, id, std::move(heard));
    }
    void becomeReady() {}
    void takeInStragglers() {}
    void destroy() { manager.reset(); }

  private:
    std::shared_ptr<zem::DraftManager> manager;
};

/// The batching manager, and the manager made of its batch.
class HandedOverDrafts : public OfTheDrafts {
  public:
    static constexpr const char* name = "BatchingDraftManager";
    static constexpr bool asksAtOnce = false;

    explicit HandedOverDrafts(AnsweringRuntime& runtime)
        : draftManager(runtime.value("draftManager")) {}

    zem::Unsubscribe listen(const std::string& id, Heard heard) {
        return OfTheDrafts::listen(*current.load(), id, std::move(heard));
    }
    void invoke(const std::string& id, Heard heard) {
        OfTheDrafts::invoke(*current.load(), id, std::move(heard));
    }
    void becomeReady() {
        manager = handOver();
        current = manager.get();
    }
    void takeInStragglers() { stragglers = handOver(); }
    void destroy() {
        stragglers.reset();
        manager.reset();
        batching.reset();
    }

  private:
    std::shared_ptr<zem::DraftManager> handOver() {
        return zem::DraftManager::create(draftManager, *batching->takeBatching(),
                                         std::make_shared<ManualQueue>());
    }

    const zem::js::Value draftManager;
    std::shared_ptr<zem::BatchingDraftManager> batching = zem::BatchingDraftManager::create();
    std::shared_ptr<zem::DraftManager> manager;
    std::shared_ptr<zem::DraftManager> stragglers;
    std::atomic<zem::DraftManagerProtocol*> current = batching.get();
};

} // namespace test
