#pragma once

// Programs that a test starts, watches and signals.

#include <filesystem>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace test {

/// A running program; killed when it still runs at the end. Signals that are blocked or ignored
/// here are not in it.
class Process {
  public:
    struct Options {
        /// Where it runs; the test's own folder when empty.
        std::filesystem::path folder;
        /// Added to this process's environment, or in place of what is there.
        std::map<std::string, std::string> environment;
        /// Standard input is what `write` gives it, until `closeInput`; else it is empty.
        bool hasInput = false;
    };

    /// `command` is the program's path and its arguments. Throws when it cannot be started.
    explicit Process(std::vector<std::string> command, const Options& options);
    explicit Process(std::vector<std::string> command)
        : Process(std::move(command), Options()) {}
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t id() const { return pid; }

    /// Returns when it has written this line to standard output; throws when it ends without.
    void waitForLine(const std::string& line);

    void signal(int number);

    /// Throws when it does not read its standard input any more.
    void write(const std::string& text) const;
    void closeInput();

    struct Result {
        /// The exit code, or the negative number of the signal that ended it.
        int code = 0;
        std::string output;
        std::string errors;
    };

    /// Returns when it has ended.
    Result wait();

  private:
    bool readMore();

    pid_t pid = -1;
    int inputPipe = -1;
    int outputPipe = -1;
    int errorPipe = -1;
    Result result;
};

} // namespace test
