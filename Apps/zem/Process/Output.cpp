#include "Output.h"

#include <zem/Platform/Mutex.h>

#include <cerrno>
#include <memory>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <utility>

namespace zem::host {

namespace {

platform::Mutex printerMutex;
std::shared_ptr<const LinePrinter> linePrinter;

void print(int descriptor, std::string_view text) {
    std::shared_ptr<const LinePrinter> printer;
    {
        const platform::Lock lock(printerMutex);
        printer = linePrinter;
    }
    if (printer != nullptr) {
        (*printer)(descriptor, text);
    } else {
        writeLine(descriptor, text);
    }
}

} // namespace

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
            return; // there is no way left to report it
        }
    }
}

void printLine(std::string_view text) {
    print(STDOUT_FILENO, text);
}

void printErrorLine(std::string_view text) {
    print(STDERR_FILENO, text);
}

void setLinePrinter(LinePrinter printer) {
    std::shared_ptr<const LinePrinter> set;
    if (printer) {
        set = std::make_shared<const LinePrinter>(std::move(printer));
    }
    const platform::Lock lock(printerMutex);
    linePrinter.swap(set);
}

} // namespace zem::host
