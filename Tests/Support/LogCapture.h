#pragma once

// Captures the lines of the log while it lives, in place of the usual writer.

#include <zem/Platform/Log.h>

#include <Support/Wait.h>
#include <string>
#include <vector>

namespace test {

class LogCapture {
  public:
    LogCapture() {
        zem::platform::setLogWriter(
            [this](const zem::platform::LogLine& line) { transcript.add(std::string(line.text)); });
    }
    ~LogCapture() { zem::platform::setLogWriter(nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// The texts, in the order in which they were written.
    std::vector<std::string> lines() const { return transcript.lines(); }

  private:
    Transcript transcript;
};

} // namespace test
