#include "File.h"

#include "Failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace zem::host {

std::string readFile(const std::string& name) {
    const auto fail = [&](int error) {
        return Failure(exitUsage, fmt::format("cannot read {}: {}", name, std::strerror(error)));
    };
    const int file = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        throw fail(errno);
    }
    std::string text;
    std::array<char, 65536> piece;
    for (;;) {
        const ssize_t length = read(file, piece.data(), piece.size());
        if (length > 0) {
            text.append(piece.data(), static_cast<std::size_t>(length));
        } else if (length == 0) {
            break;
        } else if (errno != EINTR) {
            const int error = errno;
            close(file);
            throw fail(error);
        }
    }
    close(file);
    return text;
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
