#pragma once

// What a test's coroutine returns: it starts at once, and nobody waits for it.

#include <coroutine>
#include <exception>

namespace test {

struct Detached {
    struct promise_type {
        Detached get_return_object() { return {}; }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_never final_suspend() noexcept { return {}; }
        void return_void() {}
        void unhandled_exception() { std::terminate(); }
    };
};

} // namespace test
