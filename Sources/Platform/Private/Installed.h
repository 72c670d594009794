#pragma once

// One process-wide thing that any thread may use while another thread replaces it. It is never
// destroyed and needs no construction at run time, so it works from the first static initialiser to
// the last thread that outlives main.

#include <zem/Platform/Mutex.h>

#include <atomic>
#include <memory>
#include <utility>

namespace zem::platform {

template <class Thing>
class Installed {
  public:
    constexpr Installed() = default;
    Installed(const Installed&) = delete;
    Installed& operator=(const Installed&) = delete;

    /// Whether there is one: a single load.
    bool isPresent() const { return present.load(std::memory_order_relaxed); }

    /// Installs `thing`; null leaves none. Returns when no thread uses the former any more, and has
    /// then let it go. Must not be called from inside `use`.
    void replace(std::shared_ptr<Thing> thing) {
        auto next = thing == nullptr ? nullptr : std::make_unique<Use>(std::move(thing));
        std::unique_ptr<Use> former;
        {
            Lock lock(mutex);
            present.store(next != nullptr, std::memory_order_relaxed);
            former.reset(std::exchange(current, next.release()));
        }
        if (former == nullptr) {
            return;
        }
        for (;;) {
            const unsigned seen = departures.load();
            {
                Lock lock(mutex);
                if (former->threads == 0) {
                    return;
                }
            }
            departures.wait(seen);
        }
    }

    /// Calls `work` with the thing, without a lock; false when there is none.
    template <class Work>
    bool use(const Work& work) {
        Visit visit(*this);
        if (visit.used == nullptr) {
            return false;
        }
        work(*visit.used->thing);
        return true;
    }

  private:
    struct Use {
        explicit Use(std::shared_ptr<Thing> used)
            : thing(std::move(used)) {}
        std::shared_ptr<Thing> thing;
        int threads = 0;
    };

    // Holds no share of the thing: whoever replaces it waits, and lets go of it on its own thread.
    struct Visit {
        explicit Visit(Installed& place)
            : installed(place) {
            Lock lock(installed.mutex);
            used = installed.current;
            if (used != nullptr) {
                ++used->threads;
            }
        }
        ~Visit() {
            if (used == nullptr) {
                return;
            }
            {
                Lock lock(installed.mutex);
                --used->threads;
            }
            installed.departures.fetch_add(1);
            installed.departures.notify_all();
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

        Installed& installed;
        Use* used = nullptr;
    };

    Mutex mutex;
    Use* current = nullptr;
    std::atomic<bool> present = false;
    std::atomic<unsigned> departures = 0;
};

} // namespace zem::platform
