#pragma once

// Where the store's own key and salt come from: kept in a key store, made at random on first use.

#include <zem/Platform/Bytes.h>
#include <zem/Platform/Keychain.h>

#include <memory>
#include <optional>
#include <string>

namespace zem {

/// Keeps secrets, as bytes under a label. Any thread; calls may block. No secret appears in an
/// error.
class KeyStoring {
  public:
    virtual ~KeyStoring() = default;

    /// The bytes kept under the label, or nothing: when there are none, and when they cannot be
    /// read. A key store that can tell the two apart throws in the second case, so that no new key
    /// takes the place of one that is merely out of reach.
    virtual std::optional<platform::SecretBytes> storedItem(const std::string& label) = 0;

    /// Keeps the bytes under the label and returns whether that succeeded. Never replaces what is
    /// kept there: that is a failure.
    virtual bool store(const platform::SecretBytes& item, const std::string& label) = 0;

    /// Deletes what is kept under the label, if anything is.
    virtual void removeItem(const std::string& label) = 0;
};

/// Secrets as generic-password items of the platform's keychain, the label being the account.
/// Throws nothing. An item that the keychain does not give counts as absent, for whatever reason.
class KeychainStore final : public KeyStoring {
  public:
    /// Over the Secret Service when `keychain` is null.
    explicit KeychainStore(std::shared_ptr<platform::Keychain> keychain = nullptr);

    std::optional<platform::SecretBytes> storedItem(const std::string& label) override;
    bool store(const platform::SecretBytes& item, const std::string& label) override;
    void removeItem(const std::string& label) override;

  private:
    std::shared_ptr<platform::Keychain> keychain;
};

/// The key and the salt of one store. Throws what its key store throws.
class KeyHandler {
  public:
    static constexpr const char* storeKeyLabel = "com.quorvane.ZEM.SQLiteStoreKey";
    static constexpr const char* storeSaltLabel = "com.quorvane.ZEM.SQLiteStoreSalt";

    /// `keyStore` is `sharedKeyStore()` when it is null: a machine without a keychain passes
    /// another.
    explicit KeyHandler(std::string keyLabel = storeKeyLabel,
                        std::string saltLabel = storeSaltLabel,
                        const std::shared_ptr<KeyStoring>& keyStore = nullptr);

    /// The kept key, or 32 fresh random bytes, which are handed to the key store and returned
    /// whether or not it could keep them. A key that was not kept is lost with the last copy of it:
    /// the store's log gets an error.
    platform::SecretBytes key();
    /// The same for the salt, of 16 bytes.
    platform::SecretBytes salt();

    /// The same as `key()`, with the key as the key store gives it back: throws SQLiteSecretError
    /// when it gives none back.
    platform::SecretBytes keptKey();
    /// The same for the salt.
    platform::SecretBytes keptSalt();

    std::optional<platform::SecretBytes> storedItem(const std::string& label);
    bool storeItem(const platform::SecretBytes& item, const std::string& label);
    void removeItem(const std::string& label);

    /// The KeychainStore of all handlers that were given none: made on first use, never destroyed.
    static const std::shared_ptr<KeyStoring>& sharedKeyStore();

  private:
    platform::SecretBytes storedOrNew(const std::string& label, std::size_t length);
    platform::SecretBytes storedOrKept(const std::string& label, std::size_t length);

    std::string keyLabel;
    std::string saltLabel;
    std::shared_ptr<KeyStoring> keyStore;
};

} // namespace zem
