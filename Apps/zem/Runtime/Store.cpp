#include "Store.h"

#include "Process/Failure.h"
#include "Process/Output.h"
#include <zem/Adapters/FileKeyStore.h>
#include <zem/Platform/Random.h>
#include <zem/Platform/SecretServiceKeychain.h>
#include <zem/SqliteStore/SQLiteOpeningError.h>

#include <fmt/format.h>

#include <stdexcept>
#include <system_error>
#include <utility>

namespace zem::host {

namespace {

using Encryption = SQLiteStore::EncryptionOption;

constexpr std::size_t keyLength = 32;
constexpr std::size_t saltLength = 16;

Encryption keyOfThisRun() {
    return Encryption::keyAndSalt([] { return platform::randomKey(keyLength); },
                                  [] { return platform::randomKey(saltLength); });
}

Encryption keyInFiles(const std::filesystem::path& folder) {
    auto keyStore = FileKeyStore::create(folder);
    if (!keyStore) {
        throw std::runtime_error(keyStore.error());
    }
    return Encryption::kept(*keyStore);
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
    return Encryption::kept();
}

SQLiteStorage storageOf(const Options& options) {
    return options.inMemory ? SQLiteStorage::memory() : SQLiteStorage::file(options.data);
}

Encryption encryptionOf(const Options& options) {
    if (options.inMemory) {
        return keyOfThisRun();
    }
    return options.keys ? keyInFiles(*options.keys) : keyInSecretService();
}

std::string nameOf(const Options& options, const char* file) {
    return options.inMemory ? "in memory" : (options.data / file).string();
}

std::shared_ptr<SQLiteStore> openOrRemove(const Options& options,
                                          const SQLiteStore::Options& store) {
    try {
        return SQLiteStore::create(store);
    } catch (const SQLiteOpeningError& error) {
        if (error.value != SQLiteOpeningError::halfMade || !SQLiteStore::removeHalfMade(store)) {
            throw;
        }
    }
    printErrorLine(fmt::format("zem: removed the store {}: its first opening was interrupted, and "
                               "it held no row",
                               nameOf(options, "zem.db")));
    return SQLiteStore::create(store);
}

/// Opens a database. A failure says what could not be opened, and why.
template <class Open>
auto openOrFail(const std::string& what, const Open& open) {
    const auto fail = [&](const std::string& reason) {
        return Failure(exitStore, fmt::format("cannot open {}: {}", what, reason));
    };
    try {
        return open();
    } catch (const SQLiteOpeningError& error) {
        throw fail(error.reason());
    } catch (const std::system_error& error) {
        throw fail(error.code().message());
    } catch (const std::exception& error) {
        throw fail(error.what());
    }
}

} // namespace

std::shared_ptr<SQLiteStore> openStore(const Options& options, SQLiteFailureHandler onFailure) {
    return openOrFail("the store " + nameOf(options, "zem.db"), [&] {
        SQLiteStore::Options opened(storageOf(options), encryptionOf(options));
        opened.onFailure = std::move(onFailure);
        return openOrRemove(options, opened);
    });
}

std::shared_ptr<EncryptedBinaryStore> openBinaryStore(const Options& options,
                                                      std::shared_ptr<Fetcher> fetcher) {
    return openOrFail("the binaries " + nameOf(options, "binaries.db"), [&] {
        EncryptedBinaryStore::Options opened(storageOf(options), encryptionOf(options));
        opened.fetcher = std::move(fetcher);
        return EncryptedBinaryStore::create(opened);
    });
}

std::future<void> closeStore(std::shared_ptr<SQLiteStore> store) {
    std::promise<void> ended;
    std::future<void> end = ended.get_future();
    store->whenClosed(
        [ended = std::make_shared<std::promise<void>>(std::move(ended))] { ended->set_value(); });
    store.reset();
    return end;
}

} // namespace zem::host
