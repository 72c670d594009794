#pragma once

// Opening a database file failed for a reason that SQLite's own text does not name.

#include <zem/SqliteStore/SQLiteResult.h>

#include <filesystem>
#include <string>

namespace zem {

/// Thrown where a SQLiteResult is: it carries the code of the call that failed.
class SQLiteOpeningError final : public SQLiteResult {
  public:
    enum Case {
        /// The file cannot be decrypted with the key and salt that were given.
        notDecrypted,
        /// The first opening of the file was interrupted. The file holds no row, and
        /// `SQLiteStore::removeHalfMade` removes it.
        halfMade,
    };

    SQLiteOpeningError(Case which, SQLiteResult cause, const std::filesystem::path& file);

    /// The reason alone, for people: "its key is another one, or it is damaged (SQLite error 7)".
    const std::string& reason() const { return why; }

    /// The reason after the name of the file.
    const char* what() const noexcept override { return text.c_str(); }

    Case value;

  private:
    std::string why;
    std::string text;
};

} // namespace zem
