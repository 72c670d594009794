#pragma once

// Where commands come from, a line at a time.

#include <optional>
#include <string>

namespace zem::host {

class LineSource {
  public:
    virtual ~LineSource() = default;

    /// The next line, without its end; absent when there is none any more. Waits for it.
    virtual std::optional<std::string> next() = 0;

    /// Makes `next` return nothing from now on, also one that waits. Any thread.
    virtual void stop() = 0;

    /// Somebody interrupts: gives up the line that is being typed. False where none is. Any thread.
    virtual bool abandon() { return false; }
};

} // namespace zem::host
