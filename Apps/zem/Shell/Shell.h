#pragma once

// The prompt for commands.

#include "Commands/LineSource.h"
#include "Process/WakeUp.h"
#include <zem/Platform/Mutex.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zem::host {

/// Edits lines on the terminal, with completion and with a history that later shells find again.
/// Output that arrives while a line is typed goes above the line. Prints one line on how to get
/// help and out before the first prompt.
class Shell final : public LineSource {
  public:
    /// `subscriptionNames` may be called on the thread that calls `next`.
    explicit Shell(std::function<std::vector<std::string>()> subscriptionNames);
    ~Shell() override;

    /// From one thread only.
    std::optional<std::string> next() override;
    void stop() override;
    bool abandon() override;

  private:
    class Editor;
    std::shared_ptr<Editor> editor;
};

} // namespace zem::host
