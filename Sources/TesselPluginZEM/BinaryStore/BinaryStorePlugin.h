#pragma once

// The runtime's way to the application's binary store.

#include <zem/Core/BinaryStore.h>
#include <zem/Platform/Bytes.h>
#include <zem/Tessel/Callback.h>
#include <zem/Tessel/Plugin.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace zem {

/// Offers, each with a function for success and one for a message at its end:
/// `storeBinary(data, type, size)`, success with the handle; `cacheBinary(url, ttlSeconds)`,
/// success with the handle or URI of the copy; `removeBinary(uri)`, success with whether there was
/// one; `setCanonicalUrl(uri, canonicalUrl, ttlSeconds)`, success with the canonical URL.
///
/// Only `cacheBinary` calls its message function, and only it may call back after it has returned;
/// it does so also when the plugin is gone. Thread-safe.
class BinaryStorePlugin final : public tessel::Plugin,
                                public std::enable_shared_from_this<BinaryStorePlugin> {
  public:
    /// It may not be null.
    static std::shared_ptr<BinaryStorePlugin> create(std::shared_ptr<BinaryStore> binaryStore);

    std::string_view namespace_() const override { return "ZemBinaryStorePlugin"; }
    void bind(tessel::Connection& to) override;

  private:
    using OnText = tessel::Callback<std::string>;

    explicit BinaryStorePlugin(std::shared_ptr<BinaryStore> binaryStore);

    void storeBinary(const platform::Bytes& data, const std::string& type, std::uint64_t size,
                     const OnText& onSuccess, const OnText& onError);
    void cacheBinary(const std::string& url, std::int64_t ttlSeconds, const OnText& onSuccess,
                     const OnText& onError);
    void removeBinary(const std::string& uri, const tessel::Callback<bool>& onSuccess,
                      const OnText& onError);
    void setCanonicalUrl(const std::string& uri, const std::string& canonicalUrl,
                         std::int64_t ttlSeconds, const OnText& onSuccess, const OnText& onError);

    const std::shared_ptr<BinaryStore> binaryStore;
};

} // namespace zem
