#pragma once

// The application's store of file contents, as far as ZEM needs it.

#include <zem/Platform/Bytes.h>
#include <zem/Platform/URL.h>

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <string>

namespace zem {

/// A store of blobs, addressed by handles or URIs of its own making. Implemented by the
/// application; called from any thread, several at once, with no lock held.
class BinaryStore {
  public:
    virtual ~BinaryStore() = default;

    /// Keeps the bytes and returns the handle under which they are kept. Not expected to fail; if
    /// it throws, the upload fails with the text of the exception.
    virtual std::string store(const platform::Bytes& data, const std::string& type,
                              std::uint64_t size) = 0;

    /// Fetches and keeps the content of `url`. Calls `completion` once, on any thread, with the
    /// handle or URI of the copy, or with a text that says what went wrong.
    virtual void cache(const platform::URL& url, std::int64_t ttlSeconds,
                       std::function<void(std::expected<std::string, std::string>)> completion) = 0;

    /// Records that the blob at `uri` is known by `canonicalUrl`, too.
    virtual void setCanonicalUrl(const std::string& uri, const std::string& canonicalUrl,
                                 std::int64_t ttlSeconds) = 0;

    /// The bytes kept under a handle; absent when there are none.
    virtual std::optional<platform::Bytes> cachedData(const std::string& handle) = 0;

    /// True when there was something to remove.
    virtual bool remove(const std::string& uri) = 0;
};

} // namespace zem
