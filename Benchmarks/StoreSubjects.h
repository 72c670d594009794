#pragma once

// The subjects of the store's benchmarks: a database driven by raw SQLCipher calls, and the same
// one driven from JavaScript through the store's plugin. Both hold the same rows under the same
// indexes.

#include <zem/JavaScript/Context.h>
#include <zem/Platform/Bytes.h>
#include <zem/Platform/RunLoop.h>
#include <zem/SqliteStore/Migrations.h>
#include <zem/SqliteStore/SQLiteStore.h>
#include <zem/Tessel/Connection.h>

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <future>
#include <memory>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

/// A folder of its own, removed at the end.
class Folder {
  public:
    Folder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "zem-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no folder can be made at " + pattern);
        }
        path = pattern;
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::filesystem::path path;
};

inline const zem::platform::Bytes& key() {
    static const zem::platform::Bytes bytes(32, 0x5a);
    return bytes;
}
inline const zem::platform::Bytes& salt() {
    static const zem::platform::Bytes bytes(16, 0xa5);
    return bytes;
}

inline constexpr std::string_view insertSQL =
    "insert into zem_data (key,data,metadata)\nvalues (?,?,?)\non conflict (key) do update set\n"
    "data=excluded.data,metadata=excluded.metadata;";
inline constexpr std::string_view selectSQL = "select key, data, metadata from zem_data";
inline constexpr std::string_view pointSQL = "select data from zem_data where key = ?";

/// About 300 bytes. The script below makes the same.
struct Row {
    std::string key;
    std::string data;
    std::string metadata;

    explicit Row(int number)
        : key(fmt::format("Rimvo::RecordRepresentation:0WO{:012}", number))
        , data(fmt::format(
              R"({{"id":"0WO{0:012}","apiName":"WorkOrder","fields":{{"Subject":{{"value":"Pump {0} at site {1}"}},"Status":{{"value":"In Progress"}},"Priority":{{"value":"High"}},"Account":{{"value":"001{1:012}"}},"LastModified":{{"value":"2026-11-20T10:00:00Z"}}}}}})",
              number, number % 97))
        , metadata(fmt::format(R"({{"ingested":{},"expires":1800000000}})", number)) {}
};

inline std::vector<Row> makeRows(int count) {
    std::vector<Row> rows;
    for (int number = 0; number < count; ++number) {
        rows.emplace_back(number);
    }
    return rows;
}

inline void check(int result, int expected, const char* doing) {
    if (result != expected) {
        throw std::runtime_error(fmt::format("{}: SQLite answered {}", doing, result));
    }
}

