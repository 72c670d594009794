#include "Output.h"

#include <cerrno>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace zem::host {

namespace {

void writeLine(int descriptor, std::string_view text) {
    std::string line;
    line.reserve(text.size() + 1);
    line.append(text).push_back('\n');
    std::string_view rest = line;
    while (!rest.empty()) {
        const ssize_t written = write(descriptor, rest.data(), rest.size());
        if (written >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            // A terminal or a pipe that another process has made non-blocking.
            pollfd ready{descriptor, POLLOUT, 0};
            poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return; // nobody is there to be told
        }
    }
}

} // namespace

void printLine(std::string_view text) {
    writeLine(STDOUT_FILENO, text);
}

void printErrorLine(std::string_view text) {
    writeLine(STDERR_FILENO, text);
}

} // namespace zem::host
