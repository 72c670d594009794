#include "DraftsCommands.h"

#include "Arguments.h"
#include "DraftsTable.h"
#include <zem/Core/CustomActionResult.h>
#include <zem/Tessel/JSON.h>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace zem::host {

namespace {

std::int64_t now() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

/// `what` names the answer that cannot be read.
template <class Error>
std::string textOf(const Error& error, std::string_view what) {
    return std::visit(
        [&](const auto& made) {
            if constexpr (requires { made.error; }) {
                return fmt::format("{}: {}", what, made.error.description());
            } else {
                return made.message;
            }
        },
        error.value);
}

template <class Value, class Error, class Show>
CallResult resultOf(const std::expected<Value, Error>& result, std::string_view what,
                    const Show& showValue) {
    if (!result) {
        return std::unexpected(textOf(result.error(), what));
    }
    return showValue(*result);
}

Shown showState(const DraftManagerState& state) {
    return {describe(state, now()), tessel::toText(tessel::toAny(state))};
}

Shown showItem(const DraftQueueItem& item) {
    return show(tessel::toAny(item));
}

Shown showWord(std::string_view word) {
    return {std::string(word), tessel::toText(tessel::Any(boost::json::string(word)))};
}

Shown showChange(const DraftManagerState& state, DraftQueueItemOperationType kind,
                 const std::optional<DraftQueueItem>& item) {
    return show(boost::json::object{{"kind", tessel::toAny(kind)},
                                    {"item", tessel::toAny(item)},
                                    {"queueState", tessel::toAny(state.queueState)}});
}

constexpr std::string_view queueName = "the runtime's draft queue";

DraftManagerStateCallback queueTo(CallAnswer answer) {
    return [answer = std::move(answer)](const auto& result) {
        answer(resultOf(result, queueName, showState));
    };
}

DraftQueueItemCallback itemTo(CallAnswer answer) {
    return [answer = std::move(answer)](const auto& result) {
        answer(resultOf(result, "the runtime's draft", showItem));
    };
}

/// Asks a part of the runtime for one answer and prints it under `name`.
void askForAnswer(CommandContext& context, const CommandOrigin& origin, const std::string& name,
                  RuntimePart part,
                  const std::function<void(RuntimeServices&, const CallAnswer&)>& question) {
    const auto call = context.calls->add(Calls::Kind::drafts, part, origin, name);
    context.ask([question, answer = context.calls->answer(call)](RuntimeServices& services) {
        question(services, answer);
    });
}

/// The same of the draft manager.
void askManager(CommandContext& context, const CommandOrigin& origin, const std::string& name,
                const std::function<void(DraftManagerProtocol&, const CallAnswer&)>& question) {
    askForAnswer(context, origin, name, RuntimePart::draftManager,
                 [question](RuntimeServices& services, const CallAnswer& answer) {
                     question(services.draftManager(), answer);
                 });
}

/// Gives an order that has no answer.
std::shared_ptr<Call> order(CommandContext& context, const CommandOrigin& origin,
                            const std::string& name) {
    return context.calls->add(Calls::Kind::draftsOrder, RuntimePart::draftManager, origin, name);
}

CustomActionResult executorResult(const std::string& word) {
    if (word == "SUCCESS") {
        return {CustomActionResultType::success, std::nullopt};
    }
    const auto type = word == "NETWORK_ERROR" ? CustomActionErrorType::networkError
                                              : CustomActionErrorType::clientError;
    return {CustomActionResultType::failure,
            CustomActionError{type, fmt::format("zem's executor answers {}", word)}};
}

void beginWatch(CommandContext& context, const CommandOrigin& origin) {
    if (context.draftsWatch) {
        throw CommandFailure("the drafts are watched already");
    }
    const auto call = order(context, origin, "watch");
    const auto end = std::make_shared<Unsubscribe>();
    context.draftsWatch = {call, end};
    context.ask([calls = context.calls, call, end](RuntimeServices& services) {
        *end = [listening = services.draftManager().registerOnChangedListener(
                    [calls, call](const DraftManagerState& state, DraftQueueItemOperationType kind,
                                  const std::optional<DraftQueueItem>& item) {
                        calls->arrived(*call, showChange(state, kind, item));
                    })] {
            listening->unsubscribe();
        };
    });
}

void endWatch(CommandContext& context) {
    if (!context.draftsWatch) {
        throw CommandFailure("the drafts are not watched");
    }
    const auto ended = *std::exchange(context.draftsWatch, std::nullopt);
    context.calls->remove(*ended.call);
    context.ask([end = ended.end](RuntimeServices&) { (*end)(); });
}

} // namespace

