#include "CommandContext.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>

namespace zem::host {

CommandContext::CommandContext(Options given)
    : report(given.json, given.source)
    , calls(std::make_shared<Calls>(report, given.ending, given.activity))
    , options(std::move(given)) {}

void CommandContext::ask(std::function<void(RuntimeServices&)> question) {
    await<bool>([&](std::function<void(bool)> done) {
        parts.runtime->perform(
            [done = std::move(done), question = std::move(question)](RuntimeServices& services) {
                question(services);
                done(true);
            });
    });
}

EvalResult CommandContext::evaluate(const std::string& script, std::size_t line) {
    return await<EvalResult>([&](std::function<void(EvalResult)> done) {
        options.evaluate(script, options.source.empty() ? "shell" : options.source,
                         static_cast<int>(line), std::move(done));
    });
}

void CommandContext::waitForCalls(const std::optional<std::string>& name, platform::Seconds limit) {
    const auto awaited = calls->awaited(name);
    // Without the token the run counts as idle once nothing else goes on: the answers never come.
    working.reset();
    const auto failure = waitFor(awaited, limit);
    working = std::make_unique<tessel::ActivityToken>(options.activity);
    if (failure) {
        throw CommandFailure(*failure);
    }
}

std::optional<std::string>
CommandContext::waitFor(const std::vector<std::shared_ptr<Call>>& awaited,
                        platform::Seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(limit);
    bool isLate = false;
    platform::UniqueLock lock(mutex);
    for (;;) {
        // Read before the answers: if nothing goes on any more, a missing answer stays missing.
        const bool isIdle = options.activity->outstanding() == 0;
        const Calls::Silence silence = calls->silent(awaited, parts.runtime->missing());
        if (silence.labels.empty()) {
            return std::nullopt;
        }
        if (isInterrupted()) {
            return interrupted;
        }
        const std::string missing = fmt::format("{}", fmt::join(silence.labels, ", "));
        if (isIdle && silence.reason) {
            return fmt::format("waited in vain for {}: {}", missing, *silence.reason);
        }
        if (isLate) {
            return fmt::format("waited {:g} seconds in vain for {}", limit.count(), missing);
        }
        isLate = condition.wait_until(lock, deadline) == std::cv_status::timeout;
    }
}

void CommandContext::start(Parts used) {
    calls->setChangeHandler([weak = weak_from_this()] {
        if (const auto alive = weak.lock()) {
            alive->changed();
        }
    });
    parts = std::move(used);
    working = std::make_unique<tessel::ActivityToken>(options.activity);
}

void CommandContext::beginLine() {
    change([this] { abandoned = false; });
}

void CommandContext::stop() {
    change([this] { stopped = true; });
}

bool CommandContext::abandon() {
    {
        const platform::Lock lock(mutex);
        if (isInterrupted()) {
            return false;
        }
        abandoned = true;
    }
    condition.notify_all();
    options.interruptScript();
    return true;
}

bool CommandContext::isStopped() const {
    const platform::Lock lock(mutex);
    return stopped;
}

} // namespace zem::host
