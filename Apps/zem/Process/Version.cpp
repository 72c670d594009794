#include "Version.h"

#include <zem/JavaScript/Context.h>
#include <zem/SqliteStore/SQLiteVersions.h>

#include <fmt/format.h>

namespace zem::host {

std::string versionText() {
    const SQLiteVersions versions = sqliteVersions();
    return fmt::format("zem {}\nJavaScriptCore {}\nSQLCipher {}\nSQLite {}", ZEM_VERSION,
                       js::Context::engineVersion(), versions.sqlcipher, versions.sqlite);
}

} // namespace zem::host
