#pragma once

// The content of a URL as bytes: the binary store's way to the network.

#include <zem/Platform/Bytes.h>
#include <zem/Platform/URL.h>

#include <expected>
#include <functional>
#include <string>

namespace zem {

struct FetchedContent {
    platform::Bytes bytes;
    std::string mimeType; ///< as the server gave it, without parameters; empty when it gave none

    bool operator==(const FetchedContent&) const = default;
};

/// Fetches bytes. Called from any thread, several at once, with no lock held.
class Fetcher {
  public:
    using Completion = std::function<void(std::expected<FetchedContent, std::string>)>;

    virtual ~Fetcher() = default;

    /// Starts fetching the content of `url` and returns. Calls `completion` once, on any thread,
    /// with the content of a successful response, or with a text that says what went wrong.
    virtual void fetch(const platform::URL& url, Completion completion) = 0;
};

} // namespace zem
