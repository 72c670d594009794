#include "Lines.h"

#include <array>
#include <cerrno>
#include <unistd.h>
#include <utility>

namespace zem::host {

std::optional<std::string> TextLines::next() {
    if (stopped || at >= rest.size()) {
        return std::nullopt;
    }
    const std::size_t end = rest.find('\n', at);
    std::string line = rest.substr(at, end - at);
    at = end == std::string::npos ? rest.size() : end + 1;
    return line;
}

std::optional<std::string> DescriptorLines::next() {
    for (;;) {
        const std::size_t end = read.find('\n');
        if (end != std::string::npos) {
            std::string line = read.substr(0, end);
            read.erase(0, end + 1);
            return stopped ? std::nullopt : std::optional(line);
        }
        if (stopped || !readMore()) {
            break;
        }
    }
    // A last line without an end.
    if (stopped || read.empty()) {
        return std::nullopt;
    }
    return std::exchange(read, {});
}

void DescriptorLines::stop() {
    stopped = true;
    wakeUp.wake();
}

bool DescriptorLines::readMore() {
    if (atEnd || !wakeUp.waitForInput(descriptor)) {
        return !atEnd;
    }
    std::array<char, 4096> piece;
    const ssize_t length = ::read(descriptor, piece.data(), piece.size());
    if (length > 0) {
        read.append(piece.data(), static_cast<std::size_t>(length));
    } else if (length == 0 || (errno != EINTR && errno != EAGAIN)) {
        atEnd = true;
    }
    return !atEnd;
}

} // namespace zem::host
