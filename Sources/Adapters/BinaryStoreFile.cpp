#include <zem/Adapters/Private/BinaryStoreFile.h>
#include <zem/Platform/UUID.h>
#include <zem/SqliteStore/Private/SQLiteConnection.h>
#include <zem/SqliteStore/Private/SQLiteSetUp.h>

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

namespace zem {
namespace {

using Blob = EncryptedBinaryStore::Blob;
using Time = BinaryStoreFile::Time;

constexpr std::size_t pieceLength = std::size_t{1} << 20;

/// The largest number up to which a row holds every integer.
constexpr Time farthest{std::chrono::milliseconds{std::int64_t{1} << 53}};

/// Each statement can be run again, so that an opening that was interrupted is completed by the
/// next one.
SQLiteConnection::Migrations migrations() {
    return {{1,
             {R"(create table if not exists zem_binaries (
                        id integer primary key,
                        handle text not null unique,
                        type text not null,
                        size integer not null,
                        expiry integer,
                        last_use integer not null))",
              R"(create index if not exists idx_zem_binaries_last_use
                        on zem_binaries (last_use))",
              R"(create table if not exists zem_binary_pieces (
                        binary_id integer not null,
                        position integer not null,
                        bytes blob not null,
                        primary key (binary_id, position)))",
              R"(create table if not exists zem_binary_names (
                        url text primary key,
                        binary_id integer not null,
                        expiry integer not null))",
              R"(create index if not exists idx_zem_binary_names_binary_id
                        on zem_binary_names (binary_id))",
              R"(create trigger if not exists zem_binaries_delete
                        after delete on zem_binaries
                    begin
                        delete from zem_binary_pieces where binary_id = old.id;
                        delete from zem_binary_names where binary_id = old.id;
                    end)"}}};
}

/// Gives the log's space back after a large blob, with the next change.
void limitLog(SQLiteConnection& connection) {
    connection.prepare("PRAGMA journal_size_limit = 4194304").execute();
}

SQLiteConnection::Options connectionOptions(const EncryptedBinaryStore::Options& options) {
    SQLiteConnection::Options made{.storage = options.storage,
                                   .migrations = migrations(),
                                   .setUpActions = {encryptionSetUp(options.encryption)},
                                   .fileName = "binaries.db"};
    if (options.storage.isFile()) { // a database in memory has no write-ahead log
        made.setUpActions.push_back(fileSetUp(options.synchronous));
        made.setUpActions.emplace_back(limitLog);
    }
    return made;
}

SQLiteValue valueOf(Time time) {
    return time.time_since_epoch().count();
}

std::optional<Time> timeOf(const SQLiteValue& value) {
    const double* milliseconds = value.number();
    return milliseconds == nullptr
               ? std::nullopt
               : std::optional(
                     Time(std::chrono::milliseconds(static_cast<std::int64_t>(*milliseconds))));
}

double numberOf(SQLiteRow row, int column) {
    return *row.value(column).number();
}

std::uint64_t sizeOf(SQLiteRow row, int column) {
    return static_cast<std::uint64_t>(numberOf(row, column));
}

std::string textOf(SQLiteRow row, int column) {
    return *row.value(column).string();
}

} // namespace

struct BinaryStoreFile::Row {
    double id;
    std::string handle;
    std::uint64_t size;
    std::optional<Time> expiry; // of a cached blob
};

BinaryStoreFile::NoRoom::NoRoom(std::uint64_t size, std::uint64_t stored, std::uint64_t quota)
    : text(fmt::format("the quota is {} bytes, stored blobs have {} of them, found {} bytes more",
                       quota, stored, size)) {}

Time BinaryStoreFile::expiryAfter(Time now, std::int64_t seconds) {
    const auto most = std::chrono::floor<std::chrono::seconds>(farthest - now).count();
    return seconds > most ? farthest
                          : now + std::chrono::seconds(std::max(seconds, std::int64_t{0}));
}

