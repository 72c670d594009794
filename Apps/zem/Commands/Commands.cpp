#include "Commands.h"

#include "CommandFailure.h"
#include "Process/Failure.h"
#include "Rows.h"
#include <zem/Core/DataServiceProtocol.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>

namespace zem::host {

namespace {

constexpr const char* interrupted = "interrupted";

CallResult resultOf(const DataServiceResult& result) {
    if (!result) {
        return std::unexpected(result.error().errorDescription());
    }
    return show(*result);
}

} // namespace

std::shared_ptr<Commands> Commands::create(Options options) {
    std::shared_ptr<Commands> commands(new Commands(std::move(options)));
    commands->calls->setChangeHandler([weak = commands->weak_from_this()] {
        if (const auto alive = weak.lock()) {
            alive->changed();
        }
    });
    return commands;
}

Commands::Commands(Options given)
    : options(std::move(given))
    , report(options.json, options.source)
    , calls(std::make_shared<Calls>(report, options.ending, options.activity))
    , drafts(calls, [this](auto question) { ask(std::move(question)); }) {}

Commands::~Commands() = default;

Runtime::Listener Commands::listener() {
    return [calls = calls](const MissingParts& missing) {
        calls->runtimeIsMissing(missing);
    };
}

void Commands::start(std::unique_ptr<LineSource> fromLines, Runtime& withRuntime,
                     std::weak_ptr<SQLiteStore> withStore) {
    {
        // For those who interrupt, on a thread of their own.
        const platform::Lock lock(mutex);
        lines = std::move(fromLines);
    }
    runtime = &withRuntime;
    store = std::move(withStore);
    working = std::make_unique<tessel::ActivityToken>(options.activity);
    thread = std::thread([this] { run(); });
}

bool Commands::stop(platform::Seconds limit) {
    {
        const platform::Lock lock(mutex);
        isStopped = true;
    }
    condition.notify_all();
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
    {
        const platform::Lock lock(mutex);
        if (!isFinished || isStopped) {
            condition.notify_all();
            return;
        }
    }
    calls->runtimeIsMissing(runtime->missing());
    options.ending->request(exitDone);
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
    if (typed->abandon()) {
        return true;
    }
    {
        const platform::Lock lock(mutex);
        if (isAbandoned || isStopped) {
            return false;
        }
        isAbandoned = true;
    }
    condition.notify_all();
    options.interruptScript();
    return true;
}

void Commands::changed() {
    const platform::Lock lock(mutex);
    condition.notify_all();
}

void Commands::run() {
    std::size_t line = 0;
    while (!options.ending->requested()) {
        {
            // Whoever interrupts from now on means the line, or the command that it becomes.
            const platform::Lock lock(mutex);
            isAbandoned = false;
        }
        const std::optional<std::string> text = lines->next();
        if (!text) {
            break;
        }
        ++line;
        if (const auto command = readCommandText(*text)) {
            perform(*command, line);
        }
    }
    if (options.endsWithLines) {
        options.ending->request(exitDone);
    }
    {
        const platform::Lock lock(mutex);
        isFinished = true;
    }
    working.reset();
    ended.set_value();
}

void Commands::perform(const CommandText& text, std::size_t line) {
    const CommandOrigin origin{text.name(), line, std::nullopt,
                               text.mayFail || !options.endsWithFailure};
    try {
        std::visit([&](const auto& command) { perform(command, origin); }, parseCommand(text.text));
    } catch (const CommandFailure& failure) {
        calls->failed(origin, "", failure.what());
    }
}

void Commands::perform(const SubscribeCommand& command, CommandOrigin origin) {
    origin.name = command.name;
    const auto call = calls->add(Calls::Kind::subscription, RuntimePart::dataService,
                                 std::move(origin), command.adapterId);
    auto unsubscribe = std::make_shared<Unsubscribe>();
    unsubscribes[Calls::nameOf(*call)] = unsubscribe;
    ask([calls = calls, call, command,
         unsubscribe = std::move(unsubscribe)](RuntimeServices& services) {
        *unsubscribe = services.dataService().subscribeToAdapter(
            command.adapterId, command.config, command.requestContext,
            [calls, call](const DataServiceResult& result) {
                calls->arrived(*call, resultOf(result));
            });
    });
}

void Commands::perform(const UnsubscribeCommand& command, const CommandOrigin&) {
    calls->removeSubscription(command.name);
    ask([unsubscribe = unsubscribes.extract(command.name).mapped()](RuntimeServices&) {
        (*unsubscribe)();
    });
}

void Commands::perform(const InvokeCommand& command, CommandOrigin origin) {
    const auto call = calls->add(Calls::Kind::invocation, RuntimePart::dataService,
                                 std::move(origin), command.adapterId);
    ask([calls = calls, call, command](RuntimeServices& services) {
        DataServiceProtocol& service = services.dataService();
        const ResultCallback callback = [calls, call](const DataServiceResult& result) {
            calls->arrived(*call, resultOf(result));
        };
        if (!command.specialOperation) {
            service.invokeAdapter(command.adapterId, command.config, command.requestContext,
                                  callback);
        } else if (const auto* set = std::get_if<SpecialOperation::SetMetadata>(
                       &command.specialOperation->value)) {
            service.invokeAdapterWithMetadata(command.adapterId, command.config, set->metadata,
                                              callback);
        } else {
            const auto& replace =
                std::get<SpecialOperation::ReplaceDraft>(command.specialOperation->value);
            service.invokeAdapterWithDraftToReplace(command.adapterId, command.config,
                                                    replace.draftIdToReplace, callback);
        }
    });
}

void Commands::perform(const TTLCommand& command, CommandOrigin origin) {
    const bool isRecord = command.what == TTLCommand::What::record;
    origin.name = isRecord ? "record" : "metadata";
    const auto call = calls->add(Calls::Kind::ttl, RuntimePart::dataService, std::move(origin), "");
    ask([calls = calls, call, ttl = command.ttl, isRecord](RuntimeServices& services) {
        const auto completion = [calls, call, ttl] {
            calls->arrived(*call, show(ttl));
        };
        if (isRecord) {
            services.dataService().setRimvoRecordTTL(ttl, completion);
        } else {
            services.dataService().setMetadataTTL(ttl, completion);
        }
    });
}

void Commands::perform(const DraftsCommand& command, const CommandOrigin& origin) {
    drafts.perform(command, origin);
}

void Commands::perform(const WaitCommand& command, const CommandOrigin&) {
    const auto awaited = calls->awaited(command.name);
    // Where nobody else does anything either, what is waited for may never come.
    working.reset();
    const auto why = waitForCalls(awaited, command.limit);
    working = std::make_unique<tessel::ActivityToken>(options.activity);
    if (why) {
        throw CommandFailure(*why);
    }
}

std::optional<std::string> Commands::waitForCalls(const std::vector<std::shared_ptr<Call>>& awaited,
                                                  platform::Seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(limit);
    bool isLate = false;
    platform::UniqueLock lock(mutex);
    for (;;) {
        // Asked first: when nothing goes on any more, what is missing now stays so.
        const bool isIdle = options.activity->outstanding() == 0;
        const Calls::Silence silence = calls->silent(awaited, runtime->missing());
        if (silence.labels.empty()) {
            return std::nullopt;
        }
        if (isStopped || isAbandoned) {
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

void Commands::perform(const SQLCommand& command, const CommandOrigin& origin) {
    const auto open = store.lock();
    if (open == nullptr) {
        return; // the run is ending
    }
    using Found = std::expected<SQLiteResultSet, std::string>;
    const auto found = std::make_shared<std::optional<Found>>();
    open->query(
        command.sql, command.parameters,
        [weak = weak_from_this(), found](SQLiteResultSet rows) {
            answer(weak, found, Found(std::move(rows)));
        },
        [weak = weak_from_this(), found](std::string error) {
            answer(weak, found, Found(std::unexpected(std::move(error))));
        });
    const Found result = waitFor(found);
    if (!result) {
        throw CommandFailure(result.error());
    }
    report.data(origin, "sql", {describe(*result, "sql"), tessel::toText(toAny(*result))});
}

void Commands::perform(const EvalCommand& command, const CommandOrigin& origin) {
    const auto evaluated = std::make_shared<std::optional<EvalResult>>();
    options.evaluate(command.script, options.source.empty() ? "shell" : options.source,
                     static_cast<int>(origin.line),
                     [weak = weak_from_this(), evaluated](EvalResult value) {
                         answer(weak, evaluated, std::move(value));
                     });
    const EvalResult value = waitFor(evaluated);
    if (value.failed) {
        throw CommandFailure(value.text);
    }
    report.data(origin, "eval", {value.text, value.json});
}

void Commands::perform(const QuitCommand&, const CommandOrigin&) {
    options.ending->request(exitDone);
}

/// Has it asked before the next command, so that they reach the runtime in their order.
void Commands::ask(std::function<void(RuntimeServices&)> question) {
    const auto asked = std::make_shared<std::optional<bool>>();
    runtime->perform([weak = weak_from_this(), asked,
                      question = std::move(question)](RuntimeServices& services) {
        question(services);
        answer(weak, asked, true);
    });
    waitFor(asked);
}

template <class T>
void Commands::answer(const std::weak_ptr<Commands>& commands, const Answer<T>& to, T value) {
    if (const auto alive = commands.lock()) {
        {
            const platform::Lock lock(alive->mutex);
            *to = std::move(value);
        }
        alive->condition.notify_all();
    }
}

template <class T>
T Commands::waitFor(const Answer<T>& answer) {
    platform::UniqueLock lock(mutex);
    condition.wait(lock, [&] { return *answer || isStopped || isAbandoned; });
    if (!*answer) {
        throw CommandFailure(interrupted);
    }
    return **answer;
}

} // namespace zem::host
