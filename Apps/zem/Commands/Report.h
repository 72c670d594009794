#pragma once

// The output of the commands.

#include <zem/Tessel/JSON.h>

#include <cstddef>
#include <optional>
#include <string>

namespace zem::host {

/// The command that a line of output belongs to.
struct CommandOrigin {
    std::string command;
    std::size_t line = 0;
    /// Tells its results from the results of other commands of its kind.
    std::optional<std::string> name;
    /// A failure of it does not end the run.
    bool mayFail = false;
};

/// A result, as people read it and as JSON.
struct Shown {
    std::string text;
    std::string json;
};

/// Prints a line like `console.error`.
void printConsoleError(bool json, const std::string& message);

/// For results whose text for people is the JSON.
Shown show(const tessel::Any& data);

/// Lines for people, or one JSON object a line, with these keys, always all of them:
///
///     {"command":"invoke","name":"i1","line":3,"data":{"id":7},"error":null}
///
/// Any thread.
class Report {
  public:
    /// `source` names the source of the commands in errors; empty for a shell, whose user sees it.
    Report(bool json, std::string source)
        : json(json)
        , source(std::move(source)) {}

    /// A result; `label` stands before it in the output for people.
    void data(const CommandOrigin& origin, const std::string& label, const Shown& shown) const;

    /// A failure. `label` is empty if the command has no results of its own.
    void failure(const CommandOrigin& origin, const std::string& label,
                 const std::string& error) const;

    /// A failure that ends the run.
    void end(const CommandOrigin& origin, const std::string& label, const std::string& error) const;

  private:
    void printObject(const CommandOrigin& origin, const std::string& data,
                     const std::optional<std::string>& error) const;
    void printError(const CommandOrigin& origin, const std::string& text) const;

    bool json;
    std::string source;
};

} // namespace zem::host
