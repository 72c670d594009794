#include "Output.h"

#include <zem/Platform/Mutex.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace zem::host {

namespace {

platform::Mutex printerMutex;
std::shared_ptr<const LinePrinter> linePrinter;

/// Set before other threads write lines. Without a status line, lines need no lock.
bool hasStatusLine = false;
platform::Mutex statusMutex; // guards the next three, and the terminal
std::string status;
bool isSuspended = false;
bool isDrawn = false;

void writeWhole(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            // A terminal or a pipe that another process has made non-blocking.
            pollfd ready{descriptor, POLLOUT, 0};
            poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return; // there is no way left to report it
        }
    }
}

void eraseStatus() {
    if (std::exchange(isDrawn, false)) {
        writeWhole(STDERR_FILENO, "\r\x1b[K");
    }
}

/// As much as fits in a row: a longer one could not be erased.
void drawStatus() {
    winsize size{};
    const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    const std::size_t columns = isKnown ? size.ws_col : 80;
    if (!isSuspended && !status.empty()) {
        writeWhole(STDERR_FILENO, "\r" + status.substr(0, columns - 1) + "\x1b[K");
        isDrawn = true;
    }
}

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
    if (!hasStatusLine) {
        writeWhole(descriptor, line);
        return;
    }
    const platform::Lock lock(statusMutex);
    eraseStatus();
    writeWhole(descriptor, line);
    drawStatus();
}

bool enableStatusLine() {
    const char* const given = std::getenv("TERM");
    const std::string_view type = given == nullptr ? "" : given;
    hasStatusLine = isatty(STDERR_FILENO) == 1 && !type.empty() && type != "dumb";
    return hasStatusLine;
}

void setStatusLine(const std::string& text) {
    const platform::Lock lock(statusMutex);
    status = text;
    if (text.empty()) {
        eraseStatus();
    } else {
        drawStatus();
    }
}

void suspendStatusLine() {
    const platform::Lock lock(statusMutex);
    isSuspended = true;
    eraseStatus();
}

void resumeStatusLine() {
    const platform::Lock lock(statusMutex);
    isSuspended = false;
    drawStatus();
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
