#include "Signals.h"

#include "Failure.h"

#include <cerrno>
#include <csignal>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace zem::host {

namespace {

int checked(int descriptor, const char* what) {
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return descriptor;
}

sigset_t blockSignals() {
    sigset_t taken;
    sigemptyset(&taken);
    for (const int signal : {SIGINT, SIGTERM}) {
        struct sigaction action{};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {
            sigaddset(&taken, signal);
        }
    }
    pthread_sigmask(SIG_BLOCK, &taken, nullptr);
    return taken;
}

/// The signal that has come; absent when the end has.
std::optional<int> waitForSignal(int signals, int end) {
    pollfd either[] = {{signals, POLLIN, 0}, {end, POLLIN, 0}};
    while (poll(either, 2, -1) < 0 && errno == EINTR) {
    }
    if (either[1].revents != 0) {
        return std::nullopt;
    }
    signalfd_siginfo taken;
    if (read(signals, &taken, sizeof taken) != sizeof taken) {
        return std::nullopt;
    }
    return static_cast<int>(taken.ssi_signo);
}

} // namespace

Signals::Signals(std::function<bool(int signal)> interrupt) {
    const sigset_t taken = blockSignals();
    signals = checked(signalfd(-1, &taken, SFD_CLOEXEC), "signalfd");
    end = checked(eventfd(0, EFD_CLOEXEC), "eventfd");
    thread = std::thread([interrupt = std::move(interrupt), signals = signals, end = end] {
        bool isEnding = false;
        while (const std::optional<int> signal = waitForSignal(signals, end)) {
            if (isEnding) {
                _exit(exitInterrupted);
            }
            isEnding = interrupt(*signal);
        }
    });
}

Signals::~Signals() {
    eventfd_write(end, 1);
    thread.join();
    close(signals);
    close(end);
}

} // namespace zem::host