BinaryStoreFile::BinaryStoreFile(const EncryptedBinaryStore::Options& options, Time now)
    : quota(options.quota)
    , connection(std::make_unique<SQLiteConnection>(connectionOptions(options))) {
    // The store returns or logs the error itself. Logged here, too, it would be told twice.
    connection->setFailureHandler([](const SQLiteFailure&) {});
    try {
        removeExpired(now);
    } catch (const SQLiteResult& failure) {
        // A full disk has no room for the change. What has expired is not given out all the same.
        if (failure.rawValue != SQLITE_FULL) {
            throw;
        }
    }
}

BinaryStoreFile::~BinaryStoreFile() = default;

void BinaryStoreFile::execute(const char* sql, std::span<const SQLiteValue> params) {
    connection->prepare(sql).execute(params);
}

std::string BinaryStoreFile::keep(platform::BytesView bytes, const std::string& type,
                                  const std::optional<Name>& name, Time now) {
    std::string handle = platform::makeUUID();
    connection->withTransaction([&](SQLiteConnection&) {
        removeExpired(now);
        makeRoom(bytes.size(), name.has_value());
        const double id =
            insert(handle, type, bytes.size(), name ? std::optional(name->expiry) : std::nullopt);
        write(id, bytes);
        if (name) {
            write(id, *name);
        }
    });
    return handle;
}

void BinaryStoreFile::removeExpired(Time now) {
    const SQLiteValue params[] = {valueOf(now)};
    execute("delete from zem_binaries where expiry <= ?", params);
    execute("delete from zem_binary_names where expiry <= ?", params);
}

void BinaryStoreFile::makeRoom(std::uint64_t size, bool isCached) {
    auto [all, stored] =
        connection
            ->prepare("select total(size), total(iif(expiry is null, size, 0)) from zem_binaries")
            .fetch([](SQLiteRow row) { return std::pair(sizeOf(row, 0), sizeOf(row, 1)); });
    if (isCached && stored + size > quota) {
        throw NoRoom(size, stored, quota);
    }
    while (all > stored && all + size > quota) {
        all -= removeOldestCached();
    }
}

std::uint64_t BinaryStoreFile::removeOldestCached() {
    const auto [id, size] =
        connection
            ->prepare("select id, size from zem_binaries where expiry is not null "
                      "order by last_use limit 1")
            .fetch([](SQLiteRow row) { return std::pair(numberOf(row, 0), sizeOf(row, 1)); });
    removeRow(id);
    return size;
}

void BinaryStoreFile::removeRow(double id) {
    const SQLiteValue params[] = {id};
    execute("delete from zem_binaries where id = ?", params);
}

double BinaryStoreFile::insert(const std::string& handle, const std::string& type,
                               std::uint64_t size, std::optional<Time> expiry) {
    const SQLiteValue params[] = {handle, type, size, expiry ? valueOf(*expiry) : SQLiteValue()};
    execute("insert into zem_binaries (handle, type, size, expiry, last_use) values "
            "(?, ?, ?, ?, coalesce((select max(last_use) from zem_binaries), 0) + 1)",
            params);
    return connection->prepare("select last_insert_rowid()").fetch([](SQLiteRow row) {
        return numberOf(row, 0);
    });
}

void BinaryStoreFile::write(double id, platform::BytesView bytes) {
    SQLiteStatement insert = connection->prepare(
        "insert into zem_binary_pieces (binary_id, position, bytes) values (?, ?, ?)");
    for (std::size_t begin = 0; begin < bytes.size(); begin += pieceLength) {
        const SQLiteValue place[] = {id, begin / pieceLength};
        insert.execute(place, bytes.subspan(begin, std::min(pieceLength, bytes.size() - begin)));
    }
}

void BinaryStoreFile::write(double id, const Name& name) {
    const SQLiteValue row[] = {name.url, id, valueOf(name.expiry)};
    execute("insert into zem_binary_names (url, binary_id, expiry) values (?, ?, ?) "
            "on conflict (url) do update set binary_id = excluded.binary_id, "
            "expiry = excluded.expiry",
            row);
    const SQLiteValue lifetime[] = {id, valueOf(name.expiry)};
    execute("update zem_binaries set expiry = max(expiry, ?2) where id = ?1 "
            "and expiry is not null",
            lifetime);
}

