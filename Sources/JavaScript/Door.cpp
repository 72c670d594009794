#include <zem/JavaScript/Private/Door.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <pthread.h>

namespace zem::js {

namespace {

#ifdef NDEBUG
constexpr bool watchesNativeCalls = false;
#else
constexpr bool watchesNativeCalls = true;
#endif

/// In nanoseconds.
std::int64_t timeOf(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

} // namespace

std::shared_ptr<Door> Door::of(JSContextGroupRef group) {
    static auto& mutex = *new std::mutex;
    static auto& doors = *new std::map<JSContextGroupRef, std::weak_ptr<Door>>;
    const std::scoped_lock lock(mutex);
    if (auto door = doors[group].lock()) {
        return door;
    }
    std::erase_if(doors, [](const auto& entry) { return entry.second.expired(); });
    auto door = std::make_shared<Door>();
    doors[group] = door;
    return door;
}

void Door::lock() {
    const auto self = std::this_thread::get_id();
    if (owner.load(std::memory_order_relaxed) == self) {
        ++depth;
        return;
    }
    const bool mayOvertake = overtook.load(std::memory_order_relaxed) < mostOvertaking;
    if (mayOvertake && mutex.try_lock()) {
        if (waiting.load(std::memory_order_relaxed) > 0) {
            overtook.fetch_add(1, std::memory_order_relaxed);
        }
    } else {
        waitInLine();
    }
    owner.store(self, std::memory_order_relaxed);
    depth = 1;
}

void Door::waitInLine() {
    Watch watch(*this);
    const auto wait = [&](std::timed_mutex& awaited) {
        if constexpr (watchesNativeCalls) {
            while (!awaited.try_lock_for(Watch::slice)) {
                watch.waitedOneSlice();
            }
        } else {
            awaited.lock();
        }
    };
    waiting.fetch_add(1, std::memory_order_relaxed);
    wait(line);
    awaited = true;
    wait(mutex);
    awaited = false;
    overtook.store(0, std::memory_order_relaxed);
    waiting.fetch_sub(1, std::memory_order_relaxed);
    line.unlock();
}

void Door::unlock() {
    if (--depth == 0) {
        owner.store(std::thread::id(), std::memory_order_relaxed);
        mutex.unlock();
    }
}

Door::NativeCall::NativeCall(Door& given, const std::string& function) {
    if constexpr (watchesNativeCalls) {
        if (given.owner == std::this_thread::get_id()) {
            door = &given;
            const std::scoped_lock lock(door->callsMutex);
            door->calls.push_back(function);
            ++door->changesOfCalls;
            pthread_getcpuclockid(pthread_self(), &door->callersTime);
        }
    }
}

Door::NativeCall::~NativeCall() {
    if (door != nullptr) {
        const std::scoped_lock lock(door->callsMutex);
        door->calls.pop_back();
        ++door->changesOfCalls;
    }
}

void Door::Watch::waitedOneSlice() {
    const std::scoped_lock lock(door.callsMutex);
    const std::int64_t work = door.calls.empty() ? 0 : timeOf(door.callersTime);
    if (door.calls.empty() || seen != door.changesOfCalls || worked != work) {
        seen = door.changesOfCalls;
        worked = work;
        slices = 0;
    } else if (++slices == limitInSlices) {
        std::fprintf(stderr,
                     "zem: the native function \"%s\" keeps the engine while another thread waits "
                     "to enter it: a native function must not wait for another thread\n",
                     door.calls.back().c_str());
        std::abort();
    }
}

} // namespace zem::js
