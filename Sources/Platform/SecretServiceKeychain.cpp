#include <zem/Platform/Mutex.h>
#include <zem/Platform/Private/SecretSession.h>
#include <zem/Platform/SecretServiceKeychain.h>

#include <fmt/chrono.h>
#include <fmt/core.h>

#include <algorithm>
#include <functional>
#include <string>
#include <system_error>
#include <utility>

namespace zem::platform {

namespace {

/// An attribute list, understood.
struct Request {
    std::string account;
    SecretBytes data;
    bool returnData = false;

    static std::optional<Request> of(const KeychainAttributes& attributes);

  private:
    bool isGenericPassword = false;
    bool take(const KeychainAttribute& attribute);
};

bool Request::take(const KeychainAttribute& attribute) {
    const auto* text = std::get_if<std::string>(&attribute.value);
    const auto* flag = std::get_if<bool>(&attribute.value);
    const auto* bytes = std::get_if<SecretBytes>(&attribute.value);
    if (attribute.key == kSecClass && text != nullptr) {
        isGenericPassword = *text == kSecClassGenericPassword;
        return isGenericPassword;
    }
    if (attribute.key == kSecAttrAccount && text != nullptr) {
        account = *text;
        // what the bus would refuse is refused here
        return g_utf8_validate_len(account.data(), account.size(), nullptr) != FALSE;
    }
    if (attribute.key == kSecReturnData && flag != nullptr) {
        returnData = *flag;
        return true;
    }
    if (attribute.key == kSecValueData && bytes != nullptr) {
        data = bytes->copy();
        return true;
    }
    return (attribute.key == kSecAttrAccessible && text != nullptr) ||
           (attribute.key == kSecUseDataProtectionKeychain && flag != nullptr);
}

std::optional<Request> Request::of(const KeychainAttributes& attributes) {
    Request request;
    for (const KeychainAttribute& attribute : attributes) {
        if (!request.take(attribute)) {
            return std::nullopt;
        }
    }
    if (!request.isGenericPassword || request.account.empty()) {
        return std::nullopt;
    }
    return request;
}

bool isLocked(const Object<SecretItem>& item) {
    return secret_item_get_locked(item.get()) != FALSE;
}

Keychain::Match match(const Request& request, GCancellable* cancellable) {
    auto session = SecretSession::open(cancellable);
    if (!session) {
        return {session.error().status, {}};
    }
    const auto items = session->find(request.account);
    if (!items) {
        return {items.error().status, {}};
    }
    if (items->empty()) {
        return {errSecItemNotFound, {}};
    }
    const auto readable = std::find_if_not(items->begin(), items->end(), isLocked);
    if (readable == items->end()) {
        return {errSecInteractionNotAllowed, {}};
    }
    if (!request.returnData) {
        return {errSecSuccess, {}};
    }
    auto data = session->read(**readable);
    if (!data) {
        return {data.error().status, {}};
    }
    return {errSecSuccess, *std::move(data)};
}

KeychainStatus add(const Request& request, GCancellable* cancellable) {
    auto session = SecretSession::open(cancellable);
    if (!session) {
        return session.error().status;
    }
    if (const auto turn = session->takeTurn(); !turn) {
        return turn.error().status;
    }
    const auto items = session->find(request.account);
    if (!items) {
        return items.error().status;
    }
    if (!items->empty()) {
        return errSecDuplicateItem;
    }
    const auto created = session->create(request.account, request.data);
    return created ? errSecSuccess : created.error().status;
}

KeychainStatus remove(const Request& request, GCancellable* cancellable) {
    auto session = SecretSession::open(cancellable);
    if (!session) {
        return session.error().status;
    }
    const auto items = session->find(request.account);
    if (!items) {
        return items.error().status;
    }
    if (items->empty()) {
        return errSecItemNotFound;
    }
    if (std::any_of(items->begin(), items->end(), isLocked)) {
        return errSecInteractionNotAllowed;
    }
    for (const Object<SecretItem>& item : *items) {
        if (const auto removed = session->remove(*item); !removed) {
            return removed.error().status;
        }
    }
    return errSecSuccess;
}

class SecretServiceKeychain final : public Keychain {
  public:
    explicit SecretServiceKeychain(std::chrono::milliseconds bound)
        : limit(bound) {}

    Match copyMatching(const KeychainAttributes& query) override {
        return call(query, match, [](KeychainStatus status) { return Match{status, {}}; });
    }
    KeychainStatus add(const KeychainAttributes& attributes) override {
        return call(attributes, platform::add, std::identity());
    }
    KeychainStatus remove(const KeychainAttributes& query) override {
        return call(query, platform::remove, std::identity());
    }

  private:
    using Clock = std::chrono::steady_clock;

    template <class Result, class Failed>
    Result call(const KeychainAttributes& attributes, Result (*work)(const Request&, GCancellable*),
                Failed failed) {
        std::optional<Request> request = Request::of(attributes);
        if (!request) {
            return failed(errSecParam);
        }
        if (isHanging()) {
            return failed(errSecNotAvailable);
        }
        auto result = bounded(
            limit, [request = *std::move(request), work](GCancellable* cancellable) -> Result {
                return work(request, cancellable);
            });
        if (!result) {
            const Lock lock(mutex);
            hangingUntil = Clock::now() + limit;
            return failed(errSecNotAvailable);
        }
        return *std::move(result);
    }

    bool isHanging() {
        const Lock lock(mutex);
        return Clock::now() < hangingUntil;
    }

    const std::chrono::milliseconds limit;
    Mutex mutex;
    Clock::time_point hangingUntil{};
};

} // namespace

std::unique_ptr<Keychain> makeSecretServiceKeychain(std::chrono::milliseconds limit) {
    return std::make_unique<SecretServiceKeychain>(limit);
}

SecretServiceAvailability secretServiceAvailability(std::chrono::milliseconds limit) {
    auto reason = bounded(limit, [](GCancellable* cancellable) {
        const auto session = SecretSession::open(cancellable);
        return session ? std::string() : session.error().reason;
    });
    if (!reason) {
        return {false, fmt::format("the Secret Service did not answer within {}", limit)};
    }
    return {reason->empty(), *std::move(reason)};
}

} // namespace zem::platform
