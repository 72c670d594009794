#pragma once

// The return type of a test's coroutine. It starts at once, and its end is not awaited.

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
