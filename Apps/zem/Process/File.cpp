#include "File.h"

#include "Failure.h"
#include <zem/Platform/UUID.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace zem::host {

namespace {

Failure failureOf(const char* doing, const std::string& name, int error) {
    return {exitUsage, fmt::format("cannot {} {}: {}", doing, name, std::strerror(error))};
}

/// An open file; closed at the end.
class Descriptor {
  public:
    explicit Descriptor(int number)
        : number(number) {}
    ~Descriptor() {
        if (number >= 0) {
            close(number);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool isOpen() const { return number >= 0; }
    operator int() const { return number; }

  private:
    const int number;
};

/// A text, or bytes.
template <class Content>
Content readWhole(const std::string& name) {
    const Descriptor file(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status{};
    if (!file.isOpen() || fstat(file, &status) != 0) {
        throw failureOf("read", name, errno);
    }
    constexpr std::size_t pieceLength = 65536;
    Content content;
    // Once: growing would hold it twice. A pipe tells no size, and a file may grow.
    content.reserve(static_cast<std::size_t>(status.st_size) + pieceLength);
    for (std::size_t length = 0;;) {
        content.resize(length + pieceLength);
        const ssize_t got = read(file, content.data() + length, pieceLength);
        if (got < 0 && errno != EINTR) {
            throw failureOf("read", name, errno);
        }
        length += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
        if (got == 0) {
            content.resize(length);
            return content;
        }
    }
}

/// False with `errno` set if the bytes cannot be written.
bool writeWhole(int file, platform::BytesView bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    return true;
}

void writeInPlace(const std::string& name, platform::BytesView bytes) {
    const Descriptor file(open(name.c_str(), O_WRONLY | O_CLOEXEC));
    if (!file.isOpen() || !writeWhole(file, bytes)) {
        throw failureOf("write", name, errno);
    }
}

void writeBeside(const std::string& name, platform::BytesView bytes) {
    const std::string beside = name + "." + platform::makeUUID();
    const Descriptor file(open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file.isOpen()) {
        throw failureOf("write", name, errno);
    }
    if (!writeWhole(file, bytes) || fsync(file) != 0 ||
        std::rename(beside.c_str(), name.c_str()) != 0) {
        const int error = errno;
        unlink(beside.c_str());
        throw failureOf("write", name, error);
    }
}

} // namespace

std::string readFile(const std::string& name) {
    return readWhole<std::string>(name);
}

platform::Bytes readBytes(const std::string& name) {
    return readWhole<platform::Bytes>(name);
}

void writeFile(const std::string& name, platform::BytesView bytes) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(name, error);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
        writeInPlace(name, bytes);
    } else {
        writeBeside(name, bytes);
    }
}

std::string placeIn(std::string_view text, std::size_t offset) {
    const std::string_view before = text.substr(0, offset);
    const auto line = std::ranges::count(before, '\n') + 1;
    const std::string_view lineBefore = before.substr(before.rfind('\n') + 1);
    const auto column =
        std::ranges::count_if(lineBefore,
                              [](char byte) {
                                  const bool continues =
                                      (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
                                  return !continues;
                              }) +
        1;
    return fmt::format("{}:{}", line, column);
}

} // namespace zem::host
