#pragma once

// Counting what closures hold, to see when they are destroyed.

#include <Support/Wait.h>
#include <atomic>
#include <memory>
#include <utility>

namespace test {

/// Held by a closure; its end is the closure's.
class Life {
  public:
    explicit Life(std::shared_ptr<Event> end)
        : end(std::move(end)) {}
    Life(Life&&) = default;
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;
    Life& operator=(Life&&) = delete;
    ~Life() {
        if (end != nullptr) {
            end->signal();
        }
    }

  private:
    std::shared_ptr<Event> end;
};

class Lives {
  public:
    Life begin() {
        ++begun;
        return Life(end);
    }

    int alive() const { return begun - end->signalled(); }
    int ended() const { return end->signalled(); }
    void waitForEnd() { end->wait(); }

  private:
    std::atomic<int> begun = 0;
    std::shared_ptr<Event> end = std::make_shared<Event>("a closure is destroyed");
};

} // namespace test
