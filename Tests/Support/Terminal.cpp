#include <Support/Terminal.h>
#include <Support/Wait.h>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

namespace test {

Terminal::Terminal(std::vector<std::string> command, const std::filesystem::path& folder,
                   const std::map<std::string, std::string>& environment) {
    // Made before: after the fork only what is safe in a signal handler may be called.
    std::vector<std::string> settings;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text(*entry);
        if (!environment.contains(text.substr(0, text.find('=')))) {
            settings.push_back(text);
        }
    }
    for (const auto& [name, value] : environment) {
        settings.push_back(name + "=" + value);
    }
    const auto pointersTo = [](std::vector<std::string>& texts) {
        std::vector<char*> pointers;
        for (std::string& text : texts) {
            pointers.push_back(text.data());
        }
        pointers.push_back(nullptr);
        return pointers;
    };
    const std::vector<char*> words = pointersTo(command);
    const std::vector<char*> variables = pointersTo(settings);
    winsize size{24, 80, 0, 0};
    pid = forkpty(&terminal, nullptr, nullptr, &size);
    if (pid < 0) {
        throw std::system_error(errno, std::generic_category(), "forkpty");
    }
    if (pid == 0) {
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        signal(SIGINT, SIG_DFL);
        signal(SIGPIPE, SIG_DFL);
        if (chdir(folder.c_str()) == 0) {
            execve(words.front(), words.data(), variables.data());
        }
        _exit(127);
    }
}

Terminal::~Terminal() {
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    if (terminal >= 0) {
        close(terminal);
    }
}

void Terminal::type(const std::string& keys) const {
    if (write(terminal, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
        throw std::system_error(errno, std::generic_category(), "typing");
    }
}

std::string Terminal::waitFor(const std::string& text) {
    std::size_t found = 0;
    while ((found = written.find(text)) == std::string::npos) {
        if (!readMore()) {
            throw std::runtime_error("ended without \"" + text + "\"; it wrote:\n" + written);
        }
    }
    const std::string before = written.substr(0, found + text.size());
    written.erase(0, before.size());
    return before;
}

int Terminal::wait() {
    while (readMore()) {
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool Terminal::isInLineMode() const {
    termios modes{};
    if (tcgetattr(terminal, &modes) != 0) {
        throw std::system_error(errno, std::generic_category(), "tcgetattr");
    }
    return (modes.c_lflag & ICANON) != 0 && (modes.c_lflag & ECHO) != 0;
}

/// False when the program has ended.
bool Terminal::readMore() {
    pollfd ready{terminal, POLLIN, 0};
    const auto limit = std::chrono::milliseconds(waitLimit).count();
    if (poll(&ready, 1, static_cast<int>(limit)) == 0) {
        throw std::runtime_error("waited in vain for a program; it wrote:\n" + written);
    }
    std::array<char, 4096> piece;
    const ssize_t length = read(terminal, piece.data(), piece.size());
    if (length > 0) {
        takeText(std::string(piece.data(), static_cast<std::size_t>(length)));
    }
    // The terminal of a program that has ended answers with an error.
    return length > 0 || (length < 0 && errno == EINTR);
}

void Terminal::takeText(const std::string& piece) {
    everything += piece;
    for (const char character : piece) {
        if (!control.empty()) {
            control += character;
            const bool isLetter =
                (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
            if (isLetter) {
                control.clear();
            }
        } else if (character == '\x1b') {
            control = character;
        } else if (character != '\r' && character != '\a') {
            written += character;
        }
    }
}

} // namespace test
