#include <zem/Platform/UTF8.h>

#include <glib.h>

namespace zem::platform {

bool isUTF8(std::string_view text) {
    const char* end = nullptr;
    // GLib stops at a NUL.
    while (!text.empty() && g_utf8_validate_len(text.data(), text.size(), &end) == FALSE) {
        if (*end != '\0') {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    }
    return true;
}

} // namespace zem::platform
