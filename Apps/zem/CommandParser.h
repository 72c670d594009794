#pragma once

// What a line of commands asks for.

#include <zem/Core/AdapterRequestContext.h>
#include <zem/Core/MutatingWireSubscription.h>
#include <zem/Platform/RunLoop.h>
#include <zem/SqliteStore/SQLiteValue.h>

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zem::host {

struct SubscribeCommand {
    std::string adapterId;
    std::string config;
    std::optional<AdapterRequestContext> requestContext;
    std::optional<std::string> name;
};

struct UnsubscribeCommand {
    std::string name;
};

struct InvokeCommand {
    std::string adapterId;
    std::string config;
    std::optional<AdapterRequestContext> requestContext;
    std::optional<SpecialOperation> specialOperation;
};

struct TTLCommand {
    enum class What { record, metadata };
    What what = What::record;
    std::int64_t ttl = 0;
};

struct WaitCommand {
    std::optional<std::string> name;
    platform::Seconds limit;
};

struct SQLCommand {
    std::string sql;
    std::vector<SQLiteValue> parameters;
};

struct EvalCommand {
    std::string script;
};

struct QuitCommand {};

using Command = std::variant<SubscribeCommand, UnsubscribeCommand, InvokeCommand, TTLCommand,
                             WaitCommand, SQLCommand, EvalCommand, QuitCommand>;

/// A command that cannot be carried out, with the text that says why.
class CommandFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A line that is no comment.
struct CommandText {
    std::string text;
    /// It began with `-`: the commands go on where it fails.
    bool mayFail = false;

    /// The command's first word.
    std::string name() const;
};

/// Absent for a blank line and for a comment, whose first character is `#`.
std::optional<CommandText> readCommandText(std::string_view line);

/// Throws a CommandFailure.
Command parseCommand(std::string_view text);

/// How long `wait` waits when nothing is said.
inline constexpr platform::Seconds defaultWaitLimit(30);

/// For those who complete what is being typed: a command's name, options, and the words that may
/// follow it.
struct CommandShape {
    std::string_view name;
    std::span<const std::string_view> options;
    std::span<const std::string_view> arguments;
    /// The name of a subscription may follow it.
    bool takesName = false;
};
std::span<const CommandShape> commandShapes();

} // namespace zem::host
