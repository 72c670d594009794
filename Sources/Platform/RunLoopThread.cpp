#include <zem/Platform/Mutex.h>
#include <zem/Platform/RunLoop.h>

#include <condition_variable>
#include <system_error>
#include <utility>

namespace zem::platform {

namespace {

constexpr std::size_t stackSize = std::size_t{8} * 1024 * 1024;

} // namespace

struct RunLoopThread::State {
    explicit State(std::string name)
        : name(std::move(name)) {}

    const std::string name;
    Mutex mutex;
    std::condition_variable_any changed;
    std::shared_ptr<RunLoop> loop;
    bool ended = false; // touched on the thread only

    static void* body(void* argument) noexcept;
};

void* RunLoopThread::State::body(void* argument) noexcept {
    const std::unique_ptr<std::shared_ptr<State>> state(
        static_cast<std::shared_ptr<State>*>(argument));
    // The system keeps 15 characters of a name.
    pthread_setname_np(pthread_self(), (*state)->name.substr(0, 15).c_str());
    const std::shared_ptr<RunLoop> loop = RunLoop::current();
    {
        Lock lock((*state)->mutex);
        (*state)->loop = loop;
        (*state)->changed.notify_one();
    }
    // Not `run`: a stop that was meant for a nested run must not end the thread, nor be missed by
    // it.
    while (!loop->runUntil([&] { return (*state)->ended; }, std::chrono::hours(1))) {
    }
    return nullptr;
}

RunLoopThread::RunLoopThread(std::string name)
    : state(std::make_shared<State>(std::move(name))) {
    auto argument = std::make_unique<std::shared_ptr<State>>(state);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackSize);
    const int error = pthread_create(&thread, &attributes, State::body, argument.get());
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "a run loop's thread");
    }
    // The thread deletes it.
    static_cast<void>(argument.release());
    UniqueLock lock(state->mutex);
    state->changed.wait(lock, [this] { return state->loop != nullptr; });
    loop = state->loop;
}

RunLoopThread::~RunLoopThread() {
    loop->perform([ending = state, weakLoop = std::weak_ptr(loop)] {
        ending->ended = true;
        // For a task that runs the loop itself.
        weakLoop.lock()->stop();
    });
    if (loop->isCurrent()) {
        pthread_detach(thread);
    } else {
        pthread_join(thread, nullptr);
    }
}

} // namespace zem::platform
