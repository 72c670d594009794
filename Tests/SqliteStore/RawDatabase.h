#pragma once

// A database file opened past the store, with this program's own copy of SQLCipher: to prepare
// files and to look at what a store left. Never for a file that a store has open, because two
// copies of the library in one process take each other's file locks away.

#include <sqlite3.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace test {

/// A row's cells, each as text; NULL reads "NULL".
using RawRow = std::vector<std::string>;

class RawDatabase {
  public:
    struct Secrets {
        std::string key;
        std::optional<std::string> saltHex = std::nullopt;
    };

    /// Opens or creates the file, encrypted when there are secrets, plain when there are none.
    explicit RawDatabase(const std::filesystem::path& file,
                         const std::optional<Secrets>& secrets = std::nullopt) {
        if (sqlite3_open(file.c_str(), &handle) != SQLITE_OK) {
            throw std::runtime_error("cannot open " + file.string());
        }
        if (secrets) {
            sqlite3_key(handle, secrets->key.data(), static_cast<int>(secrets->key.size()));
            if (secrets->saltHex) {
                execute("PRAGMA cipher_plaintext_header_size = 32");
                execute("PRAGMA cipher_salt = \"x'" + *secrets->saltHex + "'\"");
            }
        }
    }
    ~RawDatabase() { sqlite3_close(handle); }
    RawDatabase(const RawDatabase&) = delete;
    RawDatabase& operator=(const RawDatabase&) = delete;

    /// The result code of running `sql`.
    int run(const std::string& sql) {
        return sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr);
    }

    void execute(const std::string& sql) {
        if (const int result = run(sql); result != SQLITE_OK) {
            throw std::runtime_error(sql + ": " + sqlite3_errmsg(handle) + " (" +
                                     std::to_string(result) + ")");
        }
    }

    std::vector<RawRow> rows(const std::string& sql) {
        std::vector<RawRow> result;
        const auto append = [](void* context, int count, char** cells, char**) {
            RawRow& row = static_cast<std::vector<RawRow>*>(context)->emplace_back();
            for (int column = 0; column < count; ++column) {
                row.emplace_back(cells[column] == nullptr ? "NULL" : cells[column]);
            }
            return 0;
        };
        char* message = nullptr;
        if (sqlite3_exec(handle, sql.c_str(), append, &result, &message) != SQLITE_OK) {
            const std::string why = message == nullptr ? "" : message;
            sqlite3_free(message);
            throw std::runtime_error(sql + ": " + why);
        }
        return result;
    }

    /// The first column of every row.
    std::vector<std::string> column(const std::string& sql) {
        std::vector<std::string> result;
        for (RawRow& row : rows(sql)) {
            result.push_back(std::move(row.at(0)));
        }
        return result;
    }

  private:
    sqlite3* handle = nullptr;
};

} // namespace test