std::optional<BinaryStoreFile::Row> BinaryStoreFile::find(const std::string& uri, Time now) {
    SQLiteStatement statement = connection->prepare(
        "select id, handle, size, expiry from zem_binaries where handle = ?1 union all "
        "select id, handle, size, zem_binaries.expiry from zem_binaries "
        "join zem_binary_names on binary_id = id where url = ?1 and zem_binary_names.expiry > ?2");
    const SQLiteValue params[] = {uri, valueOf(now)};
    statement.bind(params);
    const std::vector<Row> rows = statement.fetchAll([](SQLiteRow row) {
        return Row{numberOf(row, 0), textOf(row, 1), sizeOf(row, 2), timeOf(row.value(3))};
    });
    if (rows.empty()) {
        return std::nullopt;
    }
    if (const Row& found = rows.front(); found.expiry && *found.expiry <= now) {
        removeRow(found.id);
        return std::nullopt;
    }
    return rows.front();
}

void BinaryStoreFile::noteUse(const Row& row) {
    if (!row.expiry) {
        return;
    }
    try {
        const SQLiteValue params[] = {row.id};
        execute("update zem_binaries set last_use = (select max(last_use) from zem_binaries) + 1 "
                "where id = ?",
                params);
    } catch (const SQLiteResult&) {
        // The blob is there all the same, also where the disk is full.
    }
}

std::optional<std::string> BinaryStoreFile::handleOf(const std::string& url, Time now) {
    const std::optional<Row> row = find(url, now);
    if (!row) {
        return std::nullopt;
    }
    noteUse(*row);
    return row->handle;
}

std::optional<platform::Bytes> BinaryStoreFile::read(const std::string& uri, Time now) {
    const std::optional<Row> row = find(uri, now);
    if (!row) {
        return std::nullopt;
    }
    platform::Bytes bytes(row->size);
    std::size_t end = 0;
    SQLiteStatement pieces = connection->prepare(
        "select bytes from zem_binary_pieces where binary_id = ? order by position");
    const SQLiteValue params[] = {row->id};
    pieces.bind(params);
    pieces.forEachRow([&](SQLiteRow each) {
        const platform::BytesView piece = each.blob(0);
        if (piece.size() > bytes.size() - end) {
            throw SQLiteResult(SQLITE_CORRUPT);
        }
        std::ranges::copy(piece, bytes.begin() + static_cast<std::ptrdiff_t>(end));
        end += piece.size();
    });
    if (end != bytes.size()) {
        throw SQLiteResult(SQLITE_CORRUPT);
    }
    noteUse(*row);
    return bytes;
}

bool BinaryStoreFile::remove(const std::string& uri, Time now) {
    const std::optional<Row> row = find(uri, now);
    if (row) {
        removeRow(row->id);
    }
    return row.has_value();
}

void BinaryStoreFile::setName(const std::string& uri, const Name& name, Time now) {
    connection->withTransaction([&](SQLiteConnection&) {
        if (const std::optional<Row> row = find(uri, now)) {
            write(row->id, name);
            removeExpired(now);
        }
    });
}

std::vector<Blob> BinaryStoreFile::blobs(Time now) {
    std::map<double, std::vector<std::string>> urls;
    const SQLiteValue params[] = {valueOf(now)};
    SQLiteStatement names = connection->prepare(
        "select binary_id, url from zem_binary_names where expiry > ? order by url");
    names.bind(params);
    names.forEachRow([&](SQLiteRow row) { urls[numberOf(row, 0)].push_back(textOf(row, 1)); });

    SQLiteStatement rows =
        connection->prepare("select id, handle, type, size, expiry from zem_binaries "
                            "where expiry is null or expiry > ? order by id");
    rows.bind(params);
    return rows.fetchAll([&](SQLiteRow row) {
        const std::optional<Time> expiry = timeOf(row.value(4));
        return Blob{.handle = textOf(row, 1),
                    .type = textOf(row, 2),
                    .size = sizeOf(row, 3),
                    .canonicalUrls = std::move(urls[numberOf(row, 0)]),
                    .expiry = expiry,
                    .kind = expiry ? Blob::Kind::cached : Blob::Kind::stored};
    });
}

} // namespace zem
