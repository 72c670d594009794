#pragma once

// What the commands print.

#include <zem/Tessel/JSON.h>

#include <cstddef>
#include <optional>
#include <string>

namespace zem::host {

/// The command that a line of output belongs to.
struct CommandOrigin {
    std::string command;
    std::size_t line = 0;
    /// What tells its results from those of other commands of its kind.
    std::optional<std::string> name;
    /// The commands go on where it fails.
    bool mayFail = false;
};

/// A result, as people read it and as JSON.
struct Shown {
    std::string text;
    std::string json;
};

/// A line as `console.error` writes it.
void printConsoleError(bool json, const std::string& message);

/// Where people read the JSON, too.
Shown show(const tessel::Any& data);

/// Lines for people, or one JSON object a line, with these keys, always all of them:
///
///     {"command":"invoke","name":"i1","line":3,"data":{"id":7},"error":null}
///
/// Any thread.
class Report {
  public:
    /// `source` is where the commands come from, for people; empty where they see it themselves.
    Report(bool json, std::string source)
        : json(json)
        , source(std::move(source)) {}

    /// A result; `label` is what people read in front of it.
    void data(const CommandOrigin& origin, const std::string& label, const Shown& shown) const;

    /// A failure. `label` is empty where the command had no result to wait for.
    void failure(const CommandOrigin& origin, const std::string& label,
                 const std::string& error) const;

    /// A failure after which nothing more is done.
    void end(const CommandOrigin& origin, const std::string& label, const std::string& error) const;

  private:
    void printObject(const CommandOrigin& origin, const std::string& data,
                     const std::optional<std::string>& error) const;
    void printError(const CommandOrigin& origin, const std::string& text) const;

    bool json;
    std::string source;
};

} // namespace zem::host
