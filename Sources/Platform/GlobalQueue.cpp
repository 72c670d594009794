#include <zem/Platform/Mutex.h>
#include <zem/Platform/Private/GlobalThreads.h>
#include <zem/Platform/Queue.h>

#include <glib.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <utility>

namespace zem::platform {

namespace {

constexpr int maximumThreads = 64;
constexpr std::size_t qualities = 5;

/// GLib's pool makes and keeps the threads; it is only ever handed a token. The tasks themselves go
/// through a deque under our own lock, so that the hand-over is one that ThreadSanitizer sees, and
/// so that the best of what waits is chosen when a thread comes free, not when it was enqueued.
class GlobalThreads {
  public:
    static GlobalThreads& shared() {
        static GlobalThreads& threads = *new GlobalThreads();
        return threads;
    }

    void async(std::size_t quality, Task task) {
        {
            Lock lock(mutex);
            waiting[quality].push_back(std::move(task));
            ++waitingCount;
        }
        GError* error = nullptr;
        if (!g_thread_pool_push(pool, this, &error)) {
            // The token is queued all the same: any thread there is will come to it.
            if (g_thread_pool_get_num_threads(pool) == 0) {
                std::fprintf(stderr, "zem: no thread can be made: %s\n", error->message);
                std::abort();
            }
            g_error_free(error);
        }
    }

    bool areWanted() {
        Lock lock(mutex);
        return waitingCount != 0;
    }

  private:
    GlobalThreads()
        : pool(g_thread_pool_new(runNext, this, maximumThreads, FALSE, nullptr)) {}

    static void runNext(gpointer, gpointer self) noexcept {
        Task task = static_cast<GlobalThreads*>(self)->takeBest();
        Mutex::assertNoneHeld("a task of the global queue is run");
        task();
    }

    Task takeBest() {
        Lock lock(mutex);
        auto best = waiting.rbegin();
        while (best->empty()) {
            ++best;
        }
        Task task = std::move(best->front());
        best->pop_front();
        --waitingCount;
        return task;
    }

    Mutex mutex;
    std::array<std::deque<Task>, qualities> waiting;
    std::size_t waitingCount = 0;
    GThreadPool* pool;
};

class GlobalQueue final : public Queue {
  public:
    explicit GlobalQueue(std::size_t quality)
        : quality(quality) {}

    void async(Task task) override { GlobalThreads::shared().async(quality, std::move(task)); }

  private:
    std::size_t quality;
};

} // namespace

bool globalThreadsAreWanted() {
    return GlobalThreads::shared().areWanted();
}

Queue& globalQueue(QualityOfService qualityOfService) {
    static auto& queues = *new std::array<GlobalQueue, qualities>{
        GlobalQueue(0), GlobalQueue(1), GlobalQueue(2), GlobalQueue(3), GlobalQueue(4)};
    static_assert(static_cast<std::size_t>(QualityOfService::userInteractive) + 1 == qualities);
    return queues[static_cast<std::size_t>(qualityOfService)];
}

} // namespace zem::platform
