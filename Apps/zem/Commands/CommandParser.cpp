#include "CommandParser.h"

#include "Arguments.h"
#include "CommandFailure.h"
#include "Words.h"
#include <zem/Tessel/JSON.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace zem::host {

namespace {

constexpr std::array<std::string_view, 3> subscribeOptions{"--priority", "--cache-policy", "--as"};
constexpr std::array<std::string_view, 4> invokeOptions{"--priority", "--cache-policy",
                                                        "--metadata", "--replace-draft"};
constexpr std::array<std::string_view, 1> waitOptions{"--for"};
constexpr std::array<std::string_view, 2> ttlArguments{"record", "metadata"};

/// The options of one command. The words are the command's own: none of them asks for help.
class CommandOptions : public CLI::App {
  public:
    CommandOptions() { set_help_flag(); }

    void read(const Arguments& words) {
        Arguments backwards(words.rbegin(), words.rend());
        try {
            parse(backwards);
        } catch (const CLI::ParseError& error) {
            throw CommandFailure(error.what());
        }
    }
};

/// --priority and --cache-policy.
class ContextOptions {
  public:
    explicit ContextOptions(CLI::App& options)
        : priorityOption(options.add_option("--priority", priority))
        , policyOption(options.add_option("--cache-policy", policy)) {}

    /// For a form of the command that carries no context.
    void exclude(CLI::Option* option) const {
        option->excludes(priorityOption)->excludes(policyOption);
    }

    /// Absent when neither is given.
    std::optional<AdapterRequestContext> read() const {
        if (priorityOption->count() + policyOption->count() == 0) {
            return std::nullopt;
        }
        AdapterRequestContext context;
        if (priorityOption->count() > 0) {
            context.priority =
                expectDecoded("--priority", tessel::fromAny<AdapterRequestPriority>(
                                                tessel::Any(boost::json::string(priority))));
        }
        if (policyOption->count() > 0) {
            const auto value = expectDecoded("--cache-policy", tessel::parse(policy));
            context.cachePolicy =
                expectDecoded("--cache-policy", tessel::fromAny<CachePolicy>(value));
        }
        return context;
    }

  private:
    template <class T>
    static T expectDecoded(const char* option, tessel::Decoded<T> decoded) {
        if (!decoded) {
            throw CommandFailure(fmt::format("{}: {}", option, decoded.error().description()));
        }
        return *std::move(decoded);
    }

    std::string priority;
    std::string policy;
    CLI::Option* priorityOption;
    CLI::Option* policyOption;
};

Command parseSubscribe(const Arguments& words) {
    SubscribeCommand command;
    CommandOptions options;
    options.add_option("ADAPTER", command.adapterId)->required();
    options.add_option("CONFIG", command.config)->required();
    options.add_option("--as", command.name)->type_name("NAME");
    const ContextOptions context(options);
    options.read(words);
    command.requestContext = context.read();
    if (command.name && command.name->empty()) {
        throw CommandFailure("--as: a name is not empty");
    }
    return command;
}

Command parseInvoke(const Arguments& words) {
    InvokeCommand command;
    CommandOptions options;
    options.add_option("ADAPTER", command.adapterId)->required();
    options.add_option("CONFIG", command.config)->required();
    const ContextOptions context(options);
    Arguments pairs;
    std::string draftId;
    CLI::Option* metadata =
        options.add_option("--metadata", pairs)->type_name("KEY=VALUE")->allow_extra_args(false);
    CLI::Option* replace = options.add_option("--replace-draft", draftId)->type_name("ID");
    replace->excludes(metadata);
    // The runtime's mutating calls have no place for a context.
    context.exclude(metadata);
    context.exclude(replace);
    options.read(words);
    command.requestContext = context.read();
    if (metadata->count() > 0) {
        command.specialOperation = SpecialOperation::setMetadata(parsePairs(pairs, "--metadata"));
    } else if (replace->count() > 0) {
        command.specialOperation = SpecialOperation::replaceDraft(draftId);
    }
    return command;
}

platform::Seconds secondsOf(const std::string& text) {
    constexpr double most = 1e9;
    double seconds = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, seconds);
    const bool isNumber = read.ec == std::errc() && read.ptr == end;
    if (!isNumber || !(seconds >= 0 && seconds <= most)) {
        throw CommandFailure(fmt::format("--for: expected a number of seconds, found {}", text));
    }
    return platform::Seconds(seconds);
}

Command parseWait(const Arguments& words) {
    WaitCommand command;
    std::string seconds;
    CommandOptions options;
    options.add_option("NAME", command.name);
    const CLI::Option* limit = options.add_option("--for", seconds)->type_name("SECONDS");
    options.read(words);
    command.limit = limit->count() == 0 ? defaultWaitLimit : secondsOf(seconds);
    return command;
}

