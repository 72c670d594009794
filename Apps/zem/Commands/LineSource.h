#pragma once

// A source of lines with commands.

#include <optional>
#include <string>

namespace zem::host {

class LineSource {
  public:
    virtual ~LineSource() = default;

    /// Waits for the next line and returns it without its end; absent after the last one.
    virtual std::optional<std::string> next() = 0;

    /// Makes every `next` return nothing, also a waiting one. Any thread.
    virtual void stop() = 0;

    /// Gives up the line that the user is typing. False if there is none. Any thread.
    virtual bool abandon() { return false; }
};

} // namespace zem::host
