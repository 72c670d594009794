#include <zem/Platform/URL.h>

#include <glib.h>

#include <cstdio>
#include <memory>
#include <system_error>

namespace zem::platform {

namespace {

struct Free {
    void operator()(char* text) const { g_free(text); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(GUri* uri) const { g_uri_unref(uri); }
    void operator()(GBytes* bytes) const { g_bytes_unref(bytes); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

std::string orEmpty(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

/// GLib takes any byte in most places; a URL is made of a few ASCII characters only.
bool mayStandInURL(char character) {
    return g_ascii_isalnum(character) ||
           std::string_view("-._~:/?#[]@!$&'()*+,;=%").find(character) != std::string_view::npos;
}

/// The bytes that percent-encoded text stands for: they need not be UTF-8, as a path on Linux is
/// not.
std::string decoded(const char* text) {
    const Owned<GBytes> bytes(g_uri_unescape_bytes(text, -1, nullptr, nullptr));
    std::size_t length = 0;
    const void* data = bytes ? g_bytes_get_data(bytes.get(), &length) : nullptr;
    return data == nullptr ? std::string() : std::string(static_cast<const char*>(data), length);
}

} // namespace

std::expected<URL, std::string> URL::parse(std::string_view text) {
    for (const char character : text) {
        if (!mayStandInURL(character)) {
            char name[8];
            std::snprintf(name, sizeof name, "0x%02X", static_cast<unsigned char>(character));
            return std::unexpected("a URL may not hold the byte " + std::string(name));
        }
    }
    URL url;
    url.text = text;
    GError* failure = nullptr;
    const Owned<GUri> uri(g_uri_parse(url.text.c_str(), G_URI_FLAGS_ENCODED, &failure));
    if (!uri) {
        return std::unexpected(std::string(Owned<GError>(failure)->message));
    }
    url.schemeText = orEmpty(g_uri_get_scheme(uri.get()));
    url.hostText = orEmpty(g_uri_get_host(uri.get()));
    url.pathText = decoded(g_uri_get_path(uri.get()));
    return url;
}

URL URL::file(const std::filesystem::path& path) {
    std::filesystem::path full = std::filesystem::current_path() / path;
    full = full.lexically_normal();
    if (!full.has_filename() && full.has_relative_path()) {
        full = full.parent_path(); // one path, one URL: "/a/" is "/a"
    }
    GError* failure = nullptr;
    const Owned<char> text(g_filename_to_uri(full.c_str(), nullptr, &failure));
    if (!text) {
        const Owned<GError> error(failure);
        throw std::system_error(std::make_error_code(std::errc::invalid_argument), error->message);
    }
    URL url;
    url.text = text.get();
    url.schemeText = "file";
    url.pathText = full.string();
    return url;
}

} // namespace zem::platform
