#pragma once

// A queue whose tasks are run by hand, on the thread that asks for it.

#include <zem/Platform/Queue.h>

#include <deque>
#include <mutex>
#include <utility>

namespace test {

class ManualQueue final : public zem::platform::Queue {
  public:
    void async(zem::platform::Task task) override {
        std::scoped_lock lock(mutex);
        tasks.push_back(std::move(task));
    }

    /// Runs the first task; false when there is none.
    bool runNext() {
        zem::platform::Task task;
        {
            std::scoped_lock lock(mutex);
            if (tasks.empty()) {
                return false;
            }
            task = std::move(tasks.front());
            tasks.pop_front();
        }
        task();
        return true;
    }

    /// Runs tasks, those enqueued meanwhile too, until none is left; returns how many ran.
    int runAll() {
        int count = 0;
        while (runNext()) {
            ++count;
        }
        return count;
    }

    std::size_t waiting() const {
        std::scoped_lock lock(mutex);
        return tasks.size();
    }

  private:
    mutable std::mutex mutex;
    std::deque<zem::platform::Task> tasks;
};

} // namespace test
