#pragma once

// What the line of a command may be made of, for those who complete what is being typed.

#include <span>
#include <string_view>

namespace zem::host {

/// A command's name, options, and the words that may follow it.
struct CommandShape {
    std::string_view name;
    std::span<const std::string_view> options;
    std::span<const std::string_view> arguments;
    /// The name of a subscription may follow it.
    bool takesName = false;
    /// Its first argument is a command of its own.
    std::span<const CommandShape> commands = {};
};

} // namespace zem::host
