#pragma once

// How much memory a piece of work needs at its peak.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

inline constexpr double mebibyte = 1024.0 * 1024.0;

/// Runs `body` in a process of its own; its peak resident memory in MiB.
template <class Body>
double peakOf(Body&& body) {
    const pid_t child = fork();
    if (child == 0) {
        try {
            body();
            std::_Exit(0);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
            std::_Exit(1);
        }
    }
    int status = 0;
    rusage usage{};
    while (wait4(child, &status, 0, &usage) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error(std::strerror(errno));
        }
    }
    if (status != 0) {
        throw std::runtime_error("the process that was measured failed");
    }
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

} // namespace bench
