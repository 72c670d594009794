#pragma once

// Things that can be asked to end, and a value that asks when it goes out of scope.

#include <zem/Platform/Mutex.h>
#include <zem/Platform/Task.h>

#include <memory>

namespace zem::platform {

class Cancellable {
  public:
    virtual ~Cancellable() = default;

    /// Asks for an end. Any thread, from inside what it cancels too; does not wait. Whoever
    /// implements it bears being cancelled more than once, and after the end.
    virtual void cancel() = 0;
};

/// Cancels when it is destroyed, or when another is assigned to it. The task runs once, on the
/// thread that cancels, and what it captured goes with it. Two threads may cancel at once; moving
/// and destroying are for one thread alone, as with any value.
class AnyCancellable final : public Cancellable {
  public:
    /// Cancels nothing.
    AnyCancellable() = default;
    explicit AnyCancellable(Task cancelling);
    AnyCancellable(AnyCancellable&&) noexcept = default;
    AnyCancellable& operator=(AnyCancellable&& other) noexcept;
    ~AnyCancellable() override;

    /// The first time only; the task may destroy this.
    void cancel() noexcept override;

  private:
    struct State {
        Mutex mutex;
        Task cancelling;
    };
    std::unique_ptr<State> state;
};

} // namespace zem::platform
