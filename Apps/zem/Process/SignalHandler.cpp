#include "SignalHandler.h"

#include "Failure.h"

#include <cerrno>
#include <csignal>
#include <optional>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace zem::host {

namespace {

int openSignals(const sigset_t& taken) {
    const int descriptor = signalfd(-1, &taken, SFD_CLOEXEC);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
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

/// The next signal; absent after `end.wake()`.
std::optional<int> waitForSignal(int signals, WakeUp& end) {
    signalfd_siginfo taken;
    if (!end.waitForInput(signals) || read(signals, &taken, sizeof taken) != sizeof taken) {
        return std::nullopt;
    }
    return static_cast<int>(taken.ssi_signo);
}

} // namespace

SignalHandler::SignalHandler(std::function<bool(int signal)> interrupt)
    : signals(openSignals(blockSignals()))
    , thread([this, interrupt = std::move(interrupt)] {
        bool isEnding = false;
        while (const std::optional<int> signal = waitForSignal(signals, end)) {
            if (isEnding) {
                _exit(exitInterrupted);
            }
            isEnding = interrupt(*signal);
        }
    }) {}

SignalHandler::~SignalHandler() {
    end.wake();
    thread.join();
    close(signals);
}

} // namespace zem::host
