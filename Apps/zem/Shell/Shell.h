#pragma once

// The prompt at which somebody types commands.

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

/// Edits lines on the terminal, with a history that is kept from one shell to the next and with
/// completion. What is printed while a line is being typed goes above it.
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
