#pragma once

// A program at a terminal, as somebody sits in front of it.

#include <filesystem>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace test {

/// The program runs in a session of its own on a pseudo terminal of 24 rows and 80 columns; killed
/// when it still runs at the end.
class Terminal {
  public:
    /// `command` is the program's path and its arguments; it runs in `folder`, with `environment`
    /// added to this process's. Throws when it cannot be started.
    Terminal(std::vector<std::string> command, const std::filesystem::path& folder,
             const std::map<std::string, std::string>& environment);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void type(const std::string& keys) const;

    /// Returns when this text has been written after what was waited for before, and everything
    /// that was written since then, up to its end. What moves the cursor and clears is left out.
    /// Throws when it does not come.
    std::string waitFor(const std::string& text);

    /// Everything that was written so far, and all that moves the cursor and clears.
    const std::string& raw() const { return everything; }

    /// Returns the exit code when it has ended, or the negative number of the signal that ended it.
    int wait();

    /// Whether the terminal shows what is typed and gathers it to lines, as it did at the start.
    bool isInLineMode() const;

  private:
    bool readMore();
    void takeText(const std::string& piece);

    pid_t pid = -1;
    int terminal = -1;
    std::string written;
    std::string everything;
    /// The beginning of what moves the cursor or clears.
    std::string control;
};

} // namespace test
