#include "Calls.h"

#include "CommandFailure.h"
#include "Process/Failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace zem::host {

/// Guarded by the mutex of its Calls, except the constants.
class Call {
  public:
    Call(Calls::Kind kind, RuntimePart part, CommandOrigin given, const std::string& what)
        : kind(kind)
        , part(part)
        , origin(std::move(given))
        , label(kind == Calls::Kind::ttl ? fmt::format("ttl {}", *origin.name)
                                         : fmt::format("{} {}", *origin.name, what)) {}

    /// The run waits for it.
    bool isAnsweredOnce() const {
        return kind == Calls::Kind::invocation || kind == Calls::Kind::drafts;
    }

    const Calls::Kind kind;
    const RuntimePart part;
    const CommandOrigin origin;
    const std::string label;
    bool isSettled = false;
    bool isRemoved = false;
    /// Keeps the run from ending.
    std::unique_ptr<tessel::ActivityToken> token;
};

/// Shared by the copies of a CallAnswer.
class Calls::Answer {
  public:
    Answer(std::shared_ptr<Calls> calls, std::shared_ptr<Call> call)
        : calls(std::move(calls))
        , call(std::move(call)) {}
    ~Answer() { calls->dropped(*call); }
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    void arrived(const CallResult& result) const { calls->arrived(*call, result); }

  private:
    const std::shared_ptr<Calls> calls;
    const std::shared_ptr<Call> call;
};

namespace {

char initialOf(Calls::Kind kind) {
    switch (kind) {
    case Calls::Kind::subscription:
        return 's';
    case Calls::Kind::drafts:
    case Calls::Kind::draftsOrder:
        return 'd';
    default:
        return 'i';
    }
}

} // namespace

Calls::Calls(Report report, std::shared_ptr<Ending> ending,
             std::shared_ptr<tessel::Activity> activity)
    : report(std::move(report))
    , ending(std::move(ending))
    , activity(std::move(activity)) {}

std::shared_ptr<Call> Calls::add(Kind kind, RuntimePart part, CommandOrigin origin,
                                 const std::string& what) {
    const platform::Lock lock(mutex);
    if (kind == Kind::ttl) {
        auto call = std::make_shared<Call>(kind, part, std::move(origin), "");
        std::erase_if(ttls, [&](const auto& before) {
            return before->isSettled || before->origin.name == call->origin.name;
        });
        ttls.push_back(call);
        return call;
    }
    if (!origin.name) {
        const char initial = initialOf(kind);
        do {
            origin.name = fmt::format("{}{}", initial, ++counts[initial]);
        } while (named.contains(*origin.name));
    } else if (named.contains(*origin.name)) {
        throw CommandFailure(fmt::format("the name \"{}\" is taken", *origin.name));
    }
    auto call = std::make_shared<Call>(kind, part, std::move(origin), what);
    if (call->isAnsweredOnce() && ready.contains(part)) {
        call->token = std::make_unique<tessel::ActivityToken>(activity);
    }
    // If the runtime is there, the command itself waits until it was called.
    call->isSettled = kind == Kind::draftsOrder && ready.contains(part);
    named.emplace(*call->origin.name, call);
    return call;
}

const std::string& Calls::nameOf(const Call& call) {
    return *call.origin.name;
}

void Calls::removeSubscription(const std::string& name) {
    const platform::Lock lock(mutex);
    const auto found = named.find(name);
    if (found == named.end() || found->second->kind != Kind::subscription) {
        throw CommandFailure(fmt::format("there is no subscription \"{}\"", name));
    }
    found->second->isRemoved = true;
    named.erase(found);
}

void Calls::remove(Call& call) {
    const platform::Lock lock(mutex);
    call.isRemoved = true;
    named.erase(nameOf(call));
}

std::vector<std::string> Calls::subscriptionNames() const {
    const platform::Lock lock(mutex);
    std::vector<std::string> names;
    for (const auto& [name, call] : named) {
        if (call->kind == Kind::subscription) {
            names.push_back(name);
        }
    }
    return names;
}

