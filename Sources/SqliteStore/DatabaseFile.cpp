#include <zem/SqliteStore/Private/DatabaseFile.h>
#include <zem/SqliteStore/SQLiteResult.h>

#include <sqlite3.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace zem {
namespace {

namespace fs = std::filesystem;

void makeMissingFolders(const fs::path& folder) {
    std::error_code error;
    if (fs::exists(folder, error)) {
        return;
    }
    if (const fs::path above = folder.parent_path(); !above.empty() && above != folder) {
        makeMissingFolders(above);
    }
    mkdir(folder.c_str(), 0700);
}

/// Whether the lock was taken; nothing was done when the file system has none.
bool lock(int folder, std::chrono::milliseconds longest) {
    const auto end = std::chrono::steady_clock::now() + longest;
    while (flock(folder, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return false;
        }
        if (std::chrono::steady_clock::now() >= end) {
            throw SQLiteResult(SQLITE_BUSY);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace

OpeningTurn::OpeningTurn(const fs::path& path, std::chrono::milliseconds longest)
    : folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    try {
        alone = lock(folder, longest);
    } catch (...) {
        close(folder);
        throw;
    }
}

OpeningTurn::~OpeningTurn() {
    if (folder >= 0) {
        close(folder);
    }
}

void makePrivateFolder(const fs::path& folder) {
    makeMissingFolders(folder);
    fs::create_directories(folder); // has nothing left to do, or throws what prevents it
}

bool makePrivateFile(const fs::path& file) {
    // Made without opening it: closing a descriptor would end the locks that this process holds on
    // the file through others.
    return mknod(file.c_str(), S_IFREG | 0600, 0) == 0;
}

void removeIfEmpty(const fs::path& file) {
    std::error_code error;
    if (fs::file_size(file, error) == 0 && !error) {
        fs::remove(file, error);
    }
}

void removeDatabaseFile(const fs::path& file) {
    // The file goes first: a log without its file is dropped by the next opening, a file without
    // its log may be damaged.
    for (const char* ending : {"", "-wal", "-shm", "-journal"}) {
        fs::remove(file.string() + ending);
    }
}

} // namespace zem
