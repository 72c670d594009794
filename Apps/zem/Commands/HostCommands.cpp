#include "HostCommands.h"

#include "CommandHelp.h"
#include "Rows.h"
#include <zem/Tessel/JSON.h>

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <expected>
#include <iterator>

namespace zem::host {

namespace {

constexpr platform::Seconds defaultWaitLimit(30);

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

/// The value of a JSON number, string, true, false or null; any other word is text.
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

std::string withoutLineEnd(std::string text) {
    text.pop_back();
    return text;
}

} // namespace

void waitForAnswers(CommandContext& context, const CommandWords& words, const CommandOrigin&) {
    const auto limit = words.find("--for");
    context.waitForCalls(words.find("NAME"), limit ? secondsOf(*limit) : defaultWaitLimit);
}

void runSQL(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    const auto store = context.store();
    if (store == nullptr) {
        return; // the run is ending
    }
    std::vector<SQLiteValue> parameters;
    std::ranges::transform(words.all("PARAM"), std::back_inserter(parameters), parameterOf);
    using Found = std::expected<SQLiteResultSet, std::string>;
    const Found found = context.await<Found>([&](const std::function<void(Found)>& done) {
        store->query(
            words["TEXT"], parameters, [done](SQLiteResultSet rows) { done(std::move(rows)); },
            [done](std::string error) { done(std::unexpected(std::move(error))); });
    });
    if (!found) {
        throw CommandFailure(found.error());
    }
    context.report.data(origin, "sql", {describe(*found, "sql"), tessel::toText(toAny(*found))});
}

void evaluate(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    const EvalResult result = context.evaluate(words["JAVASCRIPT"], origin.line);
    if (result.failed) {
        throw CommandFailure(result.text);
    }
    context.report.data(origin, "eval", {result.text, result.json});
}

void help(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    const auto command = words.find("COMMAND");
    const std::string text = withoutLineEnd(command ? helpOfCommand(*command) : helpOfCommands());
    context.report.data(origin, "", {text, tessel::toText(tessel::Any(boost::json::string(text)))});
}

void quit(CommandContext& context, const CommandWords&, const CommandOrigin&) {
    context.end();
}

} // namespace zem::host
