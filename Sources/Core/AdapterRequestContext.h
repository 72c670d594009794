#pragma once

// The context that a call into an adapter may carry: how to use its cache, how urgent it is, and
// which trace it belongs to. This layer only carries the policies; what they mean is the adapters'
// business.

#include <zem/Tessel/Coding.h>

#include <boost/describe.hpp>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace zem {

/// How an adapter combines its cache and the network.
class CachePolicy {
  public:
    struct CacheAndNetwork {
        std::optional<std::int64_t> staleDurationSeconds;
        bool operator==(const CacheAndNetwork&) const = default;
    };
    struct CacheThenNetwork {
        bool operator==(const CacheThenNetwork&) const = default;
    };
    struct NoCache {
        bool operator==(const NoCache&) const = default;
    };
    struct OnlyIfCached {
        bool operator==(const OnlyIfCached&) const = default;
    };
    struct StaleWhileRevalidate {
        std::int64_t staleDurationSeconds = 0;
        bool operator==(const StaleWhileRevalidate&) const = default;
    };
    struct ValidAt {
        std::int64_t timestamp = 0;
        std::shared_ptr<const CachePolicy> basePolicy; ///< may be absent
        bool operator==(const ValidAt& other) const;
    };

    static CachePolicy cacheAndNetwork(std::optional<std::int64_t> staleDurationSeconds = {}) {
        return {CacheAndNetwork{staleDurationSeconds}};
    }
    static CachePolicy cacheThenNetwork() { return {CacheThenNetwork{}}; }
    static CachePolicy noCache() { return {NoCache{}}; }
    static CachePolicy onlyIfCached() { return {OnlyIfCached{}}; }
    static CachePolicy staleWhileRevalidate(std::int64_t staleDurationSeconds) {
        return {StaleWhileRevalidate{staleDurationSeconds}};
    }
    static CachePolicy validAt(std::int64_t timestamp, std::optional<CachePolicy> basePolicy = {});

    bool operator==(const CachePolicy&) const = default;

    std::variant<CacheAndNetwork, CacheThenNetwork, NoCache, OnlyIfCached, StaleWhileRevalidate,
                 ValidAt>
        value;
};

inline bool CachePolicy::ValidAt::operator==(const ValidAt& other) const {
    if (timestamp != other.timestamp || (basePolicy == nullptr) != (other.basePolicy == nullptr)) {
        return false;
    }
    return basePolicy == nullptr || *basePolicy == *other.basePolicy;
}

inline CachePolicy CachePolicy::validAt(std::int64_t timestamp,
                                        std::optional<CachePolicy> basePolicy) {
    return {ValidAt{timestamp,
                    basePolicy ? std::make_shared<const CachePolicy>(*basePolicy) : nullptr}};
}

/// How urgently a call is scheduled; `normal` when nothing is said.
enum class AdapterRequestPriority { high, normal, background };

inline constexpr std::array<std::pair<AdapterRequestPriority, std::string_view>, 3>
    adapterRequestPriorityTexts{{
        {AdapterRequestPriority::high, "high"},
        {AdapterRequestPriority::normal, "normal"},
        {AdapterRequestPriority::background, "background"},
    }};

/// The trace that the caller's activity belongs to.
struct ObservabilityContext {
    std::optional<std::string> rootId;
    std::optional<bool> isRootActivitySampled;
    std::optional<std::string> traceId;

    bool operator==(const ObservabilityContext&) const = default;
};
BOOST_DESCRIBE_STRUCT(ObservabilityContext, (), (rootId, isRootActivitySampled, traceId))

struct AdapterRequestContext {
    std::optional<CachePolicy> cachePolicy;
    std::optional<AdapterRequestPriority> priority;
    std::optional<ObservabilityContext> observabilityContext;

    bool operator==(const AdapterRequestContext&) const = default;
};
BOOST_DESCRIBE_STRUCT(AdapterRequestContext, (), (cachePolicy, priority, observabilityContext))

/// The priority that a call with this context is scheduled at.
inline AdapterRequestPriority priorityOf(const std::optional<AdapterRequestContext>& context) {
    return context && context->priority ? *context->priority : AdapterRequestPriority::normal;
}

} // namespace zem

