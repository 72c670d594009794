#pragma once

// What the word that is being typed may become.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zem::host {

struct Completion {
    /// How many bytes before the cursor the word takes.
    std::size_t length = 0;
    /// Every word that begins like it and may stand here, in order.
    std::vector<std::string> words;
};

/// `line` is what stands before the cursor.
Completion complete(std::string_view line,
                    const std::function<std::vector<std::string>()>& subscriptionNames);

/// What all of them begin with.
std::string commonBeginning(const std::vector<std::string>& words);

} // namespace zem::host
