#pragma once

// Splits a line of text into words, as a shell does.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zem::host {

struct Word {
    std::string text;
    /// Its offsets in the line, quotes included.
    std::size_t begin = 0;
    std::size_t end = 0;
    /// The whole word is one piece in quotes.
    bool isQuoted = false;
    /// Its last quote is closed.
    bool isComplete = true;
};

/// White space separates words. Between single quotes every character stands for itself; between
/// double quotes `\"` and `\\` stand for `"` and `\`; outside of quotes a backslash makes the next
/// character stand for itself. A quote that is not closed goes to the end of the line.
std::vector<Word> splitWords(std::string_view line);

} // namespace zem::host
