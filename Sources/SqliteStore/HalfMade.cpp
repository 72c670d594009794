#include <zem/SqliteStore/Private/HalfMade.h>

#include <fmt/format.h>

#include <algorithm>

namespace zem {
namespace {

using Rows = std::vector<std::vector<SQLiteValue>>;

Rows objectsOf(SQLiteConnection& database) {
    return database.query("select type, name, tbl_name, sql from sqlite_master", {}).rows;
}

Rows objectsOfFirstVersion(const SQLiteConnection::Migrations& migrations) {
    SQLiteConnection database({.storage = SQLiteStorage::memory(),
                               .migrations = {*migrations.begin()},
                               .setUpActions = {}});
    return objectsOf(database);
}

bool isEmpty(SQLiteConnection& database, const std::string& table) {
    return database.query(fmt::format("select 1 from \"{}\" limit 1", table), {}).rows.empty();
}

} // namespace

bool isHalfMade(SQLiteConnection& database, const SQLiteConnection::Migrations& migrations) {
    if (migrations.empty() ||
        database.query("PRAGMA user_version", {}).rows != Rows{{SQLiteValue(0)}}) {
        return false;
    }
    const Rows found = objectsOf(database);
    const Rows expected = objectsOfFirstVersion(migrations);
    return !found.empty() && std::ranges::all_of(found, [&](const auto& object) {
        return std::ranges::find(expected, object) != expected.end() &&
               (object[0] != SQLiteValue("table") || isEmpty(database, *object[1].string()));
    });
}

} // namespace zem
