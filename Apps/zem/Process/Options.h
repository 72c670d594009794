#pragma once

// The program's command line.

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace zem::host {

/// One `--set NAME=TEXT` or `--set NAME=@FILE.json`.
struct Setting {
    std::string name;
    /// The text, or the name of the file.
    std::string value;
    bool isFile = false;
};

/// The options of a run, of `zem run` and `zem shell` alike.
struct Options {
    std::string bundle;
    std::filesystem::path data = "zem-data";
    bool inMemory = false;
    /// The folder that keeps the keys as files. Absent: the Secret Service keeps them.
    std::optional<std::filesystem::path> keys;
    std::vector<Setting> settings;
    /// The URL of the server of requests that name no host.
    std::optional<std::string> url;
    bool offline = false;
    /// The most seconds that a request may take.
    double timeout = 600;
    std::optional<std::filesystem::path> trace;
    bool json = false;
    /// The file of commands, or "-" for standard input.
    std::optional<std::string> commands;
    /// `zem shell`: commands come from the terminal, or from standard input.
    bool shell = false;
    std::vector<std::string> arguments;
};

/// Reads the words of the command line, the program's name first. Absent if they ask for the help
/// or the version, which it has printed then; `commandsHelp` is the part of the help on the
/// commands that a run carries out. Throws a Failure if the words make no sense.
std::optional<Options> parseOptions(int count, const char* const* words,
                                    const std::string& commandsHelp);

} // namespace zem::host
