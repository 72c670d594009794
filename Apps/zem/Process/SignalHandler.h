#pragma once

// Ctrl-C.

#include "WakeUp.h"

#include <functional>
#include <thread>

namespace zem::host {

/// Handles SIGINT and SIGTERM of the process while it lives. `interrupt` is called with the
/// signal's number on the handler's own thread, and returns whether it has asked for the end of the
/// run. The first signal after that ends the process at once with exitInterrupted. A signal that
/// the program was started with ignoring stays ignored. Make it before any other thread: threads
/// inherit which signals are blocked.
class SignalHandler {
  public:
    explicit SignalHandler(std::function<bool(int signal)> interrupt);
    ~SignalHandler();
    SignalHandler(const SignalHandler&) = delete;
    SignalHandler& operator=(const SignalHandler&) = delete;

  private:
    int signals;
    WakeUp end;
    std::thread thread;
};

} // namespace zem::host
