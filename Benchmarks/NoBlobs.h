#pragma once

// A binary store without blobs, for plugins that want one.

#include <zem/Core/BinaryStore.h>

#include <expected>
#include <functional>
#include <optional>
#include <string>

namespace bench {

class NoBlobs final : public zem::BinaryStore {
  public:
    std::string store(const zem::platform::Bytes&, const std::string&, std::uint64_t) override {
        return {};
    }
    void cache(const zem::platform::URL&, std::int64_t,
               std::function<void(std::expected<std::string, std::string>)>) override {}
    void setCanonicalUrl(const std::string&, const std::string&, std::int64_t) override {}
    std::optional<zem::platform::Bytes> cachedData(const std::string&) override {
        return std::nullopt;
    }
    bool remove(const std::string&) override { return false; }
};

} // namespace bench
