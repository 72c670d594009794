#pragma once

// What a line of commands asks for.

#include "CommandShape.h"
#include "DraftsCommand.h"
#include <zem/Core/AdapterRequestContext.h>
#include <zem/Core/MutatingWireSubscription.h>
#include <zem/Platform/RunLoop.h>
#include <zem/SqliteStore/SQLiteValue.h>

#include <cstdint>
#include <optional>
#include <span>
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
                             DraftsCommand, WaitCommand, SQLCommand, EvalCommand, QuitCommand>;

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

std::span<const CommandShape> commandShapes();

} // namespace zem::host
