#pragma once

// A store of blobs in memory, as an application would have one.

#include <zem/Core/BinaryStore.h>

#include <Support/Wait.h>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace test {

class BinaryStore final : public zem::BinaryStore {
  public:
    using Completion = std::function<void(std::expected<std::string, std::string>)>;

    /// Called, where there is one, before bytes are kept or removed.
    std::function<void()> failing;
    /// Answers a fetch; by default with an error.
    std::function<void(Completion)> fetch = [](const Completion& completion) {
        completion(std::unexpected("nothing is fetched here"));
    };

    std::string store(const zem::platform::Bytes& data, const std::string& type,
                      std::uint64_t size) override {
        fail();
        const std::scoped_lock lock(mutex);
        transcript.add("store " + type + " " + std::to_string(size));
        std::string handle = "blob-" + std::to_string(++counter);
        blobs[handle] = data;
        return handle;
    }

    void cache(const zem::platform::URL& url, std::int64_t ttlSeconds,
               Completion completion) override {
        transcript.add("cache " + url.absoluteString() + " " + std::to_string(ttlSeconds));
        fetch(std::move(completion));
    }

    void setCanonicalUrl(const std::string& uri, const std::string& canonicalUrl,
                         std::int64_t ttlSeconds) override {
        transcript.add("canonical " + uri + " " + canonicalUrl + " " + std::to_string(ttlSeconds));
    }

    std::optional<zem::platform::Bytes> cachedData(const std::string& handle) override {
        const std::scoped_lock lock(mutex);
        const auto found = blobs.find(handle);
        return found == blobs.end() ? std::nullopt : std::optional(found->second);
    }

    bool remove(const std::string& uri) override {
        const std::scoped_lock lock(mutex);
        transcript.add("remove " + uri);
        fail();
        return blobs.erase(uri) == 1;
    }

    Transcript transcript;

  private:
    void fail() const {
        if (failing) {
            failing();
        }
    }

    std::mutex mutex;
    int counter = 0;
    std::map<std::string, zem::platform::Bytes> blobs;
};

} // namespace test