/// The floor: SQLCipher's C interface and nothing else.
class RawDatabase {
  public:
    explicit RawDatabase(const std::filesystem::path& file) {
        check(sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                              nullptr),
              SQLITE_OK, "open");
        check(sqlite3_key(database, key().data(), static_cast<int>(key().size())), SQLITE_OK,
              "key");
        run("PRAGMA cipher_plaintext_header_size = 32");
        run("PRAGMA cipher_salt = \"x'a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5'\"");
        run("PRAGMA journal_mode = WAL");
        run("PRAGMA synchronous = NORMAL");
    }
    ~RawDatabase() { sqlite3_close_v2(database); }
    RawDatabase(const RawDatabase&) = delete;
    RawDatabase& operator=(const RawDatabase&) = delete;

    void migrate() {
        for (const auto& [version, texts] : zem::MIGRATIONS()) {
            for (const std::string& text : texts) {
                run(text.c_str());
            }
            run(fmt::format("PRAGMA user_version = {}", version).c_str());
        }
    }

    void run(const char* sql) {
        sqlite3_stmt* statement = prepare(sql);
        int result = SQLITE_ROW;
        while (result == SQLITE_ROW) {
            result = sqlite3_step(statement);
        }
        check(result, SQLITE_DONE, sql);
        sqlite3_finalize(statement);
    }

    void upsert(const std::vector<Row>& rows) {
        run("BEGIN TRANSACTION");
        sqlite3_stmt* statement = prepare(insertSQL.data());
        for (const Row& row : rows) {
            sqlite3_reset(statement);
            bind(statement, 1, row.key);
            bind(statement, 2, row.data);
            bind(statement, 3, row.metadata);
            check(sqlite3_step(statement), SQLITE_DONE, "upsert");
        }
        sqlite3_finalize(statement);
        run("COMMIT TRANSACTION");
    }

    /// Into the table "pieces", in rows of `pieceLength` bytes and one transaction.
    void insertPieces(zem::platform::BytesView bytes, std::size_t pieceLength) {
        run("BEGIN TRANSACTION");
        sqlite3_stmt* statement = prepare("insert into pieces (bytes) values (?)");
        for (; !bytes.empty(); bytes = bytes.subspan(std::min(pieceLength, bytes.size()))) {
            sqlite3_reset(statement);
            sqlite3_bind_blob64(statement, 1, bytes.data(), std::min(pieceLength, bytes.size()),
                                SQLITE_STATIC);
            check(sqlite3_step(statement), SQLITE_DONE, "insert");
        }
        sqlite3_finalize(statement);
        run("COMMIT TRANSACTION");
    }

    std::vector<std::string> copyAll() {
        std::vector<std::string> cells;
        sqlite3_stmt* statement = prepare(selectSQL.data());
        while (sqlite3_step(statement) == SQLITE_ROW) {
            for (int column = 0; column < 3; ++column) {
                cells.push_back(text(statement, column));
            }
        }
        sqlite3_finalize(statement);
        return cells;
    }

    std::string read(const std::string& rowKey) {
        sqlite3_stmt* statement = prepare(pointSQL.data());
        bind(statement, 1, rowKey);
        check(sqlite3_step(statement), SQLITE_ROW, "read");
        std::string found = text(statement, 0);
        check(sqlite3_step(statement), SQLITE_DONE, "read");
        sqlite3_finalize(statement);
        return found;
    }

  private:
    sqlite3_stmt* prepare(const char* sql) {
        sqlite3_stmt* statement = nullptr;
        check(sqlite3_prepare_v3(database, sql, -1, 0, &statement, nullptr), SQLITE_OK, sql);
        return statement;
    }
    static void bind(sqlite3_stmt* statement, int position, const std::string& text) {
        sqlite3_bind_text(statement, position, text.c_str(), -1, SQLITE_TRANSIENT);
    }
    static std::string text(sqlite3_stmt* statement, int column) {
        return {reinterpret_cast<const char*>(sqlite3_column_text(statement, column)),
                static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
    }

    sqlite3* database = nullptr;
};

inline zem::SQLiteStore::EncryptionOption encryption() {
    const auto give = [](const zem::platform::Bytes& bytes) {
        return [&bytes] {
            return zem::platform::SecretBytes(bytes);
        };
    };
    return zem::SQLiteStore::EncryptionOption::keyAndSalt(give(key()), give(salt()));
}

inline std::shared_ptr<zem::SQLiteStore>
openStore(const std::filesystem::path& folder,
          zem::SQLiteStore::Synchronous synchronous = zem::SQLiteStore::Synchronous::normal) {
    zem::SQLiteStore::Options options(folder, encryption());
    options.synchronous = synchronous;
    return zem::SQLiteStore::create(std::move(options));
}

/// A JavaScript context on a thread of its own, as the host has it, with the store's plugin.
class Runtime {
  public:
    explicit Runtime(std::shared_ptr<zem::SQLiteStore> opened)
        : store(std::move(opened)) {
        connection.add(*store);
        context.perform([this](zem::js::Scope& scope) {
            const auto done = scope.function(
                "done", 1,
                [this](zem::js::Scope& inner, zem::js::Local,
                       zem::js::Arguments arguments) -> zem::js::Result<zem::js::Local> {
                    ended = std::chrono::steady_clock::now();
                    const bool failed =
                        !arguments.empty() && inner.kind(arguments[0]) == zem::js::Kind::string;
                    heard->set_value(failed ? inner.toText(arguments[0]) : std::string());
                    return inner.undefined();
                });
            (void)scope.set(scope.global(), "done", done);
        });
    }