void Calls::arrived(Call& call, const CallResult& result) {
    {
        const platform::Lock lock(mutex);
        if (call.isRemoved) {
            return;
        }
    }
    if (ending->requested()) {
        return;
    }
    if (result) {
        report.data(call.origin, call.label, *result);
    } else if (call.kind == Kind::subscription) {
        // The subscription goes on: a failure is one of its possible results.
        report.failure(call.origin, call.label, result.error());
    } else {
        failed(call.origin, call.label, result.error());
    }
    settle(call);
}

CallAnswer Calls::answer(std::shared_ptr<Call> call) {
    return [shared = std::make_shared<const Answer>(shared_from_this(), std::move(call))](
               const CallResult& result) {
        shared->arrived(result);
    };
}

void Calls::dropped(Call& call) {
    {
        const platform::Lock lock(mutex);
        if (call.isSettled) {
            return;
        }
    }
    arrived(call,
            std::unexpected("dropped unanswered, by the runtime or for a later command like it"));
}

void Calls::settle(Call& call) {
    // Destroyed without the lock: the last token ends the run.
    std::unique_ptr<tessel::ActivityToken> token;
    std::function<void()> handler;
    {
        const platform::Lock lock(mutex);
        call.isSettled = true;
        token = std::move(call.token);
        handler = changeHandler;
    }
    if (handler) {
        handler();
    }
}

void Calls::runtimeIsMissing(const MissingParts& missing) {
    std::vector<std::shared_ptr<Call>> told;
    std::vector<std::shared_ptr<Call>> failing;
    {
        const platform::Lock lock(mutex);
        for (const RuntimePart part :
             {RuntimePart::dataService, RuntimePart::draftManager, RuntimePart::draftQueue}) {
            if (!missing.contains(part)) {
                ready.insert(part);
            }
        }
        failing = ttls;
        for (const auto& [name, call] : named) {
            failing.push_back(call);
        }
        std::erase_if(failing, [](const auto& call) { return call->isSettled; });
        for (const auto& call : failing) {
            if (!ready.contains(call->part)) {
                continue;
            }
            if (call->kind == Kind::draftsOrder) {
                told.push_back(call);
            } else if (call->isAnsweredOnce() && call->token == nullptr) {
                call->token = std::make_unique<tessel::ActivityToken>(activity);
            }
        }
        std::erase_if(failing, [this](const auto& call) { return ready.contains(call->part); });
    }
    for (const auto& call : told) {
        settle(*call);
    }
    std::ranges::sort(failing, {}, [](const auto& call) { return call->origin.line; });
    for (const auto& call : failing) {
        failed(call->origin, call->label, missing.at(call->part));
        settle(*call);
    }
}

void Calls::failed(const CommandOrigin& origin, const std::string& label,
                   const std::string& error) {
    if (ending->requested()) {
        return;
    }
    if (origin.mayFail) {
        report.failure(origin, label, error);
        return;
    }
    if (!endReported.exchange(true)) {
        report.end(origin, label, error);
        ending->request(exitCommand);
    }
}

std::vector<std::shared_ptr<Call>> Calls::awaited(const std::optional<std::string>& name) const {
    std::vector<std::shared_ptr<Call>> calls;
    const platform::Lock lock(mutex);
    if (!name) {
        for (const auto& [known, call] : named) {
            calls.push_back(call);
        }
        std::ranges::sort(calls, {}, [](const auto& call) { return call->origin.line; });
        return calls;
    }
    const auto found = named.find(*name);
    if (found == named.end()) {
        throw CommandFailure(fmt::format("there is nothing called \"{}\" to wait for", *name));
    }
    calls.push_back(found->second);
    return calls;
}

Calls::Silence Calls::silent(const std::vector<std::shared_ptr<Call>>& calls,
                             const MissingParts& missing) const {
    Silence silence;
    const platform::Lock lock(mutex);
    for (const auto& call : calls) {
        if (call->isSettled) {
            continue;
        }
        silence.labels.push_back(call->label);
        const auto found = missing.find(call->part);
        if (found != missing.end() && !silence.reason) {
            silence.reason = found->second;
        }
    }
    return silence;
}

void Calls::setChangeHandler(std::function<void()> handler) {
    const platform::Lock lock(mutex);
    changeHandler.swap(handler);
}

} // namespace zem::host
