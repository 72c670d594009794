#pragma once

// A callback of the application that is called at most once, whoever may want to.

#include <zem/Core/Private/CallOut.h>

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

namespace zem {

/// The first call counts, on whichever thread it comes; later ones do nothing. Copies share it. It
/// is let go of with what it captured when it has been called: whoever holds a copy may do so for
/// long.
template <class... Arguments>
class Once {
  public:
    using Callback = std::function<void(Arguments...)>;

    /// `what` names who is called, for the log.
    Once(const char* what, Callback callback)
        : state(std::make_shared<State>(what, std::move(callback))) {}

    void operator()(Arguments... arguments) const {
        if (!state->wasCalled.exchange(true)) {
            const Callback called = std::move(state->callback);
            callOut(state->what, called, std::move(arguments)...);
        }
    }

  private:
    struct State {
        State(const char* what, Callback callback)
            : what(what)
            , callback(std::move(callback)) {}
        const char* const what;
        Callback callback;
        std::atomic<bool> wasCalled = false;
    };
    std::shared_ptr<State> state;
};

} // namespace zem
