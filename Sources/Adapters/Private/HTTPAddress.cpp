#include <zem/Adapters/Private/HTTPAddress.h>

#include <algorithm>
#include <cctype>
#include <curl/curl.h>
#include <memory>

namespace zem {

namespace {

struct Free {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
    void operator()(char* text) const { curl_free(text); }
};
using ParsedURL = std::unique_ptr<CURLU, Free>;

/// Empty when there is none.
std::string part(const ParsedURL& url, CURLUPart which, unsigned int flags = 0) {
    char* text = nullptr;
    const CURLUcode code = curl_url_get(url.get(), which, &text, flags);
    const std::unique_ptr<char, Free> owned(text);
    return code == CURLUE_OK && text != nullptr ? std::string(text) : std::string();
}

std::string lowerCase(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    return text;
}

std::string percentEncoded(std::string_view text, std::string_view kept) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    result.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte < 0x80 && std::isalnum(byte) != 0) ||
            kept.find(character) != std::string_view::npos) {
            result += character;
        } else {
            result += '%';
            result += digits[byte >> 4];
            result += digits[byte & 0xF];
        }
    }
    return result;
}

/// As it stands, where a path may hold it. A path may bring a query along, and may be encoded
/// already; a "#" can only be a part of a name, since no fragment is ever sent.
std::string encodedPath(const std::string& path) {
    std::string result = percentEncoded(path, "-._~!$&'()*+,;=:@/?%");
    return result.starts_with('/') ? result : "/" + result;
}

void appendQuery(std::string& url, const std::map<std::string, std::string>& parameters) {
    constexpr std::string_view unreserved = "-._~";
    char separator = url.find('?') == std::string::npos ? '?' : '&';
    for (const auto& [name, value] : parameters) {
        url += separator;
        url += percentEncoded(name, unreserved) + "=" + percentEncoded(value, unreserved);
        separator = '&';
    }
}

std::expected<ParsedURL, std::string> parse(const std::string& url) {
    if (holdsControlCharacter(url)) {
        return std::unexpected("expected a URL, found one with a control character in it");
    }
    ParsedURL parsed(curl_url());
    const CURLUcode code = curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(),
                                        CURLU_NON_SUPPORT_SCHEME | CURLU_DISALLOW_USER);
    if (code == CURLUE_USER_NOT_ALLOWED) {
        return std::unexpected("expected a URL without credentials, found one with credentials");
    }
    if (code != CURLUE_OK) {
        return std::unexpected(std::string("expected an http or https URL: ") +
                               curl_url_strerror(code));
    }
    const std::string scheme = part(parsed, CURLUPART_SCHEME);
    if (scheme != "http" && scheme != "https") {
        return std::unexpected("expected an http or https URL, found the scheme \"" + scheme +
                               "\"");
    }
    return parsed;
}

HTTPAddress addressOf(const ParsedURL& parsed) {
    const std::string scheme = part(parsed, CURLUPART_SCHEME);
    return {
        .url = part(parsed, CURLUPART_URL),
        .scheme = scheme,
        .origin = scheme + "://" + lowerCase(part(parsed, CURLUPART_HOST)) + ":" +
                  part(parsed, CURLUPART_PORT, CURLU_DEFAULT_PORT),
    };
}

/// The origin that a request's host stands for.
std::expected<HTTPAddress, std::string> parseHost(const std::string& host,
                                                  const std::string& defaultScheme) {
    const bool carriesScheme = host.find("://") != std::string::npos;
    const auto parsed = parse(carriesScheme ? host : defaultScheme + "://" + host);
    if (!parsed) {
        return std::unexpected("host: " + parsed.error());
    }
    if (part(*parsed, CURLUPART_PATH) != "/" || !part(*parsed, CURLUPART_QUERY).empty() ||
        !part(*parsed, CURLUPART_FRAGMENT).empty()) {
        return std::unexpected("host: expected a host, perhaps with a scheme and a port, found "
                               "more of a URL");
    }
    return addressOf(*parsed);
}

} // namespace

bool holdsControlCharacter(std::string_view text) {
    return std::ranges::any_of(
        text, [](unsigned char character) { return character < 0x20 || character == 0x7F; });
}

std::expected<HTTPAddress, std::string> parseAddress(const std::string& url) {
    const auto parsed = parse(url);
    if (!parsed) {
        return std::unexpected(parsed.error());
    }
    return addressOf(*parsed);
}

std::expected<HTTPAddress, std::string> parseBase(const std::string& url) {
    const auto parsed = parse(url);
    if (!parsed) {
        return std::unexpected(parsed.error());
    }
    if (url.find_first_of("?#") != std::string::npos) {
        return std::unexpected("expected a URL that ends with its path, found a query or a "
                               "fragment");
    }
    return addressOf(*parsed);
}

std::expected<HTTPAddress, std::string> addressOf(const Request& request, const HTTPAddress& base) {
    if (holdsControlCharacter(request.path)) {
        return std::unexpected("path: expected a path, found one with a control character in it");
    }
    const auto server = request.host ? parseHost(*request.host, base.scheme)
                                     : std::expected<HTTPAddress, std::string>(base);
    if (!server) {
        return server;
    }
    std::string url = server->url;
    if (url.ends_with('/')) {
        url.pop_back();
    }
    url += encodedPath(request.path);
    appendQuery(url, request.queryParams);
    // The rest behind the server's name is encoded, and can only be a path and a query.
    return HTTPAddress{std::move(url), server->scheme, server->origin};
}

} // namespace zem
