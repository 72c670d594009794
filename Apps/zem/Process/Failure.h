#pragma once

// Exit codes, and the failures that end a run before its bundle.

#include <stdexcept>
#include <string>

namespace zem::host {

enum ExitCode : int {
    exitDone = 0,
    exitUncaught = 1,
    exitUsage = 2,
    exitStore = 3,
    exitCommand = 4,
    exitInterrupted = 130,
};

/// Ends the program with a message on standard error.
class Failure : public std::runtime_error {
  public:
    Failure(ExitCode code, const std::string& message)
        : std::runtime_error(message)
        , exitCode(code) {}
    ExitCode code() const { return exitCode; }

  private:
    ExitCode exitCode;
};

} // namespace zem::host
