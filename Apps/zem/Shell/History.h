#pragma once

// The file that keeps the typed lines.

#include <filesystem>
#include <optional>

namespace zem::host {

/// $XDG_STATE_HOME/zem/history or ~/.local/state/zem/history. Makes the folder; absent if that
/// fails.
std::optional<std::filesystem::path> historyFile();

} // namespace zem::host
