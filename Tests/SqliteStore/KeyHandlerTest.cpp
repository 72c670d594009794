#include <zem/SqliteStore/KeyHandler.h>
#include <zem/SqliteStore/SQLiteSecretError.h>

#include <gtest/gtest.h>

#include <SqliteStore/MemoryKeyStore.h>
#include <SqliteStore/Store.h>
#include <Support/LogCapture.h>
#include <Support/SecretService.h>
#include <stdexcept>

using namespace zem;
using platform::Bytes;
using platform::KeychainAttributes;
using platform::KeychainStatus;
using platform::SecretBytes;

namespace {

const std::string keyLabel = "com.quorvane.ZEM.SQLiteStoreKey";
const std::string saltLabel = "com.quorvane.ZEM.SQLiteStoreSalt";

class ThrowingKeyStore final : public KeyStoring {
  public:
    std::optional<SecretBytes> storedItem(const std::string&) override {
        throw std::runtime_error("out of reach");
    }
    bool store(const SecretBytes&, const std::string&) override { return stored = true; }
    void removeItem(const std::string&) override {}

    bool stored = false;
};

std::string textOf(const platform::KeychainValue& value) {
    if (const auto* flag = std::get_if<bool>(&value)) {
        return *flag ? "true" : "false";
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        return *text;
    }
    const SecretBytes& bytes = std::get<SecretBytes>(value);
    return "<" + std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()) + ">";
}

/// Writes down every attribute list, in order, and answers as it is told.
class RecordingKeychain final : public platform::Keychain {
  public:
    Match copyMatching(const KeychainAttributes& query) override {
        record("copyMatching", query);
        return {status, data.copy()};
    }
    KeychainStatus add(const KeychainAttributes& attributes) override {
        record("add", attributes);
        return status;
    }
    KeychainStatus remove(const KeychainAttributes& query) override {
        record("remove", query);
        return status;
    }

    KeychainStatus status = platform::errSecSuccess;
    SecretBytes data;
    std::vector<std::string> lines;

  private:
    void record(const std::string& call, const KeychainAttributes& attributes) {
        lines.push_back(call);
        for (const platform::KeychainAttribute& attribute : attributes) {
            lines.push_back(std::string(attribute.key) + "=" + textOf(attribute.value));
        }
    }
};

const std::vector<KeychainStatus> failures{platform::errSecItemNotFound,
                                           platform::errSecDuplicateItem,
                                           platform::errSecInteractionNotAllowed,
                                           platform::errSecNotAvailable,
                                           platform::errSecAuthFailed,
                                           platform::errSecParam,
                                           1};

} // namespace

TEST(KeyHandler, FirstUseMakesAndKeepsTheKey) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    KeyHandler handler(keyLabel, saltLabel, keyStore);
    const SecretBytes key = handler.key();
    EXPECT_EQ(key.size(), 32U);
    EXPECT_EQ(handler.key(), key);
    EXPECT_EQ(keyStore->items.at(keyLabel), key);
    EXPECT_EQ(keyStore->transcript.lines(),
              (std::vector<std::string>{"storedItem com.quorvane.ZEM.SQLiteStoreKey",
                                        "store 32 bytes com.quorvane.ZEM.SQLiteStoreKey",
                                        "storedItem com.quorvane.ZEM.SQLiteStoreKey"}));
}

TEST(KeyHandler, FirstUseMakesAndKeepsTheSalt) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    KeyHandler handler(keyLabel, saltLabel, keyStore);
    const SecretBytes salt = handler.salt();
    EXPECT_EQ(salt.size(), 16U);
    EXPECT_EQ(handler.salt(), salt);
    EXPECT_EQ(keyStore->items.at(saltLabel), salt);
    EXPECT_EQ(keyStore->transcript.lines(),
              (std::vector<std::string>{"storedItem com.quorvane.ZEM.SQLiteStoreSalt",
                                        "store 16 bytes com.quorvane.ZEM.SQLiteStoreSalt",
                                        "storedItem com.quorvane.ZEM.SQLiteStoreSalt"}));
}

TEST(KeyHandler, UsesTheStoresLabelsUnlessToldOtherwise) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    EXPECT_EQ(KeyHandler::storeKeyLabel, keyLabel);
    EXPECT_EQ(KeyHandler::storeSaltLabel, saltLabel);
    KeyHandler other("a.key", "a.salt", keyStore);
    other.key();
    other.salt();
    EXPECT_EQ(keyStore->items.count("a.key"), 1U);
    EXPECT_EQ(keyStore->items.count("a.salt"), 1U);
    EXPECT_EQ(keyStore->items.size(), 2U);
}

