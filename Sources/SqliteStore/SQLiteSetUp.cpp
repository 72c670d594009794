#include <zem/SqliteStore/KeyHandler.h>
#include <zem/SqliteStore/Private/SQLiteSetUp.h>
#include <zem/SqliteStore/SQLiteSecretError.h>

#include <fmt/format.h>

#include <cstddef>
#include <memory>
#include <utility>
#include <variant>

namespace zem {
namespace {

constexpr std::size_t saltLength = 16;

platform::SecretBytes checkedKey(platform::SecretBytes key) {
    if (key.empty()) {
        throw SQLiteSecretError(
            "The key of the database must not be empty: expected at least 1 byte, found 0");
    }
    return key;
}

platform::SecretBytes checkedSalt(platform::SecretBytes salt) {
    if (salt.size() != saltLength) {
        throw SQLiteSecretError(fmt::format(
            "The salt of the database has the wrong length: expected {} bytes, found {}",
            saltLength, salt.size()));
    }
    return salt;
}

struct SetUpEncryption {
    SQLiteConnection::SetUpAction operator()(SQLiteStore::EncryptionOption::Key option) const {
        return [option = std::move(option)](SQLiteConnection& connection) {
            connection.useEncryptionKey(checkedKey(option.keyProvider()).view());
        };
    }
    SQLiteConnection::SetUpAction
    operator()(SQLiteStore::EncryptionOption::KeyAndSalt option) const {
        return [option = std::move(option)](SQLiteConnection& connection) {
            const platform::SecretBytes key = checkedKey(option.keyProvider());
            const platform::SecretBytes salt = checkedSalt(option.saltProvider());
            connection.useEncryptionKey(key.view(), salt.view());
        };
    }
    SQLiteConnection::SetUpAction
    operator()(SQLiteStore::EncryptionOption::InternalKeyAndSalt) const {
        const auto handler =
            std::make_shared<KeyHandler>(KeyHandler::storeKeyLabel, KeyHandler::storeSaltLabel);
        return (*this)({[handler] { return handler->key(); },
                        [handler] {
                            return handler->salt();
                        }});
    }
};

} // namespace

SQLiteConnection::SetUpAction encryptionSetUp(SQLiteStore::EncryptionOption option) {
    return std::visit(SetUpEncryption(), std::move(option.value));
}

SQLiteConnection::SetUpAction fileSetUp(SQLiteStore::Synchronous synchronous) {
    return [synchronous](SQLiteConnection& connection) {
        connection.enableWriteAheadLogging();
        connection.expectReservedSpace();
        if (synchronous == SQLiteStore::Synchronous::full) {
            connection.useFullSynchronous();
        }
    };
}

} // namespace zem
