#include "Commands.h"

#include "CommandFailure.h"
#include "Process/Failure.h"

#include <optional>
#include <utility>

namespace zem::host {

Commands::Commands(Options given)
    : ending(given.context.ending)
    , endsWithLines(given.endsWithLines)
    , endsWithFailure(given.endsWithFailure)
    , context(std::make_shared<CommandContext>(std::move(given.context))) {}

Commands::~Commands() = default;

Runtime::Listener Commands::listener() {
    return [calls = context->calls](const MissingParts& missing) {
        calls->runtimeIsMissing(missing);
    };
}

void Commands::start(std::unique_ptr<LineSource> fromLines, CommandContext::Parts parts) {
    {
        // `abandon` reads `lines` on the signal thread.
        const platform::Lock lock(mutex);
        lines = std::move(fromLines);
    }
    runtime = parts.runtime;
    context->start(std::move(parts));
    thread = std::thread([this] { run(); });
}

bool Commands::stop(platform::Seconds limit) {
    context->stop();
    if (!thread.joinable()) {
        return true;
    }
    lines->stop();
    if (ended.get_future().wait_for(limit) != std::future_status::ready) {
        return false;
    }
    thread.join();
    return true;
}

void Commands::idle() {
    bool isDone = false;
    {
        const platform::Lock lock(mutex);
        isDone = isFinished;
    }
    if (!isDone || context->isStopped()) {
        context->changed();
        return;
    }
    context->calls->runtimeIsMissing(runtime->missing());
    ending->request(exitDone);
}

bool Commands::abandon() {
    LineSource* typed = nullptr;
    {
        const platform::Lock lock(mutex);
        typed = lines.get();
    }
    if (typed == nullptr) {
        return false;
    }
    return typed->abandon() || context->abandon();
}

void Commands::run() {
    std::size_t line = 0;
    while (!ending->requested()) {
        context->beginLine();
        const std::optional<std::string> text = lines->next();
        if (!text) {
            break;
        }
        ++line;
        if (const auto command = readCommandText(*text)) {
            perform(*command, line);
        }
    }
    if (endsWithLines) {
        ending->request(exitDone);
    }
    {
        const platform::Lock lock(mutex);
        isFinished = true;
    }
    context->finish();
    ended.set_value();
}

void Commands::perform(const CommandText& text, std::size_t line) {
    const CommandOrigin origin{text.name(), line, std::nullopt, text.mayFail || !endsWithFailure};
    try {
        const ParsedCommand parsed = parseCommand(text.text);
        parsed.command.perform(*context, parsed.words, origin);
    } catch (const CommandFailure& failure) {
        context->calls->failed(origin, "", failure.what());
    }
}

} // namespace zem::host
