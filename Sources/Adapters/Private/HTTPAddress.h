#pragma once

// The URL of an exchange, checked.

#include <zem/TesselPluginZEM/NetworkAdapter/Request.h>

#include <expected>
#include <string>
#include <string_view>

namespace zem {

/// An absolute http or https URL without credentials.
struct HTTPAddress {
    std::string url;
    std::string scheme; ///< "http" or "https"
    /// Scheme, host and port, in one spelling: what is equal is one server.
    std::string origin;

    bool isSecure() const { return scheme == "https"; }
};

/// `url` as an address, or what was expected instead; no part of a URL but its scheme is named.
std::expected<HTTPAddress, std::string> parseAddress(const std::string& url);

/// The base URL of an adapter: an address whose path leads every path of a request that names no
/// host of its own. It has no query and no fragment.
std::expected<HTTPAddress, std::string> parseBase(const std::string& url);

/// The address of `request`: its host, or that of `base` with the path of `base`; its path; its
/// query parameters. Bytes that a URL may not hold are percent-encoded.
std::expected<HTTPAddress, std::string> addressOf(const Request& request, const HTTPAddress& base);

/// Whether `text` holds a control character. One of these could end a line of a request early.
bool holdsControlCharacter(std::string_view text);

} // namespace zem
