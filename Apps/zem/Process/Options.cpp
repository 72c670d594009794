#include "Options.h"

#include "Failure.h"
#include "Help.h"
#include "Version.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace zem::host {

namespace {

/// `command` is "run", "shell" or empty.
Failure wrongUsage(const std::string& message, const std::string& command) {
    return {exitUsage,
            fmt::format("{}\nTry: zem {}{}--help", message, command, command.empty() ? "" : " ")};
}

bool isName(const std::string& text) {
    const auto isLetter = [](char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               character == '_' || character == '$';
    };
    const auto isDigit = [](char character) {
        return character >= '0' && character <= '9';
    };
    return !text.empty() && isLetter(text.front()) &&
           std::ranges::all_of(
               text, [&](char character) { return isLetter(character) || isDigit(character); });
}

Setting parseSetting(const std::string& text, const std::string& command) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw wrongUsage(fmt::format("--set {}: expected NAME=TEXT or NAME=@FILE.json", text),
                         command);
    }
    Setting setting{text.substr(0, equals), text.substr(equals + 1)};
    if (!isName(setting.name)) {
        throw wrongUsage(
            fmt::format("--set {}: \"{}\" is not the name of a variable", text, setting.name),
            command);
    }
    if (setting.value.starts_with('@')) {
        setting.value.erase(0, 1);
        setting.isFile = true;
    }
    return setting;
}

/// The options of both commands of the program.
void addOptions(CLI::App& command, Options& options, std::vector<std::string>& settings) {
    command.set_help_flag("--help");
    command.add_option("BUNDLE.js", options.bundle)->required();
    auto* data = command.add_option("--data", options.data)->type_name("DIR");
    auto* memory = command.add_flag("--memory", options.inMemory)->excludes(data);
    auto* keys = command.add_option("--keys", options.keys)->type_name("DIR")->excludes(memory);
    command.add_flag("--secret-service")->excludes(keys)->excludes(memory);
    command.add_option("--set", settings)->type_name("NAME=TEXT")->allow_extra_args(false);
    command.add_option("--url", options.url)->type_name("BASE");
    command.add_flag("--offline", options.offline);
    command.add_option("--timeout", options.timeout)->type_name("SECONDS");
    command.add_option("--trace", options.trace)->type_name("FILE");
    command.add_flag("--json", options.json);
}

} // namespace

std::optional<Options> parseOptions(int count, const char* const* words,
                                    const std::string& commandsHelp) {
    // All words after "--" are the bundle's.
    const auto* end = words + count;
    const auto* separator =
        std::find_if(words, end, [](const char* word) { return std::strcmp(word, "--") == 0; });

    Options options;
    std::vector<std::string> settings;
    CLI::App program;
    program.set_help_flag("--help");
    program.set_version_flag("--version", versionText);
    CLI::App* run = program.add_subcommand("run");
    CLI::App* shell = program.add_subcommand("shell");
    program.require_subcommand(0, 1);
    addOptions(*run, options, settings);
    run->add_option("--commands", options.commands)->type_name("FILE");
    addOptions(*shell, options, settings);
    const auto command = [&]() -> std::string {
        return run->parsed() ? "run" : shell->parsed() ? "shell" : "";
    };
    try {
        program.parse(static_cast<int>(separator - words), words);
    } catch (const CLI::CallForHelp&) {
        std::fputs(helpOf(command(), commandsHelp).c_str(), stdout);
        return std::nullopt;
    } catch (const CLI::CallForVersion& version) {
        std::puts(version.what());
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw wrongUsage(error.what(), command());
    }
    if (command().empty()) {
        throw wrongUsage("expected a command", "");
    }
    options.shell = shell->parsed();
    for (const std::string& setting : settings) {
        options.settings.push_back(parseSetting(setting, command()));
    }
    if (separator != end) {
        options.arguments.assign(separator + 1, end);
    }
    return options;
}

} // namespace zem::host
