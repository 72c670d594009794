#pragma once

// The platform log and its signposts. Formats are written as the platform's logging facility writes
// them: %{public}d, %{private}s, %{private}@; an argument that is not marked is public when it is a
// number and private when it is text or an object. Private arguments print as "<private>".

#include <atomic>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zem::platform {

/// One argument of a format. Text is borrowed for the duration of the call.
class LogArgument {
  public:
    /// Describes an object (%@) when, and only when, it is to be shown.
    using Description = std::function<std::string()>;

    LogArgument(int number)
        : value(std::int64_t{number}) {}
    LogArgument(std::int64_t number)
        : value(number) {}
    LogArgument(std::size_t number)
        : value(static_cast<std::int64_t>(number)) {}
    LogArgument(double number)
        : value(number) {}
    LogArgument(const char* text)
        : value(std::string_view(text)) {}
    LogArgument(std::string_view text)
        : value(text) {}
    LogArgument(const std::string& text)
        : value(std::string_view(text)) {}
    LogArgument(Description description)
        : value(std::move(description)) {}

    std::variant<std::int64_t, double, std::string_view, Description> value;
};

using LogArguments = std::initializer_list<LogArgument>;

/// The text of `format` with its arguments in place, private ones as "<private>". A conversion
/// without an argument, or with one of another kind, prints as "<mismatch>".
std::string formatLog(std::string_view format, LogArguments arguments);

enum class LogLevel { debug, info, default_, error, fault };

/// Pairs the begin and the end of an interval. The null identifier stands for "no interval".
struct SignpostID {
    std::uint64_t value = 0;
    static constexpr SignpostID null() { return {}; }
    bool operator==(const SignpostID&) const = default;
};

enum class SignpostType { event, intervalBegin, intervalEnd };

/// A signpost as a sink receives it. The views live for the duration of the call.
struct Signpost {
    SignpostType type;
    SignpostID id;
    std::string_view subsystem;
    std::string_view category;
    std::string_view name;
    std::string_view format;
    LogArguments arguments;
};

/// Where signposts go. Called on the thread that emits, possibly on several at once.
class SignpostSink {
  public:
    virtual ~SignpostSink() = default;
    virtual void emit(const Signpost& signpost) = 0;
};

/// Installs the process's sink; null takes it away. With none, emitting a signpost is one load of
/// an atomic. Returns when no thread is in the former sink any more; not to be called from a sink.
void setSignpostSink(std::shared_ptr<SignpostSink> sink);
bool hasSignpostSink();

/// Where log lines go. The default writes structured fields to the system journal where there is
/// one and a line to standard error where there is none.
struct LogLine {
    LogLevel level;
    std::string_view subsystem;
    std::string_view category;
    std::string_view text;
};
using LogWriter = std::function<void(const LogLine&)>;
/// Replaces the writer; null restores the default. The writer is called on the thread that logs,
/// possibly on several at once. Returns when no thread is in the former writer any more; not to be
/// called from a writer.
void setLogWriter(LogWriter writer);

/// A log of one subsystem and category. Cheap to copy. Thread-safe.
class Log {
  public:
    Log(std::string subsystem, std::string category);

    /// A log that drops everything, signposts included.
    static Log disabled();

    bool isEnabled() const { return names != nullptr; }

    /// Write a line, before returning. No Mutex may be held.
    void debug(std::string_view format, LogArguments = {}) const;
    void info(std::string_view format, LogArguments = {}) const;
    void error(std::string_view format, LogArguments = {}) const;

    /// A process-wide fresh identifier; null on a disabled log.
    SignpostID makeSignpostID() const;
    /// Tell the sink of an interval, or of an event, which may carry the null identifier; an
    /// interval with the null identifier is none and is dropped. No Mutex may be held.
    void beginInterval(SignpostID id, std::string_view name, std::string_view format = {},
                       LogArguments = {}) const;
    void endInterval(SignpostID id, std::string_view name, std::string_view format = {},
                     LogArguments = {}) const;
    void event(SignpostID id, std::string_view name) const;

  private:
    struct Names {
        std::string subsystem;
        std::string category;
    };
    Log() = default;
    void write(LogLevel level, std::string_view format, LogArguments arguments) const;
    void post(SignpostType type, SignpostID id, std::string_view name, std::string_view format,
              LogArguments arguments) const;
    std::shared_ptr<const Names> names;
};

/// The signpost identifier of the task that the calling thread is running: events that have no
/// interval of their own carry it. Null unless a CurrentSignpost is alive on the thread.
SignpostID currentSignpostID();

class CurrentSignpost {
  public:
    explicit CurrentSignpost(SignpostID id);
    ~CurrentSignpost();
    CurrentSignpost(const CurrentSignpost&) = delete;
    CurrentSignpost& operator=(const CurrentSignpost&) = delete;

  private:
    SignpostID previous;
};

} // namespace zem::platform