Command parseUnsubscribe(const Arguments& words) {
    expectCount(words, 1, "unsubscribe NAME");
    return UnsubscribeCommand{words[0]};
}

Command parseTTL(const Arguments& words) {
    constexpr const char* usage = "ttl record|metadata N";
    expectCount(words, 2, usage);
    const auto* found = std::ranges::find(ttlArguments, words[0]);
    if (found == ttlArguments.end()) {
        throw CommandFailure(fmt::format("expected: {}", usage));
    }
    TTLCommand command{
        found == ttlArguments.begin() ? TTLCommand::What::record : TTLCommand::What::metadata, 0};
    const std::string& text = words[1];
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, command.ttl);
    if (read.ec != std::errc() || read.ptr != end) {
        throw CommandFailure(fmt::format("ttl {}: expected an integer, found {}", words[0], text));
    }
    return command;
}

/// A word that is a JSON number, text, true, false or null is that; any other is text as it stands.
SQLiteValue parameterOf(const std::string& word) {
    const auto value = tessel::parse(word);
    if (value) {
        if (const auto read = tessel::fromAny<double>(*value)) {
            return *read;
        }
        if (value->is_string()) {
            return std::string(value->get_string());
        }
        if (value->is_bool()) {
            return value->get_bool();
        }
        if (value->is_null()) {
            return nullptr;
        }
    }
    return word;
}

Command parseSQL(const Arguments& words) {
    if (words.empty()) {
        throw CommandFailure("expected: sql TEXT [PARAM...]");
    }
    SQLCommand command{words[0], {}};
    std::transform(words.begin() + 1, words.end(), std::back_inserter(command.parameters),
                   parameterOf);
    return command;
}

/// JavaScript has quotes of its own: it is taken as it stands, unless all of it is one word in
/// quotes.
Command parseEval(std::string_view text, const std::vector<Word>& words) {
    if (words.size() == 1) {
        throw CommandFailure("expected: eval JAVASCRIPT");
    }
    if (words.size() == 2 && words[1].isQuoted && words[1].isComplete) {
        return EvalCommand{words[1].text};
    }
    return EvalCommand{std::string(text.substr(words[1].begin))};
}

Command parseDraftsLine(const Arguments& words) {
    return parseDrafts(words);
}

Command parseQuit(const Arguments& words) {
    expectCount(words, 0, "quit");
    return QuitCommand{};
}

} // namespace

std::string CommandText::name() const {
    const std::vector<Word> words = splitWords(text);
    return words.empty() ? "" : words.front().text;
}

std::optional<CommandText> readCommandText(std::string_view line) {
    constexpr std::string_view space = " \t\r\n";
    const auto skipSpace = [&] {
        line.remove_prefix(std::min(line.find_first_not_of(space), line.size()));
    };
    skipSpace();
    if (line.empty() || line.front() == '#') {
        return std::nullopt;
    }
    CommandText read;
    if (line.front() == '-') {
        read.mayFail = true;
        line.remove_prefix(1);
        skipSpace();
    }
    read.text = line.substr(0, line.find_last_not_of(space) + 1);
    return read;
}

Command parseCommand(std::string_view text) {
    const std::vector<Word> words = splitWords(text);
    const std::string name = words.empty() ? "" : words.front().text;
    if (name == "eval") {
        return parseEval(text, words);
    }
    if (!std::ranges::all_of(words, &Word::isComplete)) {
        throw CommandFailure("a quote is not closed");
    }
    Arguments arguments;
    for (std::size_t index = 1; index < words.size(); ++index) {
        arguments.push_back(words[index].text);
    }
    using Parse = Command (*)(const Arguments&);
    static constexpr std::pair<std::string_view, Parse> parsers[] = {
        {"subscribe", parseSubscribe},
        {"unsubscribe", parseUnsubscribe},
        {"invoke", parseInvoke},
        {"ttl", parseTTL},
        {"drafts", parseDraftsLine},
        {"wait", parseWait},
        {"sql", parseSQL},
        {"quit", parseQuit},
    };
    for (const auto& [known, parse] : parsers) {
        if (known == name) {
            return parse(arguments);
        }
    }
    throw CommandFailure(fmt::format("there is no command \"{}\"", name));
}

std::span<const CommandShape> commandShapes() {
    static const std::array<CommandShape, 9> shapes{{
        {"subscribe", subscribeOptions, {}},
        {"unsubscribe", {}, {}, true},
        {"invoke", invokeOptions, {}},
        {"ttl", {}, ttlArguments},
        {"drafts", {}, {}, false, draftsShapes()},
        {"wait", waitOptions, {}, true},
        {"sql", {}, {}},
        {"eval", {}, {}},
        {"quit", {}, {}},
    }};
    return shapes;
}

} // namespace zem::host
