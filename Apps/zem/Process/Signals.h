#pragma once

// Ctrl-C.

#include <functional>
#include <thread>

namespace zem::host {

/// Takes SIGINT and SIGTERM off the process while it lives: each calls `interrupt` with its number
/// on a thread of its own, until that answers true: the end has been asked for. The next one ends
/// the process at once with exitInterrupted. A signal that the program
/// was started with ignoring stays ignored. Made before any other thread, which inherits what is
/// blocked.
class Signals {
  public:
    explicit Signals(std::function<bool(int signal)> interrupt);
    ~Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

  private:
    int signals;
    int end;
    std::thread thread;
};

} // namespace zem::host
