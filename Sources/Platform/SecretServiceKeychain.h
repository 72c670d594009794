#pragma once

// The keychain of a Linux desktop: the Secret Service, over libsecret.

#include <zem/Platform/Keychain.h>

#include <chrono>
#include <memory>

namespace zem::platform {

/// A keychain on the session bus's Secret Service, in its default collection. Each call is bounded
/// by `limit` as a whole, whatever the service does: one that hangs gives errSecNotAvailable. A
/// locked collection is not unlocked by prompting: it gives errSecInteractionNotAllowed, for adding
/// too, so that no second item ever comes to stand under an account that a locked collection may
/// hold.
std::unique_ptr<Keychain>
makeSecretServiceKeychain(std::chrono::milliseconds limit = std::chrono::seconds(5));

/// Whether a Secret Service answers on the session bus within `limit`, and when not, why.
struct SecretServiceAvailability {
    bool available = false;
    std::string reason;
};
SecretServiceAvailability
secretServiceAvailability(std::chrono::milliseconds limit = std::chrono::seconds(5));

} // namespace zem::platform
