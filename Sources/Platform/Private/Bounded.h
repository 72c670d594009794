#pragma once

// Calls into libraries that block for as long as they please.

#include <zem/Platform/Mutex.h>

#include <gio/gio.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>

namespace zem::platform {

/// Owns one reference to a GObject.
struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using Object = std::unique_ptr<T, Unref>;

/// Returns the result of `work(GCancellable*)`, absent if it takes longer than `limit`. It runs on
/// a thread of its own: not every wait inside GLib heeds a cancellable, so that work that is late
/// is cancelled and left behind, to end on its own. It must therefore own everything it uses.
template <class Work>
auto bounded(std::chrono::milliseconds limit, Work work)
    -> std::optional<std::invoke_result_t<Work&, GCancellable*>> {
    using Result = std::invoke_result_t<Work&, GCancellable*>;
    struct Call {
        explicit Call(Work work)
            : work(std::move(work)) {}
        Work work;
        Object<GCancellable> cancellable{g_cancellable_new()};
        Mutex mutex;
        std::condition_variable_any finished;
        std::optional<Result> result;
    };
    const auto call = std::make_shared<Call>(std::move(work));
    std::thread thread;
    try {
        thread = std::thread([call] {
            Result result = call->work(call->cancellable.get());
            const Lock lock(call->mutex);
            call->result = std::move(result);
            call->finished.notify_all();
        });
    } catch (const std::system_error&) { // no thread to be had: as unavailable as a hang
        return std::nullopt;
    }
    UniqueLock lock(call->mutex);
    if (call->finished.wait_for(lock, limit, [&] { return call->result.has_value(); })) {
        lock.unlock();
        thread.join();
        return std::move(call->result);
    }
    lock.unlock();
    g_cancellable_cancel(call->cancellable.get());
    thread.detach();
    return std::nullopt;
}

} // namespace zem::platform
