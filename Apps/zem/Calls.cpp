#include "Calls.h"

#include "CommandParser.h"
#include "Failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace zem::host {

/// Guarded by the mutex of its Calls, but for what is const.
class Call {
  public:
    Call(Calls::Kind kind, CommandOrigin given, const std::string& adapterId)
        : kind(kind)
        , origin(std::move(given))
        , label(kind == Calls::Kind::ttl ? fmt::format("ttl {}", *origin.name)
                                         : fmt::format("{} {}", *origin.name, adapterId)) {}

    const Calls::Kind kind;
    const CommandOrigin origin;
    const std::string label;
    bool isSettled = false;
    bool isRemoved = false;
    /// Keeps the run from ending.
    std::unique_ptr<tessel::ActivityToken> token;
};

Calls::Calls(Report report, std::shared_ptr<Ending> ending,
             std::shared_ptr<tessel::Activity> activity)
    : report(std::move(report))
    , ending(std::move(ending))
    , activity(std::move(activity)) {}

std::shared_ptr<Call> Calls::add(Kind kind, CommandOrigin origin, const std::string& adapterId) {
    const platform::Lock lock(mutex);
    if (kind == Kind::ttl) {
        auto call = std::make_shared<Call>(kind, std::move(origin), "");
        std::erase_if(ttls, [&](const auto& before) {
            return before->isSettled || before->origin.name == call->origin.name;
        });
        ttls.push_back(call);
        return call;
    }
    if (!origin.name) {
        do {
            origin.name = kind == Kind::invocation ? fmt::format("i{}", ++invocations)
                                                   : fmt::format("s{}", ++subscriptions);
        } while (named.contains(*origin.name));
    } else if (named.contains(*origin.name)) {
        throw CommandFailure(fmt::format("the name \"{}\" is taken", *origin.name));
    }
    auto call = std::make_shared<Call>(kind, std::move(origin), adapterId);
    if (kind == Kind::invocation && isReady) {
        call->token = std::make_unique<tessel::ActivityToken>(activity);
    }
    named.emplace(*call->origin.name, call);
    return call;
}

const std::string& Calls::nameOf(const Call& call) {
    return *call.origin.name;
}

std::shared_ptr<Call> Calls::removeSubscription(const std::string& name) {
    const platform::Lock lock(mutex);
    const auto found = named.find(name);
    if (found == named.end() || found->second->kind != Kind::subscription) {
        throw CommandFailure(fmt::format("there is no subscription \"{}\"", name));
    }
    std::shared_ptr<Call> removed = found->second;
    removed->isRemoved = true;
    named.erase(found);
    return removed;
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

void Calls::arrived(Call& call, const DataServiceResult& result) {
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
    } else if (call.kind == Kind::invocation) {
        failed(call.origin, call.label, result.error().errorDescription());
    } else {
        // The subscription goes on: a failure is one of the results that it may have.
        report.failure(call.origin, call.label, result.error().errorDescription());
    }
    settle(call);
}

void Calls::ttlSet(Call& call, std::int64_t ttl) {
    if (!ending->requested()) {
        report.data(call.origin, call.label, ttl);
    }
    settle(call);
}

void Calls::settle(Call& call) {
    // Destroyed without the lock: the run may be over then.
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

void Calls::runtimeReady() {
    const platform::Lock lock(mutex);
    isReady = true;
    for (const auto& [name, call] : named) {
        if (call->kind == Kind::invocation && !call->isSettled) {
            call->token = std::make_unique<tessel::ActivityToken>(activity);
        }
    }
}

void Calls::runtimeFailed(const std::string& why) {
    std::vector<std::shared_ptr<Call>> pending;
    {
        const platform::Lock lock(mutex);
        for (const auto& [name, call] : named) {
            pending.push_back(call);
        }
        pending.insert(pending.end(), ttls.begin(), ttls.end());
        std::erase_if(pending, [](const auto& call) { return call->isSettled; });
    }
    std::ranges::sort(pending, {}, [](const auto& call) { return call->origin.line; });
    for (const auto& call : pending) {
        failed(call->origin, call->label, why);
        settle(*call);
    }
}

bool Calls::anyPending() const {
    const auto isPending = [](const auto& call) {
        return !call->isSettled;
    };
    const platform::Lock lock(mutex);
    return !isReady && (std::ranges::any_of(ttls, isPending) ||
                        std::ranges::any_of(named, isPending, [](const auto& entry) -> auto& {
                            return entry.second;
                        }));
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
        throw CommandFailure(
            fmt::format("there is neither a subscription nor an invocation \"{}\"", *name));
    }
    calls.push_back(found->second);
    return calls;
}

std::vector<std::string> Calls::silent(const std::vector<std::shared_ptr<Call>>& calls) const {
    std::vector<std::string> labels;
    const platform::Lock lock(mutex);
    for (const auto& call : calls) {
        if (!call->isSettled) {
            labels.push_back(call->label);
        }
    }
    return labels;
}

void Calls::setChangeHandler(std::function<void()> handler) {
    const platform::Lock lock(mutex);
    changeHandler.swap(handler);
}

} // namespace zem::host
