// Preloaded into a program, this library fails or kills it at a chosen change of a chosen folder.
//
//     ZEM_FAULT_FOLDER   the folder; changes elsewhere pass through and are not counted
//     ZEM_FAULT_AT       the number of the change, from 1; without it none fails
//     ZEM_FAULT_KIND     kill: the process is killed before the change
//                        tear: the process is killed after half of the bytes are written
//                        refuse: this change fails with ENOSPC
//                        full: this change and every later one fails with ENOSPC
//     ZEM_FAULT_LOG      a file that gets one line for each change
//     ZEM_FAULT_IMAGE    a folder that is kept as the first one would be after a power cut: a file
//     as
//                        it was last synced, a removal once its folder was synced
//
// The system is called directly, so that no call of this library comes back to it.

#include <climits>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::string setting(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

struct Settings {
    std::string folder = setting("ZEM_FAULT_FOLDER");
    std::string kind = setting("ZEM_FAULT_KIND");
    std::string log = setting("ZEM_FAULT_LOG");
    std::string image = setting("ZEM_FAULT_IMAGE");
    long at = std::atol(setting("ZEM_FAULT_AT").c_str());
};

const Settings& settings() {
    static const Settings& read = *new Settings;
    return read;
}

int openFile(const std::string& path, int flags, mode_t mode = 0) {
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path.c_str(), flags, mode));
}

void closeFile(int file) {
    syscall(SYS_close, file);
}

std::string pathOf(int file) {
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    const ssize_t length = readlink(link.c_str(), path, sizeof path);
    return length < 0 ? "" : std::string(path, static_cast<std::size_t>(length));
}

std::string pathOf(int folder, const char* name) {
    if (name[0] == '/') {
        return name;
    }
    char current[PATH_MAX];
    const std::string above = folder == AT_FDCWD ? getcwd(current, sizeof current) : pathOf(folder);
    return above + "/" + name;
}

bool isWatched(const std::string& path) {
    const std::string& folder = settings().folder;
    return !folder.empty() && path.starts_with(folder + "/");
}

enum class Fault { none, half, refused };

[[noreturn]] void endNow() {
    kill(getpid(), SIGKILL);
    for (;;) {
        pause();
    }
}

void note(std::string_view what, const std::string& path) {
    const std::string line = std::string(what) + " " + path + "\n";
    const int log = openFile(settings().log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    syscall(SYS_write, log, line.data(), line.size());
    closeFile(log);
}

/// Counts a change and says what is to become of it. `grows`: it needs room on the disk.
Fault beforeChange(std::string_view what, const std::string& path, bool grows) {
    if (!isWatched(path)) {
        return Fault::none;
    }
    static std::atomic<long> count = 0;
    const long number = ++count;
    if (!settings().log.empty()) {
        note(what, path);
    }
    if (settings().at == 0 || number < settings().at) {
        return Fault::none;
    }
    const std::string& kind = settings().kind;
    if (number == settings().at && kind == "kill") {
        endNow();
    }
    if (number == settings().at && kind == "tear") {
        return Fault::half;
    }
    const bool isRefused = kind == "full" || (kind == "refuse" && number == settings().at);
    return isRefused && grows ? Fault::refused : Fault::none;
}

template <class Change>
auto change(std::string_view what, const std::string& path, bool grows, Change&& make)
    -> decltype(make()) {
    switch (beforeChange(what, path, grows)) {
    case Fault::half:
        make();
        endNow();
    case Fault::refused:
        errno = ENOSPC;
        return -1;
    case Fault::none:
        break;
    }
    return make();
}

/// `write` gets the number of bytes that it is to write.
template <class Write>
ssize_t writing(int file, std::size_t length, Write&& write) {
    switch (beforeChange("write", pathOf(file), true)) {
    case Fault::half:
        write(length / 2);
        endNow();
    case Fault::refused:
        errno = ENOSPC;
        return -1;
    case Fault::none:
        break;
    }
    return write(length);
}

std::string imageOf(const std::string& path) {
    return settings().image + path.substr(settings().folder.size());
}

void makeFoldersAbove(const std::string& path) {
    for (std::size_t end = path.find('/', 1); end != std::string::npos;
         end = path.find('/', end + 1)) {
        syscall(SYS_mkdirat, AT_FDCWD, path.substr(0, end).c_str(), 0700);
    }
}

void copyToImage(int file, const std::string& path) {
    makeFoldersAbove(imageOf(path));
    const int copy = openFile(imageOf(path), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    char piece[65536];
    off_t at = 0;
    for (long got = 0; (got = syscall(SYS_pread64, file, piece, sizeof piece, at)) > 0; at += got) {
        syscall(SYS_pwrite64, copy, piece, got, at);
    }
    closeFile(copy);
}

void removeFromImageWhatIsGone(const std::string& folder) {
    DIR* names = opendir(imageOf(folder).c_str());
    if (names == nullptr) {
        return;
    }
    while (const dirent* each = readdir(names)) {
        const std::string file = folder + "/" + each->d_name;
        if (access(file.c_str(), F_OK) != 0) {
            syscall(SYS_unlinkat, AT_FDCWD, imageOf(file).c_str(), 0);
        }
    }
    closedir(names);
}

template <class Sync>
int syncing(int file, Sync&& sync) {
    const std::string path = pathOf(file);
    const int result = change("sync", path, false, sync);
    struct stat status{};
    // A descriptor that only reads does as well: a copy is written, not the file.
    if (result != 0 || settings().image.empty() ||
        !(path + "/").starts_with(settings().folder + "/") || fstat(file, &status) != 0) {
        return result;
    }
    if (S_ISDIR(status.st_mode)) {
        removeFromImageWhatIsGone(path);
    } else {
        const int reading = openFile(path, O_RDONLY | O_CLOEXEC);
        copyToImage(reading, path);
        closeFile(reading);
    }
    return result;
}

int opening(int folder, const char* name, int flags, mode_t mode) {
    const auto open = [&] {
        return static_cast<int>(syscall(SYS_openat, folder, name, flags, mode));
    };
    const bool makes =
        (flags & O_CREAT) != 0 && faccessat(folder, name, F_OK, AT_SYMLINK_NOFOLLOW) != 0;
    return makes ? change("create", pathOf(folder, name), true, open) : open();
}

mode_t modeOf(int flags, std::va_list& arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) == 0 ? 0 : va_arg(arguments, mode_t);
}

int removing(int folder, const char* name, int flags) {
    return change("remove", pathOf(folder, name), false,
                  [&] { return static_cast<int>(syscall(SYS_unlinkat, folder, name, flags)); });
}

} // namespace

