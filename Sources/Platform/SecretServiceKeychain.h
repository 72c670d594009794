#pragma once

// The keychain of a Linux desktop: the Secret Service, over libsecret.

#include <zem/Platform/Keychain.h>

#include <chrono>
#include <memory>
#include <string>

namespace zem::platform {

/// How long a call may take when nothing else is said.
inline constexpr std::chrono::seconds secretServiceLimit{5};

/// A keychain on the session bus's Secret Service, in its default collection. The account becomes
/// the item's attribute "account"; the accessibility and data-protection attributes have no
/// counterpart there and are ignored.
///
/// Each call is bounded by `limit` as a whole, whatever the bus and the service do: one that hangs
/// gives errSecNotAvailable, and so does, at once, every call in the `limit` that follows, so that
/// a start that needs several items waits once.
///
/// No call ever prompts. A locked collection gives errSecInteractionNotAllowed, for adding too, so
/// that no second item ever comes to stand under an account that a locked collection may hold.
/// Access denied gives errSecAuthFailed; no bus, no service, no default collection and every other
/// failure errSecNotAvailable; attributes that make no sense errSecParam.
///
/// The service itself cannot add an item only if there is none: adding takes turns, across all
/// processes of the session bus, by owning the bus name "com.quorvane.ZEM.KeychainAdd".
std::unique_ptr<Keychain>
makeSecretServiceKeychain(std::chrono::milliseconds limit = secretServiceLimit);

/// Whether items can be read and kept now: a Secret Service answers on the session bus within
/// `limit`, and has a default collection, which is unlocked. When not, `reason` says why.
struct SecretServiceAvailability {
    bool available = false;
    std::string reason;
};
SecretServiceAvailability
secretServiceAvailability(std::chrono::milliseconds limit = secretServiceLimit);

} // namespace zem::platform
