#pragma once

// A store of blobs in an encrypted file of its own, beside the store's.

#include <zem/Core/BinaryStore.h>
#include <zem/Platform/Bytes.h>
#include <zem/Platform/URL.h>
#include <zem/SqliteStore/SQLiteStorage.h>
#include <zem/SqliteStore/SQLiteStore.h>

#include <chrono>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zem {

class Fetcher;

/// Blobs in the file "binaries.db", or in the process's memory. A handle is a fresh UUID. A blob is
/// stored for good, or cached until its expiry. Wherever a blob is asked for, its handle does, and
/// so does each canonical URL of it that is fresh.
///
/// Thread-safe, and every call but the fetching of `cache` does its work before it returns, one
/// call at a time: a large blob takes as long as the disk. Call it with no lock held. Blobs and
/// names survive the end of the process, however it ends, and a blob is there whole or not at all.
/// A power cut may take the last writes, as it may with the store; see
/// `SQLiteStore::batchOperations`.
///
/// Memory: bytes go into the file, and come out of it, in pieces of 1 MiB. Beside the caller's own
/// bytes there are the piece at hand, once more where SQLite makes a row of it, and SQLite's page
/// cache of 2 MB. `cachedData` makes the bytes that it returns, and no other copy. `cache` writes
/// the bytes that the fetcher hands over.
///
/// Destroying closes the file before it returns, from any thread and from a completion too. Each
/// `cache` call that is still out is answered with an error then; its fetch is left to the fetcher,
/// and what comes of it is dropped. An answer that is on its way on another thread just then may
/// arrive a moment later.
class EncryptedBinaryStore final : public BinaryStore {
  public:
    /// The time of day: expiries outlive the process.
    using Time = std::chrono::sys_time<std::chrono::milliseconds>;
    /// Called from any thread, several at once.
    using Clock = std::function<Time()>;

    static constexpr std::uint64_t defaultQuota = std::uint64_t{1} << 30;

    struct Options {
        Options(SQLiteStorage where, SQLiteStore::EncryptionOption how)
            : storage(std::move(where))
            , encryption(std::move(how)) {}
        /// The file lies in `databaseFolder`, which may be the store's, and is opened the way a
        /// store with this option is. With the store's own option both files have one key.
        Options(std::filesystem::path databaseFolder, SQLiteStore::EncryptionOption how)
            : Options(SQLiteStorage::file(std::move(databaseFolder)), std::move(how)) {}

        SQLiteStorage storage;
        SQLiteStore::EncryptionOption encryption;
        /// How a file is synchronised; a store in memory ignores it.
        SQLiteStore::Synchronous synchronous = SQLiteStore::Synchronous::normal;
        /// How many bytes the blobs may have together. Cached blobs make room, the one whose last
        /// use is the longest ago first; stored ones never do and are kept also beyond the quota.
        std::uint64_t quota = defaultQuota;
        /// Fetches for `cache`. Without one, `cache` answers only with what is there.
        std::shared_ptr<Fetcher> fetcher = {};
        Clock clock = [] {
            return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
        };
    };

    /// A blob, as a listing shows it.
    struct Blob {
        enum class Kind { stored, cached };

        std::string handle;
        std::string type;                       ///< the MIME type
        std::uint64_t size = 0;                 ///< in bytes
        std::vector<std::string> canonicalUrls; ///< the fresh ones, in alphabetical order
        /// Set for a cached blob. The store does not give it out from this moment on.
        std::optional<Time> expiry;
        Kind kind = Kind::stored;

        bool operator==(const Blob&) const = default;
    };

    /// Opens or makes the file and removes the blobs that have expired, unless the disk is too full
    /// for that. Throws what `SQLiteStore::create` throws; a failure leaves no new empty file
    /// behind. An opening that was interrupted is completed by the next one.
    static std::shared_ptr<EncryptedBinaryStore> create(const Options& options);

    /// Does what destroying does, also while others hold the store. From then on it holds no blob,
    /// keeps none, and `cache` answers with an error. Any thread, any number of times.
    void close();

    ~EncryptedBinaryStore() override;
    EncryptedBinaryStore(const EncryptedBinaryStore&) = delete;
    EncryptedBinaryStore& operator=(const EncryptedBinaryStore&) = delete;

    /// Keeps the bytes for good. The size that counts is that of `data`; `size` is ignored. Throws
    /// std::runtime_error, with a text for people, when the file cannot be written: nothing of the
    /// blob is kept then, and no other blob is gone.
    std::string store(const platform::Bytes& data, const std::string& type,
                      std::uint64_t size) override;

    /// Answers the handle of the blob that has this canonical URL, before returning, when both are
    /// fresh. Else fetches the content and keeps it, fresh for `ttlSeconds` from its arrival; calls
    /// for one URL share a fetch, and the longest of their times counts. They are answered on the
    /// thread on which the fetcher calls back, which may be before returning. `completion` is
    /// called once, with no lock held; what it throws is logged.
    ///
    /// The errors: a time of less than a second, no fetcher, the fetcher's own text, content that
    /// is larger than the quota leaves room for, and a file that cannot be read or written.
    void cache(const platform::URL& url, std::int64_t ttlSeconds,
               std::function<void(std::expected<std::string, std::string>)> completion) override;

    /// For `ttlSeconds` from now, `cache` of the canonical URL answers this blob; a cached blob
    /// lives at least as long. Another blob loses the name. With a time of less than a second
    /// nothing has the name from now on. Does nothing when there is no such blob; a file that
    /// cannot be written is logged.
    void setCanonicalUrl(const std::string& uri, const std::string& canonicalUrl,
                         std::int64_t ttlSeconds) override;

    /// Absent when there is no such blob, or it has expired and is removed. A file that cannot be
    /// read is logged.
    std::optional<platform::Bytes> cachedData(const std::string& handle) override;

    /// True when the blob was there, had not expired, and is gone now. A file that cannot be
    /// written is logged. Space that becomes free is overwritten and used again; the file does not
    /// shrink.
    bool remove(const std::string& uri) override;

    /// The blobs that have not expired, the oldest first, or why they cannot be listed.
    std::expected<std::vector<Blob>, std::string> blobs();

  private:
    class State;

    explicit EncryptedBinaryStore(std::shared_ptr<State> state);

    const std::shared_ptr<State> state;
};

} // namespace zem
