#pragma once

// Where a database lives.

#include <filesystem>
#include <utility>
#include <variant>

namespace zem {

/// A folder, in which the database is the file "zem.db", or the process's memory.
struct SQLiteStorage {
    struct File {
        std::filesystem::path folder;
        bool operator==(const File&) const = default;
    };
    struct Memory {
        bool operator==(const Memory&) const = default;
    };

    /// The folder is created, with the ones it lies in, when the database is opened.
    static SQLiteStorage file(std::filesystem::path folder) { return {File{std::move(folder)}}; }
    static SQLiteStorage memory() { return {Memory{}}; }

    bool isFile() const { return std::holds_alternative<File>(value); }

    bool operator==(const SQLiteStorage&) const = default;

    std::variant<File, Memory> value;
};

} // namespace zem
