#include "Drafts.h"

#include "CommandFailure.h"
#include "DraftsTable.h"
#include <zem/Tessel/JSON.h>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace zem::host {

namespace {

std::int64_t now() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

/// `what` is what was to be read.
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

RuntimePart partOf(const DraftsCommand& command) {
    return std::holds_alternative<ProcessDraft>(command.value) ? RuntimePart::draftQueue
                                                               : RuntimePart::draftManager;
}

} // namespace

void Drafts::perform(const DraftsCommand& command, const CommandOrigin& origin) {
    std::visit(
        [&](const auto& value) {
            using Value = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<Value, RunDrafts> || std::is_same_v<Value, WatchDrafts>) {
                perform(value, origin);
            } else {
                perform(value, calls->answer(calls->add(Calls::Kind::drafts, partOf(command),
                                                        origin, command.name)));
            }
        },
        command.value);
}

void Drafts::perform(const ListDrafts&, CallAnswer answer) const {
    ask([answer = std::move(answer)](RuntimeServices& services) {
        services.draftManager().getDraftQueue(queueTo(answer));
    });
}

void Drafts::perform(const ShowDraft& command, CallAnswer answer) const {
    ask([id = command.id, answer = std::move(answer)](RuntimeServices& services) {
        services.draftManager().getDraftQueue([id, answer](const auto& result) {
            answer(resultOf(result, queueName, [&](const DraftManagerState& state) -> CallResult {
                const auto found = std::ranges::find(state.items, id, &DraftQueueItem::id);
                if (found == state.items.end()) {
                    return std::unexpected(fmt::format("there is no draft \"{}\"", id));
                }
                return showItem(*found);
            }));
        });
    });
}

void Drafts::perform(const RemoveDraft& command, CallAnswer answer) const {
    ask([id = command.id, answer = std::move(answer)](RuntimeServices& services) {
        services.draftManager().removeItem(id, queueTo(answer));
    });
}

void Drafts::perform(const ReplaceDraft& command, CallAnswer answer) const {
    ask([command, answer = std::move(answer)](RuntimeServices& services) {
        services.draftManager().replaceItem(command.id, command.withId, itemTo(answer));
    });
}

void Drafts::perform(const MergeDrafts& command, CallAnswer answer) const {
    ask([command, answer = std::move(answer)](RuntimeServices& services) {
        services.draftManager().mergeAction(command.sourceId, command.targetId, itemTo(answer));
    });
}

void Drafts::perform(const SetDraftMetadata& command, CallAnswer answer) const {
    ask([command, answer = std::move(answer)](RuntimeServices& services) {
        services.draftManager().setMetadata(command.id, command.metadata, itemTo(answer));
    });
}

void Drafts::perform(const ProcessDraft&, CallAnswer answer) const {
    ask([answer = std::move(answer)](RuntimeServices& services) {
        services.processNextAction([answer](const auto& result) {
            answer(resultOf(result, "what became of the next draft", [](ProcessActionResult made) {
                return showWord(tessel::rawText(made));
            }));
        });
    });
}

void Drafts::perform(const AddDraft& command, CallAnswer answer) const {
    ask([command, answer = std::move(answer)](RuntimeServices& services) {
        services.draftManager().addExternalAction(command.targetId, command.metadata,
                                                  itemTo(answer));
    });
}

void Drafts::perform(const SetDraftsExecutor& command, CallAnswer answer) const {
    ask([command, answer = std::move(answer)](RuntimeServices& services) {
        services.draftManager().setExternalActionExecutor(
            [result = command.result](const DraftQueueItem&, const CustomActionReply& reply) {
                reply(result);
            },
            [word = command.word, answer](const auto& result) {
                answer(result ? CallResult(showWord(word))
                              : std::unexpected(textOf(result.error(), "the runtime's answer")));
            });
    });
}

void Drafts::perform(const RunDrafts& command, const CommandOrigin& origin) {
    calls->add(Calls::Kind::draftsOrder, RuntimePart::draftManager, origin,
               command.start ? "start" : "stop");
    ask([start = command.start](RuntimeServices& services) {
        if (start) {
            services.draftManager().startQueue();
        } else {
            services.draftManager().stopQueue();
        }
    });
}

void Drafts::perform(const WatchDrafts& command, const CommandOrigin& origin) {
    if (command.on) {
        beginWatch(origin);
    } else {
        endWatch();
    }
}

void Drafts::beginWatch(const CommandOrigin& origin) {
    if (watch) {
        throw CommandFailure("the drafts are watched already");
    }
    const auto call =
        calls->add(Calls::Kind::draftsOrder, RuntimePart::draftManager, origin, "watch");
    const auto end = std::make_shared<Unsubscribe>();
    watch = Watch{call, end};
    ask([calls = calls, call, end](RuntimeServices& services) {
        *end = [listening = services.draftManager().registerOnChangedListener(
                    [calls, call](const DraftManagerState& state, DraftQueueItemOperationType kind,
                                  const std::optional<DraftQueueItem>& item) {
                        calls->arrived(*call, showChange(state, kind, item));
                    })] {
            listening->unsubscribe();
        };
    });
}

void Drafts::endWatch() {
    if (!watch) {
        throw CommandFailure("the drafts are not watched");
    }
    const Watch ended = *std::exchange(watch, std::nullopt);
    calls->remove(*ended.call);
    ask([end = ended.end](RuntimeServices&) { (*end)(); });
}

} // namespace zem::host
