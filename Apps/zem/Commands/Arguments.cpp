#include "Arguments.h"

#include "CommandFailure.h"

#include <fmt/format.h>

namespace zem::host {

Metadata parsePairs(std::span<const std::string> words, std::string_view place) {
    Metadata metadata;
    for (const std::string& word : words) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos) {
            throw CommandFailure(fmt::format("{} {}: expected KEY=VALUE", place, word));
        }
        metadata[word.substr(0, equals)] = word.substr(equals + 1);
    }
    return metadata;
}

} // namespace zem::host
