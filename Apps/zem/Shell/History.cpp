#include "History.h"

#include <cstdlib>
#include <system_error>

namespace zem::host {

namespace {

std::optional<std::filesystem::path> stateFolder() {
    // A relative path does not count.
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && *state == '/') {
        return state;
    }
    const char* home = std::getenv("HOME");
    if (home != nullptr && *home == '/') {
        return std::filesystem::path(home) / ".local/state";
    }
    return std::nullopt;
}

} // namespace

std::optional<std::filesystem::path> historyFile() {
    const auto state = stateFolder();
    if (!state) {
        return std::nullopt;
    }
    const std::filesystem::path folder = *state / "zem";
    std::error_code error;
    if (std::filesystem::create_directories(folder, error)) {
        // Typed lines may be private.
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
    }
    return error ? std::nullopt : std::optional(folder / "history");
}

} // namespace zem::host