    void evaluate(std::string_view script) {
        context.perform([&](zem::js::Scope& scope) {
            if (const auto result = scope.evaluate(script, "benchmark.js"); !result) {
                throw std::runtime_error(result.error().text());
            }
        });
    }

    /// How long it takes, in milliseconds, from calling the script on the engine's thread until it
    /// calls `done`.
    double milliseconds(std::string_view script) {
        heard.emplace();
        std::chrono::steady_clock::time_point began;
        context.perform([&](zem::js::Scope& scope) {
            began = std::chrono::steady_clock::now();
            if (const auto result = scope.evaluate(script, "benchmark.js"); !result) {
                throw std::runtime_error(result.error().text());
            }
        });
        if (const std::string failure = heard->get_future().get(); !failure.empty()) {
            throw std::runtime_error(failure);
        }
        return std::chrono::duration<double, std::milli>(ended - began).count();
    }

    void collectGarbage() { context.collectGarbage(); }

  private:
    zem::platform::RunLoopThread thread{"javascript"};
    zem::js::Context context = zem::js::Context::create(thread.runLoop());
    tessel::Connection connection{context};
    std::shared_ptr<zem::SQLiteStore> store;
    std::optional<std::promise<std::string>> heard;
    std::chrono::steady_clock::time_point ended;
};

/// Makes the rows that makeRows makes, and the calls that are measured.
inline constexpr std::string_view script = R"(
    const digits = (number) => String(number).padStart(12, "0");
    const makeRow = (number) => [
        "Rimvo::RecordRepresentation:0WO" + digits(number),
        JSON.stringify({
            id: "0WO" + digits(number),
            apiName: "WorkOrder",
            fields: {
                Subject: { value: `Pump ${number} at site ${number % 97}` },
                Status: { value: "In Progress" },
                Priority: { value: "High" },
                Account: { value: "001" + digits(number % 97) },
                LastModified: { value: "2026-11-20T10:00:00Z" },
            },
        }),
        JSON.stringify({ ingested: number, expires: 1800000000 }),
    ];
    let rows = [];
    function make(first, count) {
        rows = Array.from({ length: count }, (_, index) => makeRow(first + index));
    }
    function upsert() {
        ZemSqliteStore.batchOperations(
            [{
                type: "upsert", table: "zem_data", keyColumn: "key", conflictColumns: ["key"],
                columns: ["key", "data", "metadata"], rows, context: {},
            }],
            done);
    }
    function upsertOneByOne() {
        let left = rows.length;
        rows.forEach((row) => ZemSqliteStore.batchOperations(
            [{
                type: "upsert", table: "zem_data", keyColumn: "key", conflictColumns: ["key"],
                columns: ["key", "data", "metadata"], rows: [row], context: {},
            }],
            (failure) => {
                if (failure !== null) done(failure);
                else if (--left === 0) done();
            }));
    }
    function query(expected) {
        ZemSqliteStore.query("select key, data, metadata from zem_data", [],
            (found) => done(found.rows.length === expected && found.rows[expected - 1].length === 3
                ? null : `found ${found.rows.length} rows`),
            done);
    }
    function points(inFlight) {
        let next = 0;
        let left = rows.length;
        const one = () => {
            if (next === rows.length) return;
            const row = rows[next++];
            ZemSqliteStore.query("select data from zem_data where key = ?", [row[0]],
                (found) => {
                    if (found.rows[0][0] !== row[1]) done("the wrong row");
                    else if (--left === 0) done();
                    else one();
                },
                done);
        };
        for (let count = 0; count < inFlight; ++count) one();
    }
)";

} // namespace bench
