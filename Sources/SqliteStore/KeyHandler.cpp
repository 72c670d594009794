#include <zem/Platform/Random.h>
#include <zem/Platform/SecretServiceKeychain.h>
#include <zem/SqliteStore/KeyHandler.h>
#include <zem/SqliteStore/Private/SQLiteStoreLog.h>
#include <zem/SqliteStore/SQLiteSecretError.h>

#include <fmt/format.h>

#include <utility>

namespace zem {

using platform::KeychainAttributes;
using platform::SecretBytes;

namespace {

constexpr std::size_t keyLength = 32;
constexpr std::size_t saltLength = 16;

} // namespace

KeychainStore::KeychainStore(std::shared_ptr<platform::Keychain> given)
    : keychain(given ? std::move(given) : platform::makeSecretServiceKeychain()) {}

std::optional<SecretBytes> KeychainStore::storedItem(const std::string& label) {
    KeychainAttributes query;
    query.push_back({platform::kSecClass, std::string(platform::kSecClassGenericPassword)});
    query.push_back({platform::kSecAttrAccount, label});
    query.push_back({platform::kSecUseDataProtectionKeychain, true});
    query.push_back({platform::kSecReturnData, true});
    platform::Keychain::Match match = keychain->copyMatching(query);
    if (match.status != platform::errSecSuccess) {
        return std::nullopt;
    }
    return std::move(match.data);
}

bool KeychainStore::store(const SecretBytes& item, const std::string& label) {
    KeychainAttributes attributes;
    attributes.push_back({platform::kSecClass, std::string(platform::kSecClassGenericPassword)});
    attributes.push_back({platform::kSecAttrAccount, label});
    attributes.push_back(
        {platform::kSecAttrAccessible, std::string(platform::kSecAttrAccessibleWhenUnlocked)});
    attributes.push_back({platform::kSecUseDataProtectionKeychain, true});
    attributes.push_back({platform::kSecValueData, item.copy()});
    return keychain->add(attributes) == platform::errSecSuccess;
}

void KeychainStore::removeItem(const std::string& label) {
    KeychainAttributes query;
    query.push_back({platform::kSecClass, std::string(platform::kSecClassGenericPassword)});
    query.push_back({platform::kSecAttrAccount, label});
    query.push_back({platform::kSecUseDataProtectionKeychain, true});
    keychain->remove(query);
}

KeyHandler::KeyHandler(std::string key, std::string salt, const std::shared_ptr<KeyStoring>& given)
    : keyLabel(std::move(key))
    , saltLabel(std::move(salt))
    , keyStore(given ? given : sharedKeyStore()) {}

SecretBytes KeyHandler::key() {
    return storedOrNew(keyLabel, keyLength);
}

SecretBytes KeyHandler::salt() {
    return storedOrNew(saltLabel, saltLength);
}

SecretBytes KeyHandler::keptKey() {
    return storedOrKept(keyLabel, keyLength);
}

SecretBytes KeyHandler::keptSalt() {
    return storedOrKept(saltLabel, saltLength);
}

SecretBytes KeyHandler::storedOrNew(const std::string& label, std::size_t length) {
    if (std::optional<SecretBytes> stored = keyStore->storedItem(label)) {
        return *std::move(stored);
    }
    SecretBytes fresh = platform::randomKey(length);
    if (!keyStore->store(fresh, label)) { // it still serves this session
        sqliteStoreLog().error("the key store did not keep the new secret %{public}s: what is "
                               "written under it cannot be read after this session",
                               {label});
    }
    return fresh;
}

SecretBytes KeyHandler::storedOrKept(const std::string& label, std::size_t length) {
    if (std::optional<SecretBytes> stored = keyStore->storedItem(label)) {
        return *std::move(stored);
    }
    keyStore->store(platform::randomKey(length), label);
    // Another process may have been faster: its secret is the one that counts.
    if (std::optional<SecretBytes> stored = keyStore->storedItem(label)) {
        return *std::move(stored);
    }
    throw SQLiteSecretError(
        fmt::format("the new secret {} could not be kept by the key store", label));
}

std::optional<SecretBytes> KeyHandler::storedItem(const std::string& label) {
    return keyStore->storedItem(label);
}

bool KeyHandler::storeItem(const SecretBytes& item, const std::string& label) {
    return keyStore->store(item, label);
}

void KeyHandler::removeItem(const std::string& label) {
    keyStore->removeItem(label);
}

const std::shared_ptr<KeyStoring>& KeyHandler::sharedKeyStore() {
    static const auto* shared = new std::shared_ptr<KeyStoring>(std::make_shared<KeychainStore>());
    return *shared;
}

} // namespace zem
