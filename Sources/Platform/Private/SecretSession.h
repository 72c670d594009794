#pragma once

// One conversation with the Secret Service. All of it blocks, and belongs inside `bounded`.

#include <zem/Platform/Keychain.h>
#include <zem/Platform/Private/Bounded.h>

#include <libsecret/secret.h>

#include <expected>
#include <string>
#include <vector>

namespace zem::platform {

/// Why a step failed: the status for the keychain's caller, and a text for people.
struct SecretFailure {
    KeychainStatus status = errSecNotAvailable;
    std::string reason;
};
template <class T>
using SecretResult = std::expected<T, SecretFailure>;

/// Has a connection to the session bus of its own: the one that GLib shares within a process ends
/// the process when the bus goes away. To be used and destroyed on the thread that opened it.
class SecretSession {
  public:
    using Items = std::vector<Object<SecretItem>>;

    /// Connects and finds the default collection, which must be there and unlocked.
    static SecretResult<SecretSession> open(GCancellable* cancellable);

    SecretSession(SecretSession&&) noexcept = default;
    SecretSession& operator=(SecretSession&&) = delete;
    ~SecretSession();

    /// Waits until no other connection of this bus is in its turn, and takes it until this session
    /// is destroyed. A bus that lets nobody own names grants it at once.
    SecretResult<void> takeTurn();

    /// All items of the account, locked ones too.
    SecretResult<Items> find(const std::string& account);
    SecretResult<SecretBytes> read(SecretItem& item);
    SecretResult<void> create(const std::string& account, const SecretBytes& data);
    SecretResult<void> remove(SecretItem& item);

  private:
    /// The main context of the session's thread while it lives: where GLib delivers signals.
    struct Context {
        void operator()(GMainContext* context) const;
    };

    explicit SecretSession(GCancellable* cancellable);
    SecretResult<void> connect();
    SecretResult<void> findCollection();

    GCancellable* cancellable;
    std::unique_ptr<GMainContext, Context> context;
    Object<GDBusConnection> bus;
    Object<SecretService> service;
    Object<SecretCollection> collection;
};

} // namespace zem::platform
