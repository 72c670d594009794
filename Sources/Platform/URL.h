#pragma once

// URLs, as far as the services need them: parsing and the file scheme.

#include <expected>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace zem::platform {

/// A parsed absolute URL.
class URL {
  public:
    /// The text as a URL, or why it is none.
    static std::expected<URL, std::string> parse(std::string_view text);

    /// The file URL of a path, made absolute against the working folder and standardised (no "." or
    /// ".." or doubled separators); percent-encoded where a path holds what a URL may not.
    static URL file(const std::filesystem::path& path);

    const std::string& absoluteString() const { return text; }
    const std::string& scheme() const { return schemeText; }
    /// Empty when there is none.
    const std::string& host() const { return hostText; }
    /// Percent-decoded.
    const std::string& path() const { return pathText; }
    bool isFile() const { return schemeText == "file"; }

    bool operator==(const URL& other) const { return text == other.text; }

  private:
    URL() = default;
    std::string text;
    std::string schemeText;
    std::string hostText;
    std::string pathText;
};

} // namespace zem::platform
