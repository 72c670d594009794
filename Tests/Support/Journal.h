#pragma once

// A list of lines that tests can wait for.

#include <Support/Wait.h>
#include <string>
#include <utility>
#include <vector>

namespace test {

/// Lines from any thread, and waiting for them.
class Journal {
  public:
    explicit Journal(std::string awaited)
        : written(std::move(awaited)) {}

    void add(std::string line) {
        transcript.add(std::move(line));
        written.signal();
    }

    /// All lines, once there are `count`.
    std::vector<std::string> wait(int count) {
        written.wait(count);
        return transcript.lines();
    }

    std::vector<std::string> lines() const { return transcript.lines(); }

  private:
    Transcript transcript;
    Event written;
};

} // namespace test
