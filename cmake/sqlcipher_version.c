/* Prints the version of the SQLCipher it is linked with; the build asks before it takes one. */
#include <sqlite3.h>

#include <stdio.h>

int main(void) {
    sqlite3* database = 0;
    sqlite3_stmt* statement = 0;
    if (sqlite3_open(":memory:", &database) != SQLITE_OK)
        return 1;
    if (sqlite3_prepare_v2(database, "PRAGMA cipher_version", -1, &statement, 0) != SQLITE_OK)
        return 1;
    if (sqlite3_step(statement) != SQLITE_ROW)
        return 1;
    printf("%s\n", (const char*)sqlite3_column_text(statement, 0));
    return 0;
}
