#pragma once

// Completes the word at the cursor.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zem::host {

struct Completion {
    /// The length of the word before the cursor, in bytes.
    std::size_t length = 0;
    /// All words that begin with it and may stand here, in order.
    std::vector<std::string> words;
};

/// `line` is the text before the cursor.
Completion complete(std::string_view line,
                    const std::function<std::vector<std::string>()>& subscriptionNames);

/// The longest common beginning.
std::string commonBeginning(const std::vector<std::string>& words);

} // namespace zem::host
