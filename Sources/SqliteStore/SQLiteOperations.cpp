#include <zem/SqliteStore/SQLiteOperations.h>

#include <span>

namespace zem {
namespace {

void appendJoined(std::string& text, std::span<const std::string> parts) {
    const char* separator = "";
    for (const std::string& part : parts) {
        text.append(separator).append(part);
        separator = ",";
    }
}

} // namespace

std::string SQLiteUpsert::sqlString() const {
    std::string sql = "insert into " + table + " (";
    appendJoined(sql, columns);
    sql += ")\nvalues (";
    for (std::size_t index = 0; index < columns.size(); ++index) {
        sql += index == 0 ? "?" : ",?";
    }
    sql += ")\non conflict (";
    appendJoined(sql, conflictColumns);
    sql += ") do update set\n";
    const char* separator = "";
    for (const std::string& column : columns) {
        if (column != keyColumn) {
            sql.append(separator).append(column).append("=excluded.").append(column);
            separator = ",";
        }
    }
    return sql += ";";
}

std::string SQLiteDelete::sqlString() const {
    return "delete from " + table + " where " + keyColumn + "=?";
}

} // namespace zem