extern "C" {

ssize_t write(int file, const void* bytes, size_t length) {
    return writing(file, length, [&](std::size_t count) {
        return static_cast<ssize_t>(syscall(SYS_write, file, bytes, count));
    });
}

ssize_t pwrite(int file, const void* bytes, size_t length, off_t at) {
    return writing(file, length, [&](std::size_t count) {
        return static_cast<ssize_t>(syscall(SYS_pwrite64, file, bytes, count, at));
    });
}

ssize_t pwrite64(int file, const void* bytes, size_t length, off64_t at) {
    return pwrite(file, bytes, length, at);
}

int ftruncate(int file, off_t length) noexcept {
    return change("truncate", pathOf(file), true,
                  [&] { return static_cast<int>(syscall(SYS_ftruncate, file, length)); });
}

int ftruncate64(int file, off64_t length) noexcept {
    return ftruncate(file, length);
}

int posix_fallocate(int file, off_t from, off_t length) {
    const int result = change("allocate", pathOf(file), true, [&] {
        return static_cast<int>(syscall(SYS_fallocate, file, 0, from, length));
    });
    return result == 0 ? 0 : errno;
}

int posix_fallocate64(int file, off64_t from, off64_t length) {
    return posix_fallocate(file, from, length);
}

int fsync(int file) {
    return syncing(file, [&] { return static_cast<int>(syscall(SYS_fsync, file)); });
}

int fdatasync(int file) {
    return syncing(file, [&] { return static_cast<int>(syscall(SYS_fdatasync, file)); });
}

int open(const char* name, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return opening(AT_FDCWD, name, flags, mode);
}

int open64(const char* name, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return opening(AT_FDCWD, name, flags, mode);
}

int openat(int folder, const char* name, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return opening(folder, name, flags, mode);
}

int mknod(const char* name, mode_t mode, dev_t device) noexcept {
    return change("create", pathOf(AT_FDCWD, name), true, [&] {
        return static_cast<int>(syscall(SYS_mknodat, AT_FDCWD, name, mode, device));
    });
}

int mkdir(const char* name, mode_t mode) noexcept {
    return change("create", pathOf(AT_FDCWD, name), true,
                  [&] { return static_cast<int>(syscall(SYS_mkdirat, AT_FDCWD, name, mode)); });
}

int linkat(int from, const char* name, int to, const char* other, int flags) noexcept {
    return change("link", pathOf(to, other), true, [&] {
        return static_cast<int>(syscall(SYS_linkat, from, name, to, other, flags));
    });
}

int unlink(const char* name) noexcept {
    return removing(AT_FDCWD, name, 0);
}

int unlinkat(int folder, const char* name, int flags) noexcept {
    return removing(folder, name, flags);
}

int rmdir(const char* name) noexcept {
    return removing(AT_FDCWD, name, AT_REMOVEDIR);
}

int remove(const char* name) noexcept {
    const int result = removing(AT_FDCWD, name, 0);
    return result != 0 && errno == EISDIR ? rmdir(name) : result;
}
}