TEST(KeyHandler, ReturnsWhatIsKeptAsItIs) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    keyStore->items.emplace(keyLabel, test::secret("short"));
    keyStore->items.emplace(saltLabel, SecretBytes());
    KeyHandler handler(keyLabel, saltLabel, keyStore);
    EXPECT_EQ(handler.key(), test::secret("short"));
    EXPECT_EQ(handler.salt(), SecretBytes());
}

TEST(KeyHandler, KeyThatCannotBeKeptServesOnce) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    keyStore->keeps = false;
    KeyHandler handler(keyLabel, saltLabel, keyStore);
    const test::LogCapture log;
    const SecretBytes first = handler.key();
    const SecretBytes second = handler.key();
    EXPECT_EQ(first.size(), 32U);
    EXPECT_EQ(second.size(), 32U);
    EXPECT_NE(first, second);
    EXPECT_NE(handler.salt(), handler.salt());
    const auto line = [](const std::string& label) {
        return "the key store did not keep the new secret " + label +
               ": what is written under it cannot be read after this session";
    };
    EXPECT_EQ(log.lines(), (std::vector<std::string>{line(keyLabel), line(keyLabel),
                                                     line(saltLabel), line(saltLabel)}));
}

TEST(KeyHandler, KeptSecretsAreMadeOnFirstUse) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    KeyHandler handler(keyLabel, saltLabel, keyStore);
    const test::LogCapture log;
    const SecretBytes key = handler.keptKey();
    const SecretBytes salt = handler.keptSalt();
    EXPECT_EQ(key.size(), 32U);
    EXPECT_EQ(salt.size(), 16U);
    EXPECT_EQ(keyStore->items.at(keyLabel), key);
    EXPECT_EQ(keyStore->items.at(saltLabel), salt);
    EXPECT_EQ(handler.keptKey(), key);
    EXPECT_EQ(handler.keptSalt(), salt);
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
}

TEST(KeyHandler, KeptSecretsThatAreNotKeptAreRefused) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    keyStore->keeps = false;
    KeyHandler handler(keyLabel, saltLabel, keyStore);
    const auto refusal = [](auto&& call) -> std::string {
        try {
            call();
            return "";
        } catch (const SQLiteSecretError& error) {
            return error.what();
        }
    };
    EXPECT_EQ(refusal([&] { handler.keptKey(); }),
              "the new secret com.quorvane.ZEM.SQLiteStoreKey could not be kept by the key store");
    EXPECT_EQ(refusal([&] { handler.keptSalt(); }),
              "the new secret com.quorvane.ZEM.SQLiteStoreSalt could not be kept by the key store");
}

TEST(KeyHandler, KeptSecretsAreThoseOfTheProcessThatKeptThemFirst) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    keyStore->meanwhile = [&] {
        keyStore->items.try_emplace(keyLabel, test::secret("the other's"));
    };
    KeyHandler handler(keyLabel, saltLabel, keyStore);
    EXPECT_EQ(handler.keptKey(), test::secret("the other's"));
}

TEST(KeyHandler, RemovingTheSaltLeavesTheKey) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    KeyHandler handler(keyLabel, saltLabel, keyStore);
    const SecretBytes key = handler.key();
    const SecretBytes salt = handler.salt();
    handler.removeItem(saltLabel);
    EXPECT_EQ(handler.key(), key);
    EXPECT_FALSE(handler.storedItem(saltLabel));
    EXPECT_NE(handler.salt(), salt);
}

TEST(KeyHandler, ForwardsToTheKeyStore) {
    const auto keyStore = std::make_shared<test::MemoryKeyStore>();
    KeyHandler handler(keyLabel, saltLabel, keyStore);
    EXPECT_EQ(handler.storedItem("a"), std::nullopt);
    EXPECT_TRUE(handler.storeItem(test::secret("one"), "a"));
    EXPECT_FALSE(handler.storeItem(test::secret("two"), "a"));
    EXPECT_EQ(handler.storedItem("a"), test::secret("one"));
    handler.removeItem("a");
    EXPECT_EQ(handler.storedItem("a"), std::nullopt);
    EXPECT_EQ(keyStore->transcript.lines(),
              (std::vector<std::string>{"storedItem a", "store 3 bytes a", "store 3 bytes a",
                                        "storedItem a", "removeItem a", "storedItem a"}));
}

