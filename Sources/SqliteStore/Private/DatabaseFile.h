#pragma once

// The database file as the file system sees it: its folder, its making and its removal.

#include <chrono>
#include <filesystem>

namespace zem {

/// The right to open, make or remove the database of a folder: one opening at a time, across all
/// processes. Two first openings at once would both run the first version, and neither would end.
class OpeningTurn {
  public:
    static constexpr std::chrono::seconds limit{30};

    /// Waits for the turn; throws SQLiteResult(SQLITE_BUSY) when another opening has not ended
    /// within the limit.
    explicit OpeningTurn(const std::filesystem::path& folder,
                         std::chrono::milliseconds longest = limit);
    ~OpeningTurn();
    OpeningTurn(const OpeningTurn&) = delete;
    OpeningTurn& operator=(const OpeningTurn&) = delete;

    /// False on a file system that has no locks of folders: others may be opening the file.
    bool isAlone() const { return alone; }

  private:
    int folder;
    bool alone;
};

/// Makes a folder, and the missing ones above it, with mode 0700. Folders that exist stay as they
/// are. Throws std::filesystem::filesystem_error.
void makePrivateFolder(const std::filesystem::path& folder);

/// Makes an empty file of mode 0600, which SQLite gives the files beside it too. False when there
/// is a file already, and when none can be made.
bool makePrivateFile(const std::filesystem::path& file);

void removeIfEmpty(const std::filesystem::path& file);

/// Removes the database file and the files beside it. Throws std::filesystem::filesystem_error.
void removeDatabaseFile(const std::filesystem::path& file);

} // namespace zem
