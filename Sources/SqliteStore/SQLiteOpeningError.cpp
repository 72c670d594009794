#include <zem/SqliteStore/SQLiteOpeningError.h>

#include <fmt/format.h>

namespace zem {
namespace {

const char* describe(SQLiteOpeningError::Case which) {
    switch (which) {
    case SQLiteOpeningError::notDecrypted:
        return "its key is another one, or it is damaged";
    case SQLiteOpeningError::halfMade:
        return "its first opening was interrupted; it holds no row, and "
               "SQLiteStore::removeHalfMade removes it";
    }
    return "";
}

} // namespace

SQLiteOpeningError::SQLiteOpeningError(Case which, SQLiteResult cause,
                                       const std::filesystem::path& file)
    : SQLiteResult(cause)
    , value(which)
    , why(fmt::format("{} (SQLite error {})", describe(which), cause.rawValue))
    , text(fmt::format("cannot open the database {}: {}", file.string(), why)) {}

} // namespace zem
