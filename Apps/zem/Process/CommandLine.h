#pragma once

// What the words after the program's name ask for.

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

struct RunOptions {
    std::string bundle;
    std::filesystem::path data = "zem-data";
    bool inMemory = false;
    /// Where the keys are kept as files; in the Secret Service when absent.
    std::optional<std::filesystem::path> keys;
    std::vector<Setting> settings;
    std::optional<std::filesystem::path> trace;
    bool json = false;
    /// The file that the commands come from, or "-" for standard input.
    std::optional<std::string> commands;
    /// Commands come from whoever sits at the terminal, or from standard input.
    bool shell = false;
    std::vector<std::string> arguments;
};

/// The run that is asked for; absent when a text was asked for instead, which has been printed.
/// Throws a Failure when the words make no sense.
std::optional<RunOptions> parseCommandLine(int count, const char* const* words);

} // namespace zem::host
