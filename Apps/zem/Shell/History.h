#pragma once

// Where the lines that were typed are kept.

#include <filesystem>
#include <optional>

namespace zem::host {

/// $XDG_STATE_HOME/zem/history or ~/.local/state/zem/history, its folder made where there was none;
/// absent where that cannot be.
std::optional<std::filesystem::path> historyFile();

} // namespace zem::host
