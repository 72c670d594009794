#pragma once

// The errors of opening a database besides those that SQLite itself reports.

#include <exception>

namespace zem {

class SQLiteConnectionError : public std::exception {
  public:
    enum Case { sqlcipherLinkError, walJournalModeError };

    SQLiteConnectionError(Case which)
        : value(which) {}

    /// The message.
    const char* rawValue() const noexcept {
        switch (value) {
        case sqlcipherLinkError:
            return "Application appears to be linked to SQLite, not SQLCipher";
        case walJournalModeError:
            return "Unable to set journal mode to WAL";
        }
        return "";
    }

    const char* what() const noexcept override { return rawValue(); }

    bool operator==(const SQLiteConnectionError& other) const { return value == other.value; }

    Case value;
};

} // namespace zem
