#include "Store.h"

#include "Failure.h"
#include <zem/Adapters/FileKeyStore.h>
#include <zem/Platform/Random.h>
#include <zem/Platform/SecretServiceKeychain.h>
#include <zem/SqliteStore/KeyHandler.h>
#include <zem/SqliteStore/SQLiteResult.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zem::host {

namespace {

using Encryption = SQLiteStore::EncryptionOption;
using platform::SecretBytes;

constexpr std::size_t keyLength = 32;
constexpr std::size_t saltLength = 16;

/// What SQLite says of a file that it cannot decrypt: that it is no database or, where the file's
/// header is plain and the first page fails its check, that memory has run out.
constexpr std::array notDecrypted{26, 7};

Encryption keyOfThisRun() {
    return Encryption::keyAndSalt([] { return platform::randomKey(keyLength); },
                                  [] { return platform::randomKey(saltLength); });
}

/// The key and salt that are kept in a key store, made on first use. A fresh one that the key store
/// did not keep is not used: what was written under it could never be read again.
Encryption keptKey(const std::shared_ptr<KeyStoring>& keyStore) {
    const auto handler = std::make_shared<KeyHandler>(KeyHandler::storeKeyLabel,
                                                      KeyHandler::storeSaltLabel, keyStore);
    const auto kept = [handler](SecretBytes secret, const char* label) {
        const auto stored = handler->storedItem(label);
        if (!stored || *stored != secret) {
            throw std::runtime_error("its new key could not be kept");
        }
        return secret;
    };
    return Encryption::keyAndSalt(
        [handler, kept] { return kept(handler->key(), KeyHandler::storeKeyLabel); },
        [handler, kept] { return kept(handler->salt(), KeyHandler::storeSaltLabel); });
}

Encryption keyInFiles(const std::filesystem::path& folder) {
    auto keyStore = FileKeyStore::create(folder);
    if (!keyStore) {
        throw std::runtime_error(keyStore.error());
    }
    return keptKey(*keyStore);
}

Encryption keyInSecretService() {
    const platform::SecretServiceAvailability service = platform::secretServiceAvailability();
    if (!service.available) {
        throw std::runtime_error(fmt::format(
            "the Secret Service, which is to keep its key, cannot be used: {}\n"
            "There are two ways out:\n"
            "  --keys DIR        keeps the key as a file in DIR\n"
            "  --secret-service  with a Secret Service running on the session bus, unlocked",
            service.reason));
    }
    return keptKey(KeyHandler::sharedKeyStore());
}

std::shared_ptr<SQLiteStore> open(const RunOptions& options) {
    if (options.inMemory) {
        return SQLiteStore::create({SQLiteStorage::memory(), keyOfThisRun()});
    }
    return SQLiteStore::create(
        {options.data, options.keys ? keyInFiles(*options.keys) : keyInSecretService()});
}

/// A query whose end, whichever it comes to, says that the work before it is done with the store.
class LastQuery final : public SQLiteRowSink {
  public:
    explicit LastQuery(std::promise<void> ended)
        : ended(std::move(ended)) {}
    ~LastQuery() override { ended.set_value(); }
    LastQuery(const LastQuery&) = delete;
    LastQuery& operator=(const LastQuery&) = delete;

    void columns(std::vector<std::string>) override {}
    void row(std::span<const SQLiteCell>) override {}
    void finished() override {}
    void failed(const std::string&) override {}

  private:
    std::promise<void> ended;
};

} // namespace

std::shared_ptr<SQLiteStore> openStore(const RunOptions& options) {
    const auto fail = [&](const std::string& reason) {
        const std::string file =
            options.inMemory ? "in memory" : (options.data / "zem.db").string();
        return Failure(exitStore, fmt::format("cannot open the store {}: {}", file, reason));
    };
    try {
        return open(options);
    } catch (const SQLiteResult& result) {
        const bool isKey = std::ranges::find(notDecrypted, result.rawValue) != notDecrypted.end();
        // SQLite's own text for these codes speaks of something else ("out of memory").
        throw fail(isKey ? fmt::format("its key is another one, or it is damaged (SQLite error {})",
                                       result.rawValue)
                         : result.description());
    } catch (const std::system_error& error) {
        throw fail(error.code().message());
    } catch (const std::exception& error) {
        throw fail(error.what());
    }
}

std::future<void> closeStore(std::shared_ptr<SQLiteStore> store) {
    std::promise<void> ended;
    std::future<void> end = ended.get_future();
    store->queryRows("select 1", {}, std::make_unique<LastQuery>(std::move(ended)));
    store.reset();
    return end;
}

} // namespace zem::host
