#include <Support/Process.h>
#include <Support/Wait.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace test {

namespace {

void require(int failure, const std::string& what) {
    if (failure != 0) {
        throw std::system_error(failure, std::generic_category(), what);
    }
}

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    require(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe2");
    return ends;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& changes) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text(*entry);
        if (!changes.contains(text.substr(0, text.find('=')))) {
            result.push_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        result.push_back(name + "=" + value);
    }
    return result;
}

/// Appends what there is to read, and closes the pipe at its end.
void readFrom(int& pipe, std::string& text) {
    std::array<char, 65536> piece;
    const ssize_t length = read(pipe, piece.data(), piece.size());
    if (length > 0) {
        text.append(piece.data(), static_cast<std::size_t>(length));
    } else if (length == 0) {
        close(pipe);
        pipe = -1;
    } else if (errno != EINTR) {
        require(errno, "read");
    }
}

} // namespace

Process::Process(std::vector<std::string> command, const Options& options) {
    std::array<int, 2> output = makePipe();
    std::array<int, 2> errors = makePipe();
    std::vector<std::string> environment = environmentWith(options.environment);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    std::array<int, 2> input{-1, -1};
    if (options.hasInput) {
        // A socket, so that writing to a program that has ended fails and sends no signal.
        require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input.data()) == 0 ? 0 : errno,
                "socketpair");
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors[1], STDERR_FILENO);
    if (!options.folder.empty()) {
        posix_spawn_file_actions_addchdir_np(&actions, options.folder.c_str());
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    for (const int number : {SIGINT, SIGTERM, SIGPIPE}) {
        sigaddset(&signals, number);
    }
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int failure = posix_spawn(&pid, command.front().c_str(), &actions, &attributes,
                                    pointersTo(command).data(), pointersTo(environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (options.hasInput) {
        close(input[0]);
    }
    inputPipe = input[1];
    close(output[1]);
    close(errors[1]);
    outputPipe = output[0];
    errorPipe = errors[0];
    if (failure != 0) {
        closeInput();
        close(outputPipe);
        close(errorPipe);
    }
    require(failure, command.front());
}

Process::~Process() {
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    for (const int pipe : {inputPipe, outputPipe, errorPipe}) {
        if (pipe >= 0) {
            close(pipe);
        }
    }
}

void Process::waitForLine(const std::string& line) {
    const std::string wanted = "\n" + line + "\n";
    while (("\n" + result.output).find(wanted) == std::string::npos) {
        if (!readMore()) {
            throw std::runtime_error("ended without the line \"" + line + "\"; it wrote:\n" +
                                     result.output + result.errors);
        }
    }
}

void Process::signal(int number) {
    require(kill(pid, number) == 0 ? 0 : errno, "kill");
}

void Process::write(const std::string& text) const {
    std::string_view rest = text;
    while (!rest.empty()) {
        const ssize_t length = send(inputPipe, rest.data(), rest.size(), MSG_NOSIGNAL);
        require(length >= 0 || errno == EINTR ? 0 : errno, "send");
        rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    }
}

void Process::closeInput() {
    if (inputPipe >= 0) {
        close(inputPipe);
        inputPipe = -1;
    }
}

Process::Result Process::wait() {
    while (readMore()) {
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    pid = -1;
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return result;
}

/// False when both pipes have come to their ends, as they do when the program ends.
bool Process::readMore() {
    if (outputPipe < 0 && errorPipe < 0) {
        return false;
    }
    std::array<pollfd, 2> pipes{{{outputPipe, POLLIN, 0}, {errorPipe, POLLIN, 0}}};
    const auto limit = std::chrono::milliseconds(waitLimit).count();
    const int ready = poll(pipes.data(), pipes.size(), static_cast<int>(limit));
    if (ready == 0) {
        throw std::runtime_error("waited in vain for a program; it wrote:\n" + result.output +
                                 result.errors);
    }
    if (pipes[0].revents != 0) {
        readFrom(outputPipe, result.output);
    }
    if (pipes[1].revents != 0) {
        readFrom(errorPipe, result.errors);
    }
    return true;
}

} // namespace test
