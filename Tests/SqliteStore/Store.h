#pragma once

// Stores of a test, and calling them as if they answered at once.

#include <zem/SqliteStore/SQLiteStore.h>
#include <zem/SqliteStore/SQLiteStoreNotifier.h>

#include <Support/Wait.h>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace test {

// Keys that are used as they are, 32 bytes in hexadecimal: deriving one from a passphrase takes a
// good part of a second, which most tests are not about.
inline constexpr std::string_view storeKey =
    "x'000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f'";
inline constexpr std::string_view anotherKey =
    "x'ff0102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f'";
inline constexpr std::string_view storeSalt = "0123456789abcdef";
inline constexpr const char* storeSaltHex = "30313233343536373839616263646566";

inline zem::platform::SecretBytes secret(std::string_view bytes) {
    return zem::platform::SecretBytes(zem::platform::BytesView(
        reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

inline zem::SQLiteStore::SecretProvider provider(std::string_view bytes) {
    return [bytes] {
        return secret(bytes);
    };
}

inline zem::SQLiteStore::EncryptionOption keyAndSalt(std::string_view key = storeKey,
                                                     std::string_view salt = storeSalt) {
    return zem::SQLiteStore::EncryptionOption::keyAndSalt(provider(key), provider(salt));
}

inline std::shared_ptr<zem::SQLiteStore> memoryStore() {
    return zem::SQLiteStore::create({zem::SQLiteStorage::memory(), keyAndSalt()});
}

inline zem::SQLiteResultSet query(zem::SQLiteStore& store, std::string sql,
                                  std::vector<zem::SQLiteValue> params = {}) {
    using Answer = std::variant<zem::SQLiteResultSet, std::string>;
    const auto arrival = std::make_shared<Arrival<Answer>>("the answer to " + sql);
    store.query(
        std::move(sql), std::move(params),
        [arrival](zem::SQLiteResultSet resultSet) { arrival->put(std::move(resultSet)); },
        [arrival](std::string text) { arrival->put(std::move(text)); });
    Answer answer = arrival->get();
    if (const auto* text = std::get_if<std::string>(&answer)) {
        throw std::runtime_error(*text);
    }
    return std::get<zem::SQLiteResultSet>(std::move(answer));
}

/// The text of the error that a query ends with.
inline std::string queryError(zem::SQLiteStore& store, std::string sql,
                              std::vector<zem::SQLiteValue> params = {}) {
    try {
        query(store, std::move(sql), std::move(params));
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return {};
}

inline std::optional<std::string> batch(zem::SQLiteStore& store,
                                        std::vector<zem::SQLiteOperation> operations) {
    const auto arrival =
        std::make_shared<Arrival<std::optional<std::string>>>("the completion of a batch");
    store.batchOperations(std::move(operations), [arrival](std::optional<std::string> error) {
        arrival->put(std::move(error));
    });
    return arrival->get();
}

inline zem::SQLiteUpsert upsert(std::vector<std::vector<zem::SQLiteValue>> rows,
                                zem::SQLiteContext context = {}) {
    return {.table = "zem_data",
            .keyColumn = "key",
            .conflictColumns = {"key"},
            .columns = {"key", "data", "metadata"},
            .rows = std::move(rows),
            .context = std::move(context)};
}

inline zem::SQLiteDelete delete_(std::vector<zem::SQLiteValue> ids,
                                 zem::SQLiteContext context = {}) {
    return {.table = "zem_data",
            .keyColumn = "key",
            .ids = std::move(ids),
            .context = std::move(context)};
}

/// An operation that fails when it is prepared.
inline zem::SQLiteDelete failing() {
    return {.table = "missing", .keyColumn = "key", .ids = {"x"}, .context = {}};
}

/// A listener that is registered for as long as this lives.
class Registration {
  public:
    explicit Registration(zem::SQLiteStoreListener::Callback callback,
                          std::weak_ptr<zem::SQLiteStore> store = {})
        : uuid(zem::SQLiteStoreNotifier::shared().registerListener(std::move(store),
                                                                   std::move(callback))) {}
    ~Registration() { zem::SQLiteStoreNotifier::shared().unregisterListener(uuid); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    const std::string uuid;
};

/// Holds a store's connection queue, from when `enter` returned until `open` is called.
class Gate {
  public:
    void enter(zem::SQLiteStore& store) {
        store.queryRows("select 1", {}, std::make_unique<Sink>(events));
        events->entered.wait();
    }
    void open() { events->opened.signal(); }
    /// Returns when the query that held the queue has been answered.
    void wait() { events->left.wait(); }

  private:
    struct Events {
        Event entered{"the gate's row"};
        Event opened{"the gate to be opened"};
        Event left{"the gate's end"};
    };
    class Sink final : public zem::SQLiteRowSink {
      public:
        explicit Sink(std::shared_ptr<Events> shared)
            : events(std::move(shared)) {}
        void columns(std::vector<std::string>) override {}
        void row(std::span<const zem::SQLiteCell>) override {
            events->entered.signal();
            events->opened.wait();
        }
        void finished() override { events->left.signal(); }
        void failed(const std::string&) override { events->left.signal(); }

      private:
        std::shared_ptr<Events> events;
    };

    std::shared_ptr<Events> events = std::make_shared<Events>();
};

/// Calls back when the last copy of it is destroyed: captured by a closure, it tells of its end.
inline std::shared_ptr<void> whenDestroyed(std::function<void()> ended) {
    return {nullptr, [ended = std::move(ended)](void*) {
                ended();
            }};
}

} // namespace test
