#include "CommandLine.h"

#include "Failure.h"
#include "Version.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace zem::host {

namespace {

constexpr const char* help = R"(zem runs JavaScript data runtimes on ZEM's encrypted store.

Usage:
  zem run BUNDLE.js [OPTIONS] [-- ARGS...]   run a bundle; see zem run --help
  zem --help                                 print this text
  zem --version                              print zem's version, and those of its
                                             engine, SQLCipher and SQLite
)";

constexpr const char* runHelp = R"(Usage:
  zem run BUNDLE.js [--data DIR | --memory] [--keys DIR | --secret-service]
          [--set NAME=TEXT] [--set NAME=@FILE.json] [--trace FILE] [--json]
          [-- ARGS...]

Runs BUNDLE.js as a classic script, with ZEM's plugins as global objects
(ZemSqliteStore), until nothing is left to do: no timer, no pending callback, no
operation.

Store:
  --data DIR             keep the database in DIR (default: ./zem-data)
  --memory               keep it in memory, under a key made for this run
  --keys DIR             keep the database's key and salt as files in DIR
  --secret-service       keep them in the Secret Service (the default)

Bundle:
  --set NAME=TEXT        make TEXT a global; may be given more than once
  --set NAME=@FILE.json  make the parsed file a global
  -- ARGS...             what the bundle finds as host.args

Output:
  --json                 write every console line to standard output as one JSON
                         object: {"level":"log","message":"..."}, where level is
                         log, info, warn, error or debug
  --trace FILE           write the store's intervals and events to FILE, in the
                         Chrome trace format

Globals:
  console (warn and error go to standard error), setTimeout, clearTimeout,
  setInterval, clearInterval, queueMicrotask, performance.now, TextEncoder,
  TextDecoder, crypto.getRandomValues, crypto.randomUUID, structuredClone, atob,
  btoa, URL, URLSearchParams, DOMException, host.args, host.exit(code)

Exit codes:
  0    nothing was left to do
  1    an uncaught exception or an unhandled rejection
  2    wrong usage, or a file that cannot be read
  3    the store cannot be opened
  130  Ctrl-C; the database was closed cleanly (a second Ctrl-C ends at once)
  host.exit(code) ends with its own code, from 0 to 255.
)";

Failure wrongUsage(const std::string& message, bool inRun) {
    return {exitUsage, fmt::format("{}\nTry: zem {}--help", message, inRun ? "run " : "")};
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

Setting parseSetting(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw wrongUsage(fmt::format("--set {}: expected NAME=TEXT or NAME=@FILE.json", text),
                         true);
    }
    Setting setting{text.substr(0, equals), text.substr(equals + 1)};
    if (!isName(setting.name)) {
        throw wrongUsage(
            fmt::format("--set {}: \"{}\" is not the name of a variable", text, setting.name),
            true);
    }
    if (setting.value.starts_with('@')) {
        setting.value.erase(0, 1);
        setting.isFile = true;
    }
    return setting;
}

} // namespace

std::optional<RunOptions> parseCommandLine(int count, const char* const* words) {
    // What follows "--" is the bundle's, whatever it looks like.
    const auto* end = words + count;
    const auto* separator =
        std::find_if(words, end, [](const char* word) { return std::strcmp(word, "--") == 0; });

    RunOptions options;
    std::vector<std::string> settings;
    CLI::App program;
    program.set_help_flag("--help");
    program.set_version_flag("--version", versionText);
    CLI::App* run = program.add_subcommand("run");
    run->set_help_flag("--help");
    run->add_option("BUNDLE.js", options.bundle)->required();
    auto* data = run->add_option("--data", options.data)->type_name("DIR");
    auto* memory = run->add_flag("--memory", options.inMemory)->excludes(data);
    auto* keys = run->add_option("--keys", options.keys)->type_name("DIR")->excludes(memory);
    run->add_flag("--secret-service")->excludes(keys)->excludes(memory);
    run->add_option("--set", settings)->type_name("NAME=TEXT")->allow_extra_args(false);
    run->add_option("--trace", options.trace)->type_name("FILE");
    run->add_flag("--json", options.json);
    try {
        program.parse(static_cast<int>(separator - words), words);
    } catch (const CLI::CallForHelp&) {
        std::fputs(run->parsed() ? runHelp : help, stdout);
        return std::nullopt;
    } catch (const CLI::CallForVersion& version) {
        std::puts(version.what());
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw wrongUsage(error.what(), run->parsed());
    }
    if (!run->parsed()) {
        throw wrongUsage("expected a command", false);
    }
    for (const std::string& setting : settings) {
        options.settings.push_back(parseSetting(setting));
    }
    if (separator != end) {
        options.arguments.assign(separator + 1, end);
    }
    return options;
}

} // namespace zem::host