namespace tessel {

template <>
struct RawTexts<zem::AdapterRequestPriority> {
    static constexpr auto& table = zem::adapterRequestPriorityTexts;
};

/// One flat object: the payload's keys first, "type" last. Reading is stricter than writing on
/// purpose: a cache-and-network policy without a duration (written as null) and a valid-at policy
/// without a base policy (written without the key) do not read back.
template <>
struct Coding<zem::CachePolicy> {
    static constexpr std::string_view expected = "an object";

    template <class D>
    static Decoded<zem::CachePolicy> decode(const D& value) {
        if (const Kind kind = value.kind(); kind != Kind::object) {
            return std::unexpected(DecodingError::mismatch(expected, kind));
        }
        const Decoded<std::string> type = decodeField<std::string>(value, names().type);
        if (!type) {
            return std::unexpected(type.error());
        }
        if (*type == "cache-and-network") {
            return withDuration(value, [](std::int64_t seconds) {
                return zem::CachePolicy::cacheAndNetwork(seconds);
            });
        }
        if (*type == "cache-then-network") {
            return zem::CachePolicy::cacheThenNetwork();
        }
        if (*type == "no-cache") {
            return zem::CachePolicy::noCache();
        }
        if (*type == "only-if-cached") {
            return zem::CachePolicy::onlyIfCached();
        }
        if (*type == "stale-while-revalidate") {
            return withDuration(value, zem::CachePolicy::staleWhileRevalidate);
        }
        if (*type == "valid-at") {
            const Decoded<std::int64_t> timestamp =
                decodeField<std::int64_t>(value, names().timestamp);
            if (!timestamp) {
                return std::unexpected(timestamp.error());
            }
            Decoded<zem::CachePolicy> base =
                decodeField<zem::CachePolicy>(value, names().basePolicy);
            if (!base) {
                return base;
            }
            return zem::CachePolicy::validAt(*timestamp, std::move(*base));
        }
        return std::unexpected(DecodingError{{}, "Unabled to decode enum."});
    }

    template <class E>
    static typename E::Output encode(E& encoder, const zem::CachePolicy& policy) {
        auto object = encoder.object();
        const auto finish = [&](std::string_view type) {
            object.set(names().type, encoder.text(type));
            return object.finish();
        };
        using Policy = zem::CachePolicy;
        if (const auto* cacheAndNetwork = std::get_if<Policy::CacheAndNetwork>(&policy.value)) {
            object.set(names().staleDurationSeconds,
                       tessel::encode(encoder, cacheAndNetwork->staleDurationSeconds));
            return finish("cache-and-network");
        }
        if (const auto* stale = std::get_if<Policy::StaleWhileRevalidate>(&policy.value)) {
            object.set(names().staleDurationSeconds,
                       tessel::encode(encoder, stale->staleDurationSeconds));
            return finish("stale-while-revalidate");
        }
        if (const auto* validAt = std::get_if<Policy::ValidAt>(&policy.value)) {
            object.set(names().timestamp, tessel::encode(encoder, validAt->timestamp));
            if (validAt->basePolicy != nullptr) {
                object.set(names().basePolicy, tessel::encode(encoder, *validAt->basePolicy));
            }
            return finish("valid-at");
        }
        if (std::holds_alternative<Policy::CacheThenNetwork>(policy.value)) {
            return finish("cache-then-network");
        }
        return finish(std::holds_alternative<Policy::NoCache>(policy.value) ? "no-cache"
                                                                            : "only-if-cached");
    }

  private:
    struct Names {
        FieldName type{"type"};
        FieldName staleDurationSeconds{"staleDurationSeconds"};
        FieldName timestamp{"timestamp"};
        FieldName basePolicy{"basePolicy"};
    };
    static const Names& names() {
        static const Names made;
        return made;
    }

    template <class D, class Make>
    static Decoded<zem::CachePolicy> withDuration(const D& value, Make make) {
        const Decoded<std::int64_t> seconds =
            decodeField<std::int64_t>(value, names().staleDurationSeconds);
        if (!seconds) {
            return std::unexpected(seconds.error());
        }
        return make(*seconds);
    }
};

} // namespace tessel
