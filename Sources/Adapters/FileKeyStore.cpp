#include <zem/Adapters/FileKeyStore.h>
#include <zem/Platform/UUID.h>

#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace zem {

using platform::SecretBytes;

namespace {

constexpr mode_t folderMode = 0700;
constexpr mode_t fileMode = 0600;
constexpr mode_t accessOfOthers = 0077;
constexpr std::size_t longestItem = 65536; // far above any key: what is longer is no item of ours

class Descriptor {
  public:
    explicit Descriptor(int opened)
        : number(opened) {}
    ~Descriptor() {
        if (number >= 0) {
            close(number);
        }
    }
    Descriptor(Descriptor&& other) noexcept
        : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&&) = delete;

    int get() const { return number; }
    explicit operator bool() const { return number >= 0; }

  private:
    int number;
};

[[noreturn]] void fail(const std::filesystem::path& path, const std::string& what) {
    throw FileKeyStoreError(fmt::format("key store {}: {}", path.string(), what));
}

[[noreturn]] void failOnError(const std::filesystem::path& path, const std::string& what) {
    fail(path, fmt::format("{}: {}", what, std::strerror(errno)));
}

/// Throws unless what is open belongs to this user alone.
void requirePrivate(const struct stat& status, mode_t type, mode_t mode, const char* kind,
                    const std::filesystem::path& path) {
    if ((status.st_mode & S_IFMT) != type) {
        fail(path, fmt::format("expected {}, found something else", kind));
    }
    if (status.st_uid != geteuid()) {
        fail(path, fmt::format("expected {} that belongs to user {}, found one of user {}", kind,
                               geteuid(), status.st_uid));
    }
    if ((status.st_mode & accessOfOthers) != 0) {
        fail(path, fmt::format("expected {} of mode {:04o}, which others cannot read, found mode "
                               "{:04o}",
                               kind, mode, status.st_mode & 07777));
    }
}

struct stat statusOf(const Descriptor& file, const std::filesystem::path& path) {
    struct stat status{};
    if (fstat(file.get(), &status) != 0) {
        failOnError(path, "cannot be examined");
    }
    return status;
}

Descriptor openFolder(const std::filesystem::path& folder) {
    Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened) {
        failOnError(folder, "the folder cannot be opened");
    }
    requirePrivate(statusOf(opened, folder), S_IFDIR, folderMode, "a folder", folder);
    return opened;
}

/// The file of an item, checked; none when there is none.
std::optional<Descriptor> openItem(const Descriptor& folder, const std::string& name,
                                   const std::filesystem::path& path) {
    Descriptor file(
        openat(folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        failOnError(path, "the file cannot be opened");
    }
    requirePrivate(statusOf(file, path), S_IFREG, fileMode, "a file", path);
    return file;
}

/// Makes a folder and those above it, so that they are there after a power failure.
void makeFolder(const std::filesystem::path& folder) {
    if (mkdir(folder.c_str(), folderMode) != 0) {
        if (errno == EEXIST) {
            return;
        }
        if (errno != ENOENT || folder == folder.parent_path()) {
            failOnError(folder, "the folder cannot be made");
        }
        makeFolder(folder.parent_path());
        if (mkdir(folder.c_str(), folderMode) != 0 && errno != EEXIST) {
            failOnError(folder, "the folder cannot be made");
        }
    }
    const Descriptor above(open(folder.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!above || fsync(above.get()) != 0) {
        failOnError(folder, "the folder cannot be kept");
    }
}

/// Labels name files, and no other file than one of this folder.
void checkLabel(const std::string& label, const std::filesystem::path& folder) {
    if (label.empty() || label.front() == '.' || label.find('/') != std::string::npos ||
        label.find('\0') != std::string::npos) {
        fail(folder, "a label must not be empty, begin with a dot, or hold a slash or a NUL");
    }
}

bool writeAll(const Descriptor& file, platform::BytesView bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(file.get(), bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        }
    }
    return true;
}

/// A file of no item's name that is gone again at the end, whatever has happened meanwhile.
class TemporaryFile {
  public:
    explicit TemporaryFile(const Descriptor& within)
        : folder(within)
        , name(".new-" + platform::makeUUID())
        , file(openat(folder.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                      fileMode)) {}
    ~TemporaryFile() {
        if (file) {
            unlinkat(folder.get(), name.c_str(), 0);
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    bool write(const SecretBytes& item) {
        return file && fchmod(file.get(), fileMode) == 0 && writeAll(file, item.view()) &&
               fsync(file.get()) == 0;
    }
    /// Gives the file a second name, unless there is a file of that name.
    bool linkAs(const std::string& final) {
        return linkat(folder.get(), name.c_str(), folder.get(), final.c_str(), 0) == 0;
    }

  private:
    const Descriptor& folder;
    const std::string name;
    Descriptor file;
};

} // namespace

FileKeyStore::FileKeyStore(std::filesystem::path path)
    : folder(std::move(path)) {}

std::expected<std::shared_ptr<FileKeyStore>, std::string>
FileKeyStore::create(const std::filesystem::path& path) {
    try {
        const std::filesystem::path folder =
            (std::filesystem::current_path() / path / "").lexically_normal().parent_path();
        makeFolder(folder);
        const Descriptor opened = openFolder(folder);
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            openItem(opened, entry.path().filename().string(), entry.path());
        }
        return std::shared_ptr<FileKeyStore>(new FileKeyStore(folder));
    } catch (const std::runtime_error& error) { // the file system's own errors are such, too
        return std::unexpected(std::string(error.what()));
    }
}

std::optional<SecretBytes> FileKeyStore::storedItem(const std::string& label) {
    checkLabel(label, folder);
    const std::filesystem::path path = folder / label;
    const std::optional<Descriptor> file = openItem(openFolder(folder), label, path);
    if (!file) {
        return std::nullopt;
    }
    const auto length = static_cast<std::size_t>(statusOf(*file, path).st_size);
    if (length > longestItem) {
        fail(path, fmt::format("expected at most {} bytes, found {}", longestItem, length));
    }
    SecretBytes item = SecretBytes::ofLength(length);
    for (std::size_t done = 0; done < item.size();) {
        const ssize_t count = read(file->get(), item.data() + done, item.size() - done);
        if (count == 0) {
            fail(path, fmt::format("expected {} bytes, found {}", item.size(), done));
        }
        if (count < 0 && errno != EINTR) {
            failOnError(path, "the file cannot be read");
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return item;
}

bool FileKeyStore::store(const SecretBytes& item, const std::string& label) {
    try {
        checkLabel(label, folder);
        const Descriptor opened = openFolder(folder);
        TemporaryFile file(opened);
        return item.size() <= longestItem && file.write(item) && file.linkAs(label) &&
               fsync(opened.get()) == 0;
    } catch (const FileKeyStoreError&) {
        return false;
    }
}

void FileKeyStore::removeItem(const std::string& label) {
    checkLabel(label, folder);
    const Descriptor opened = openFolder(folder);
    if (unlinkat(opened.get(), label.c_str(), 0) != 0) {
        if (errno == ENOENT) {
            return;
        }
        failOnError(folder / label, "the file cannot be deleted");
    }
    if (fsync(opened.get()) != 0) {
        failOnError(folder / label, "the deletion cannot be kept");
    }
}

} // namespace zem
