#pragma once

// Operations for the tests of operation queues.

#include <zem/Platform/Mutex.h>
#include <zem/Platform/Operation.h>

#include <Support/Wait.h>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace test {

/// An asynchronous operation that keeps its own state and reports the changes itself, as the calls
/// into the runtime do: withdrawn while it waits, it finishes in its turn without its work.
class Call final : public zem::platform::Operation {
  public:
    enum class State { ready, executing, finished };

    static std::shared_ptr<Call>
    create(Transcript& transcript, std::string name,
           zem::platform::QueuePriority priority = zem::platform::QueuePriority::normal) {
        auto call = std::make_shared<Call>(transcript, std::move(name));
        call->setQueuePriority(priority);
        return call;
    }

    Call(Transcript& transcript, std::string name)
        : transcript(transcript)
        , name(std::move(name)) {}

    bool isAsynchronous() const override { return true; }
    bool isExecuting() const override { return state() == State::executing; }
    bool isFinished() const override { return state() == State::finished; }
    bool isCancelled() const override { return shouldNotStart && !isExecuting(); }

    void start() override {
        if (isCancelled()) {
            transcript.add(name + " withdrawn");
            setState(State::finished);
            return;
        }
        setState(State::executing);
        transcript.add(name + " started");
        if (work) {
            work();
        }
    }

    State state() const {
        zem::platform::Lock lock(stateLock);
        return stateStore;
    }

    void setState(State next) {
        const std::string_view old = key(state());
        willChangeValue(old);
        willChangeValue(key(next));
        {
            zem::platform::Lock lock(stateLock);
            stateStore = next;
        }
        didChangeValue(key(next));
        didChangeValue(old);
    }

    void finish() { setState(State::finished); }

    std::atomic<bool> shouldNotStart = false;
    std::function<void()> work;

  private:
    static std::string_view key(State state) {
        return state == State::ready       ? "isReady"
               : state == State::executing ? "isExecuting"
                                           : "isFinished";
    }

    Transcript& transcript;
    const std::string name;
    mutable zem::platform::Mutex stateLock;
    State stateStore = State::ready;
};

} // namespace test
