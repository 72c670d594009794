#pragma once

// The words of a line, by the names of its command's arguments and options.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zem::host {

class CommandWords {
  public:
    void add(std::string_view name, std::string word) {
        words[std::string(name)].push_back(std::move(word));
    }

    /// The word of a required argument. Throws std::bad_optional_access if the row has none of that
    /// name.
    std::string operator[](std::string_view name) const { return find(name).value(); }

    /// The word of an optional argument or an option.
    std::optional<std::string> find(std::string_view name) const {
        const auto found = words.find(name);
        return found == words.end() ? std::nullopt : std::optional(found->second.front());
    }

    /// All words of a repeatable option or a list; empty if there are none.
    std::vector<std::string> all(std::string_view name) const {
        const auto found = words.find(name);
        return found == words.end() ? std::vector<std::string>() : found->second;
    }

  private:
    std::map<std::string, std::vector<std::string>, std::less<>> words;
};

} // namespace zem::host