void listDrafts(CommandContext& context, const CommandWords&, const CommandOrigin& origin) {
    askManager(context, origin, "list",
               [](DraftManagerProtocol& manager, const CallAnswer& answer) {
                   manager.getDraftQueue(queueTo(answer));
               });
}

void showDraft(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    const auto find = [id = words["ID"]](const DraftManagerState& state) -> CallResult {
        const auto found = std::ranges::find(state.items, id, &DraftQueueItem::id);
        if (found == state.items.end()) {
            return std::unexpected(fmt::format("there is no draft \"{}\"", id));
        }
        return showItem(*found);
    };
    askManager(context, origin, "show",
               [find](DraftManagerProtocol& manager, const CallAnswer& answer) {
                   manager.getDraftQueue([find, answer](const auto& result) {
                       answer(resultOf(result, queueName, find));
                   });
               });
}

void removeDraft(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    askManager(context, origin, "remove",
               [id = words["ID"]](DraftManagerProtocol& manager, const CallAnswer& answer) {
                   manager.removeItem(id, queueTo(answer));
               });
}

void replaceDraft(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    askManager(context, origin, "replace",
               [id = words["ID"], with = words["WITH"]](DraftManagerProtocol& manager,
                                                        const CallAnswer& answer) {
                   manager.replaceItem(id, with, itemTo(answer));
               });
}

void mergeDrafts(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    askManager(context, origin, "merge",
               [source = words["SOURCE"], target = words["TARGET"]](DraftManagerProtocol& manager,
                                                                    const CallAnswer& answer) {
                   manager.mergeAction(source, target, itemTo(answer));
               });
}

void setDraftMetadata(CommandContext& context, const CommandWords& words,
                      const CommandOrigin& origin) {
    askManager(context, origin, "metadata",
               [id = words["ID"], metadata = parsePairs(words.all("K=V"), "drafts metadata")](
                   DraftManagerProtocol& manager, const CallAnswer& answer) {
                   manager.setMetadata(id, metadata, itemTo(answer));
               });
}

void startDrafts(CommandContext& context, const CommandWords&, const CommandOrigin& origin) {
    order(context, origin, "start");
    context.ask([](RuntimeServices& services) { services.draftManager().startQueue(); });
}

void stopDrafts(CommandContext& context, const CommandWords&, const CommandOrigin& origin) {
    order(context, origin, "stop");
    context.ask([](RuntimeServices& services) { services.draftManager().stopQueue(); });
}

void processDraft(CommandContext& context, const CommandWords&, const CommandOrigin& origin) {
    askForAnswer(context, origin, "process", RuntimePart::draftQueue,
                 [](RuntimeServices& services, const CallAnswer& answer) {
                     services.processNextAction([answer](const auto& result) {
                         answer(resultOf(result, "what became of the next draft",
                                         [](ProcessActionResult made) {
                                             return showWord(tessel::rawText(made));
                                         }));
                     });
                 });
}

void addDraft(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    askManager(context, origin, "add",
               [target = words["TARGET"], metadata = parsePairs(words.all("K=V"), "drafts add")](
                   DraftManagerProtocol& manager, const CallAnswer& answer) {
                   manager.addExternalAction(target, metadata, itemTo(answer));
               });
}

void setDraftsExecutor(CommandContext& context, const CommandWords& words,
                       const CommandOrigin& origin) {
    askManager(
        context, origin, "executor",
        [word = words["RESULT"]](DraftManagerProtocol& manager, const CallAnswer& answer) {
            manager.setExternalActionExecutor(
                [executed = executorResult(word)](
                    const DraftQueueItem&, const CustomActionReply& reply) { reply(executed); },
                [word, answer](const auto& result) {
                    answer(result
                               ? CallResult(showWord(word))
                               : std::unexpected(textOf(result.error(), "the runtime's answer")));
                });
        });
}

void watchDrafts(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    if (words["SWITCH"] == "on") {
        beginWatch(context, origin);
    } else {
        endWatch(context);
    }
}

} // namespace zem::host
