#include <zem/Platform/Log.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/Private/Installed.h>
#include <zem/Platform/Private/SystemLog.h>

namespace zem::platform {

namespace {

constinit Installed<SignpostSink> sink;
constinit Installed<LogWriter> writer;
constinit std::atomic<std::uint64_t> lastSignpostID = 0;
constinit thread_local SignpostID current;

} // namespace

void setSignpostSink(std::shared_ptr<SignpostSink> replacement) {
    sink.replace(std::move(replacement));
}

bool hasSignpostSink() {
    return sink.isPresent();
}

void setLogWriter(LogWriter replacement) {
    writer.replace(replacement ? std::make_shared<LogWriter>(std::move(replacement)) : nullptr);
}

Log::Log(std::string subsystem, std::string category)
    : names(std::make_shared<const Names>(std::move(subsystem), std::move(category))) {}

Log Log::disabled() {
    return Log();
}

void Log::debug(std::string_view format, LogArguments arguments) const {
    write(LogLevel::debug, format, arguments);
}

void Log::info(std::string_view format, LogArguments arguments) const {
    write(LogLevel::info, format, arguments);
}

void Log::error(std::string_view format, LogArguments arguments) const {
    write(LogLevel::error, format, arguments);
}

void Log::write(LogLevel level, std::string_view format, LogArguments arguments) const {
    if (!isEnabled()) {
        return;
    }
    Mutex::assertNoneHeld("a log line is written");
    const std::string text = formatLog(format, arguments);
    const LogLine line{level, names->subsystem, names->category, text};
    if (!writer.use([&](const LogWriter& installed) { installed(line); })) {
        writeToSystemLog(line);
    }
}

SignpostID Log::makeSignpostID() const {
    return isEnabled() ? SignpostID{lastSignpostID.fetch_add(1, std::memory_order_relaxed) + 1}
                       : SignpostID::null();
}

void Log::beginInterval(SignpostID id, std::string_view name, std::string_view format,
                        LogArguments arguments) const {
    if (id != SignpostID::null()) {
        post(SignpostType::intervalBegin, id, name, format, arguments);
    }
}

void Log::endInterval(SignpostID id, std::string_view name, std::string_view format,
                      LogArguments arguments) const {
    if (id != SignpostID::null()) {
        post(SignpostType::intervalEnd, id, name, format, arguments);
    }
}

void Log::event(SignpostID id, std::string_view name) const {
    post(SignpostType::event, id, name, {}, {});
}

void Log::post(SignpostType type, SignpostID id, std::string_view name, std::string_view format,
               LogArguments arguments) const {
    if (!isEnabled() || !hasSignpostSink()) {
        return;
    }
    Mutex::assertNoneHeld("a signpost is emitted");
    sink.use([&](SignpostSink& installed) {
        installed.emit({type, id, names->subsystem, names->category, name, format, arguments});
    });
}

SignpostID currentSignpostID() {
    return current;
}

CurrentSignpost::CurrentSignpost(SignpostID id)
    : previous(std::exchange(current, id)) {}

CurrentSignpost::~CurrentSignpost() {
    current = previous;
}

} // namespace zem::platform
