#include <zem/Platform/URL.h>
#include <zem/Tessel/Connection.h>
#include <zem/TesselPluginZEM/BinaryStore/BinaryStorePlugin.h>

#include <expected>
#include <stdexcept>
#include <utility>

namespace zem {

std::shared_ptr<BinaryStorePlugin>
BinaryStorePlugin::create(std::shared_ptr<BinaryStore> binaryStore) {
    if (binaryStore == nullptr) {
        throw std::invalid_argument("BinaryStorePlugin: expected a binary store, found none");
    }
    return std::shared_ptr<BinaryStorePlugin>(new BinaryStorePlugin(std::move(binaryStore)));
}

BinaryStorePlugin::BinaryStorePlugin(std::shared_ptr<BinaryStore> binaryStore)
    : binaryStore(std::move(binaryStore)) {}

void BinaryStorePlugin::bind(tessel::Connection& to) {
    to.bind<"storeBinary", &BinaryStorePlugin::storeBinary>(*this);
    to.bind<"cacheBinary", &BinaryStorePlugin::cacheBinary>(*this);
    to.bind<"removeBinary", &BinaryStorePlugin::removeBinary>(*this);
    to.bind<"setCanonicalUrl", &BinaryStorePlugin::setCanonicalUrl>(*this);
}

void BinaryStorePlugin::storeBinary(const platform::Bytes& data, const std::string& type,
                                    std::uint64_t size, const OnText& onSuccess, const OnText&) {
    onSuccess.callNow(binaryStore->store(data, type, size));
}

void BinaryStorePlugin::cacheBinary(const std::string& url, std::int64_t ttlSeconds,
                                    const OnText& onSuccess, const OnText& onError) {
    const auto parsed = platform::URL::parse(url);
    if (!parsed) {
        onError.callNow("Invalid URL");
        return;
    }
    binaryStore->cache(*parsed, ttlSeconds,
                       [onSuccess, onError](const std::expected<std::string, std::string>& copy) {
                           if (copy) {
                               onSuccess(*copy);
                           } else {
                               onError(copy.error());
                           }
                       });
}

void BinaryStorePlugin::removeBinary(const std::string& uri,
                                     const tessel::Callback<bool>& onSuccess, const OnText&) {
    onSuccess.callNow(binaryStore->remove(uri));
}

void BinaryStorePlugin::setCanonicalUrl(const std::string& uri, const std::string& canonicalUrl,
                                        std::int64_t ttlSeconds, const OnText& onSuccess,
                                        const OnText&) {
    binaryStore->setCanonicalUrl(uri, canonicalUrl, ttlSeconds);
    onSuccess.callNow(canonicalUrl);
}

} // namespace zem
