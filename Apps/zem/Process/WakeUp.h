#pragma once

// A wait for input that another thread can end.

namespace zem::host {

class WakeUp {
  public:
    WakeUp();
    ~WakeUp();
    WakeUp(const WakeUp&) = delete;
    WakeUp& operator=(const WakeUp&) = delete;

    /// Ends the wait at hand, or the next one. Any thread.
    void wake();

    /// True when there is something to read on the descriptor, or its end; false after `wake`.
    bool waitForInput(int descriptor);

  private:
    int event;
};

} // namespace zem::host
