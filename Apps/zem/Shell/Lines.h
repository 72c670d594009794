#pragma once

// Lines of a text, and lines that arrive on a descriptor.

#include "Commands/LineSource.h"
#include "Process/WakeUp.h"

#include <atomic>

namespace zem::host {

class TextLines final : public LineSource {
  public:
    explicit TextLines(std::string text)
        : rest(std::move(text)) {}

    std::optional<std::string> next() override;
    void stop() override { stopped = true; }

  private:
    std::string rest;
    std::size_t at = 0;
    std::atomic<bool> stopped = false;
};

/// Returns each line as soon as it has come. A read error counts as the end.
class DescriptorLines final : public LineSource {
  public:
    explicit DescriptorLines(int descriptor)
        : descriptor(descriptor) {}

    std::optional<std::string> next() override;
    void stop() override;

  private:
    bool readMore();

    const int descriptor;
    WakeUp wakeUp;
    std::atomic<bool> stopped = false;
    bool atEnd = false;
    std::string read;
};

} // namespace zem::host