TEST(KeyHandler, MakesNoNewKeyWhenTheKeyStoreThrows) {
    const auto keyStore = std::make_shared<ThrowingKeyStore>();
    KeyHandler handler(keyLabel, saltLabel, keyStore);
    EXPECT_THROW(handler.key(), std::runtime_error);
    EXPECT_THROW(handler.salt(), std::runtime_error);
    EXPECT_THROW(handler.keptKey(), std::runtime_error);
    EXPECT_THROW(handler.keptSalt(), std::runtime_error);
    EXPECT_FALSE(keyStore->stored);
}

TEST(KeyHandler, AllHandlersShareOneKeychainStore) {
    EXPECT_EQ(KeyHandler::sharedKeyStore(), KeyHandler::sharedKeyStore());
    EXPECT_NE(dynamic_cast<KeychainStore*>(KeyHandler::sharedKeyStore().get()), nullptr);
}

TEST(KeyHandler, KeepsItsSecretsInTheSecretServiceByDefault) {
    const test::SessionBus bus;
    test::SecretService service(bus);
    KeyHandler first;
    const SecretBytes key = first.key();
    const SecretBytes salt = first.salt();
    EXPECT_EQ(key.size(), 32U);
    EXPECT_EQ(salt.size(), 16U);
    KeyHandler second;
    EXPECT_EQ(second.key(), key);
    EXPECT_EQ(second.salt(), salt);
    EXPECT_EQ(test::secret(service.item(keyLabel).secret), key);
    EXPECT_EQ(test::secret(service.item(saltLabel).secret), salt);
    EXPECT_FALSE(first.storeItem(test::secret("another"), keyLabel));
    first.removeItem(saltLabel);
    EXPECT_EQ(service.itemCount(saltLabel), 0U);
    EXPECT_EQ(second.key(), key);
}

TEST(KeyHandler, LockedKeyringEndsWithOneItemPerLabel) {
    const test::SessionBus bus;
    test::SecretService service(bus);
    KeyHandler handler(keyLabel, saltLabel, std::make_shared<KeychainStore>());
    const SecretBytes key = handler.key();
    service.lock();
    EXPECT_NE(handler.key(), key);
    EXPECT_EQ(handler.salt().size(), 16U);
    service.unlock();
    EXPECT_EQ(handler.key(), key);
    EXPECT_EQ(service.itemCount(keyLabel), 1U);
    EXPECT_EQ(service.itemCount(saltLabel), 0U);
}

TEST(KeyHandler, WorksWithoutASecretService) {
    const test::SessionBus bus;
    KeyHandler handler(keyLabel, saltLabel, std::make_shared<KeychainStore>());
    EXPECT_EQ(handler.key().size(), 32U);
    EXPECT_EQ(handler.salt().size(), 16U);
}

TEST(KeychainStore, AsksForAnItemWithTheseAttributesInThisOrder) {
    const auto keychain = std::make_shared<RecordingKeychain>();
    keychain->data = test::secret("bytes");
    KeychainStore store(keychain);
    EXPECT_EQ(store.storedItem("a.label"), test::secret("bytes"));
    EXPECT_EQ(keychain->lines,
              (std::vector<std::string>{"copyMatching", "class=genp", "acct=a.label", "nleg=true",
                                        "r_Data=true"}));
}

TEST(KeychainStore, AddsAnItemWithTheseAttributesInThisOrder) {
    const auto keychain = std::make_shared<RecordingKeychain>();
    KeychainStore store(keychain);
    EXPECT_TRUE(store.store(test::secret("bytes"), "a.label"));
    EXPECT_EQ(keychain->lines,
              (std::vector<std::string>{"add", "class=genp", "acct=a.label", "pdmn=ak", "nleg=true",
                                        "v_Data=<bytes>"}));
}

TEST(KeychainStore, DeletesAnItemWithTheseAttributesInThisOrder) {
    const auto keychain = std::make_shared<RecordingKeychain>();
    KeychainStore store(keychain);
    store.removeItem("a.label");
    EXPECT_EQ(keychain->lines,
              (std::vector<std::string>{"remove", "class=genp", "acct=a.label", "nleg=true"}));
}

TEST(KeychainStore, TakesEveryStatusButZeroForNothing) {
    const auto keychain = std::make_shared<RecordingKeychain>();
    keychain->data = test::secret("bytes");
    KeychainStore store(keychain);
    for (const KeychainStatus status : failures) {
        keychain->status = status;
        EXPECT_EQ(store.storedItem("a"), std::nullopt) << status;
        EXPECT_FALSE(store.store(test::secret("b"), "a")) << status;
        EXPECT_NO_THROW(store.removeItem("a")) << status;
    }
    keychain->status = 0;
    EXPECT_EQ(store.storedItem("a"), test::secret("bytes"));
    EXPECT_TRUE(store.store(test::secret("b"), "a"));
}
