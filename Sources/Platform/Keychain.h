#pragma once

// A keychain of generic-password items: bytes kept under an account name by the operating system.
// Queries are ordered attribute lists, as the platform's security framework takes them.

#include <zem/Platform/Bytes.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zem::platform {

inline constexpr std::string_view kSecClass = "class";
inline constexpr std::string_view kSecClassGenericPassword = "genp";
inline constexpr std::string_view kSecAttrAccount = "acct";
inline constexpr std::string_view kSecAttrAccessible = "pdmn";
inline constexpr std::string_view kSecAttrAccessibleWhenUnlocked = "ak";
inline constexpr std::string_view kSecUseDataProtectionKeychain = "nleg";
inline constexpr std::string_view kSecReturnData = "r_Data";
inline constexpr std::string_view kSecValueData = "v_Data";

using KeychainValue = std::variant<bool, std::string, SecretBytes>;

struct KeychainAttribute {
    std::string_view key;
    KeychainValue value;
    bool operator==(const KeychainAttribute&) const = default;
};

/// In the order they were given; the order means nothing to a keychain.
using KeychainAttributes = std::vector<KeychainAttribute>;

using KeychainStatus = std::int32_t;
inline constexpr KeychainStatus errSecSuccess = 0;
inline constexpr KeychainStatus errSecParam = -50;
inline constexpr KeychainStatus errSecNotAvailable = -25291;
inline constexpr KeychainStatus errSecAuthFailed = -25293;
inline constexpr KeychainStatus errSecDuplicateItem = -25299;
inline constexpr KeychainStatus errSecItemNotFound = -25300;
inline constexpr KeychainStatus errSecInteractionNotAllowed = -25308;

/// Every call may block for as long as the system takes, but never longer than a bound that the
/// implementation states. Any thread. Nothing is thrown.
class Keychain {
  public:
    virtual ~Keychain() = default;

    struct Match {
        KeychainStatus status = errSecItemNotFound;
        SecretBytes data;
    };

    /// The bytes of the item that matches, when `kSecReturnData` is true.
    virtual Match copyMatching(const KeychainAttributes& query) = 0;
    /// Adds an item; errSecDuplicateItem when one of its class and account is there.
    virtual KeychainStatus add(const KeychainAttributes& attributes) = 0;
    /// Deletes what matches; errSecItemNotFound when nothing does.
    virtual KeychainStatus remove(const KeychainAttributes& query) = 0;
};

} // namespace zem::platform
