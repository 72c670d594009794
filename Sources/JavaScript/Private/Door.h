#pragma once

// The lock behind which the contexts of one group are entered.

#include <JavaScriptCore/JavaScript.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zem::js {

/// The engine's own lock does not suffice: it is dropped around native functions, and several
/// threads at it with promise jobs due abort or hang the engine. This one is held from a thread's
/// outermost entry until that returns, native functions included, so threads of ZEM never meet at
/// the engine's.
///
/// It is recursive. It is not first come, first served: an orderly hand-over at each entry costs
/// four fifths of the throughput. A thread that finds the door shut waits in line, and only a
/// bounded number of entries overtakes the line. A thread that waits for the door holds no
/// platform::Mutex; the door itself is none.
class Door {
  public:
    /// The door of a context group: the same one for as long as it is referred to.
    static std::shared_ptr<Door> of(JSContextGroupRef group);

    void lock();
    void unlock();

    /// Entries that may overtake the line in a row.
    static constexpr int mostOvertaking = 16;

    /// Whether a thread waits at the head of the line.
    bool isAwaited() const { return awaited; }

    class NativeCall;
    class Watch;

  private:
    void waitInLine();

    std::timed_mutex mutex;
    std::timed_mutex line; // held by the one thread that waits for the mutex
    std::atomic<bool> awaited = false;
    std::atomic<int> waiting = 0;  // threads in line, the head included
    std::atomic<int> overtook = 0; // entries past the line since one from the line got in
    std::atomic<std::thread::id> owner;
    int depth = 0; // the owner's entries

    // For debug builds, which watch the native functions.
    std::mutex callsMutex;
    std::vector<std::string> calls;
    std::size_t changesOfCalls = 0;
    clockid_t callersTime{}; // the processor time of the thread that runs them
};

/// Notes, for as long as it lives, that a native function runs. Does nothing in release builds, and
/// where the function was called past the door.
class Door::NativeCall {
  public:
    NativeCall(Door& door, const std::string& function);
    ~NativeCall();
    NativeCall(const NativeCall&) = delete;
    NativeCall& operator=(const NativeCall&) = delete;

  private:
    Door* door = nullptr;
};

/// The patience of a thread that waits to get in. Debug builds end the process when one native
/// function has done nothing through all of it: most likely it waits for that thread. A function
/// that uses the processor is at work, however slow the machine is.
class Door::Watch {
  public:
    static constexpr std::chrono::milliseconds slice{100};
    static constexpr int limitInSlices = 100;

    explicit Watch(Door& door)
        : door(door) {}

    /// To be called after each slice. Slices are counted, not time: a process that a debugger has
    /// stopped meanwhile spends one.
    void waitedOneSlice();

  private:
    Door& door;
    std::size_t seen = 0;
    std::int64_t worked = 0;
    int slices = 0;
};

} // namespace zem::js
