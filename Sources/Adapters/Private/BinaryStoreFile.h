#pragma once

// The file of the encrypted binary store: its rows, and the rules of expiry and quota.

#include <zem/Adapters/EncryptedBinaryStore.h>
#include <zem/Platform/Bytes.h>
#include <zem/SqliteStore/SQLiteValue.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zem {

class SQLiteConnection;

/// Not thread-safe. Every failure of SQLite is thrown as SQLiteResult, and changes nothing.
class BinaryStoreFile {
  public:
    using Time = EncryptedBinaryStore::Time;

    struct Name {
        std::string url;
        Time expiry;
    };

    /// The content of a cached blob is larger than the quota leaves room for.
    class NoRoom final : public std::exception {
      public:
        explicit NoRoom(std::uint64_t size, std::uint64_t stored, std::uint64_t quota);
        const char* what() const noexcept override { return text.c_str(); }

      private:
        std::string text;
    };

    /// `seconds` after `now`: not before `now`, and at most 2^53 ms after 1970, up to which a row
    /// holds every number exactly.
    static Time expiryAfter(Time now, std::int64_t seconds);

    BinaryStoreFile(const EncryptedBinaryStore::Options& options, Time now);
    ~BinaryStoreFile();

    /// Keeps the bytes under a fresh handle: for good without a name, else cached under that name
    /// and until it expires. Throws NoRoom for a cached blob that does not fit.
    std::string keep(platform::BytesView bytes, const std::string& type,
                     const std::optional<Name>& name, Time now);

    /// The handle of the blob that is fresh under this name.
    std::optional<std::string> handleOf(const std::string& url, Time now);

    std::optional<platform::Bytes> read(const std::string& uri, Time now);
    bool remove(const std::string& uri, Time now);
    /// Gives the blob one more name, which no other blob has from then on. A name that expires at
    /// once is taken away. Does nothing when there is no such blob.
    void setName(const std::string& uri, const Name& name, Time now);
    std::vector<EncryptedBinaryStore::Blob> blobs(Time now);

  private:
    struct Row;

    void removeExpired(Time now);
    void makeRoom(std::uint64_t size, bool isCached);
    std::uint64_t removeOldestCached();
    void removeRow(double id);
    double insert(const std::string& handle, const std::string& type, std::uint64_t size,
                  std::optional<Time> expiry);
    void write(double id, platform::BytesView bytes);
    void write(double id, const Name& name);
    void noteUse(const Row& row);
    std::optional<Row> find(const std::string& uri, Time now);
    void execute(const char* sql, std::span<const SQLiteValue> params);

    const std::uint64_t quota;
    const std::unique_ptr<SQLiteConnection> connection;
};

} // namespace zem
