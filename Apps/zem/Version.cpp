#include "Version.h"

#include <zem/JavaScript/Context.h>

#include <fmt/format.h>

namespace zem::host {

std::string versionText() {
    return fmt::format("zem {}\nJavaScriptCore {}", ZEM_VERSION, js::Context::engineVersion());
}

} // namespace zem::host
