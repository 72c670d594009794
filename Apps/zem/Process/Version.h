#pragma once

#include <string>

namespace zem::host {

/// One line each for zem, the engine, SQLCipher and SQLite.
std::string versionText();

} // namespace zem::host
