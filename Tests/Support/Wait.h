#pragma once

// Waiting for events in tests: always bounded, and a wait that fails says what it waited for.

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace test {

/// No test depends on speed: the bound is only there so that a lost event fails instead of hanging.
inline constexpr std::chrono::seconds waitLimit{120};

/// Returns when `condition`, which nothing announces, is true; throws when that does not happen.
inline void waitUntil(const std::string& awaited, const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + waitLimit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) {
            throw std::runtime_error("waited in vain for: " + awaited);
        }
        std::this_thread::yield();
    }
}

/// Something that happens once or several times on other threads and is waited for on the test's.
class Event {
  public:
    explicit Event(std::string awaited)
        : name(std::move(awaited)) {}

    void signal() {
        std::scoped_lock lock(mutex);
        ++count;
        condition.notify_all();
    }

    /// Returns when it has been signalled `times` times in all; throws when that does not happen.
    void wait(int times = 1) {
        std::unique_lock lock(mutex);
        if (!condition.wait_for(lock, waitLimit, [&] { return count >= times; })) {
            throw std::runtime_error("waited in vain for: " + name + " (" + std::to_string(count) +
                                     " of " + std::to_string(times) + ")");
        }
    }

    int signalled() {
        std::scoped_lock lock(mutex);
        return count;
    }

  private:
    std::string name;
    std::mutex mutex;
    std::condition_variable condition;
    int count = 0;
};

/// A value that arrives on another thread.
template <class T>
class Arrival {
  public:
    explicit Arrival(std::string name)
        : event(std::move(name)) {}

    void put(T value) {
        {
            std::scoped_lock lock(mutex);
            values.push_back(std::move(value));
        }
        event.signal();
    }

    /// The first value, when it has come.
    T get() {
        event.wait();
        std::scoped_lock lock(mutex);
        return values.front();
    }

    int count() { return event.signalled(); }

  private:
    Event event;
    std::mutex mutex;
    std::vector<T> values;
};

/// A list of events from any thread, in order; tests compare it whole.
class Transcript {
  public:
    void add(std::string line) {
        std::scoped_lock lock(mutex);
        recorded.push_back(std::move(line));
    }

    std::vector<std::string> lines() const {
        std::scoped_lock lock(mutex);
        return recorded;
    }

    void clear() {
        std::scoped_lock lock(mutex);
        recorded.clear();
    }

  private:
    mutable std::mutex mutex;
    std::vector<std::string> recorded;
};

} // namespace test
