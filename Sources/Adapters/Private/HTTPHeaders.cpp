#include <zem/Adapters/Private/HTTPHeaders.h>

#include <algorithm>
#include <cctype>
#include <initializer_list>

namespace zem {

namespace {

bool isToken(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](unsigned char character) {
        return (character < 0x80 && std::isalnum(character) != 0) ||
               std::string_view("!#$%&'*+-.^_`|~").find(static_cast<char>(character)) !=
                   std::string_view::npos;
    });
}

bool isOneOf(std::string_view name, std::initializer_list<std::string_view> names) {
    return std::ranges::any_of(names, [&](std::string_view one) { return isSameField(one, name); });
}

/// `count` hexadecimal digits in lower case, not all of them 0; empty when `text` is nothing such.
std::string hexadecimalID(const std::optional<std::string>& text, std::size_t count) {
    if (!text || text->size() != count ||
        !std::ranges::all_of(*text,
                             [](unsigned char digit) { return std::isxdigit(digit) != 0; }) ||
        text->find_first_not_of('0') == std::string::npos) {
        return {};
    }
    std::string result = *text;
    std::ranges::transform(result, result.begin(), [](unsigned char digit) {
        return static_cast<char>(std::tolower(digit));
    });
    return result;
}

/// Empty where the identifiers do not fit one.
std::string traceparentOf(const ObservabilityContext& context) {
    const std::string trace = hexadecimalID(context.traceId, 32);
    const std::string parent = hexadecimalID(context.rootId, 16);
    if (trace.empty() || parent.empty()) {
        return {};
    }
    const bool isSampled = context.isRootActivitySampled.value_or(false);
    return "00-" + trace + "-" + parent + (isSampled ? "-01" : "-00");
}

bool contains(const HTTPHeaders& headers, std::string_view name) {
    return std::ranges::any_of(headers,
                               [&](const auto& field) { return isSameField(field.first, name); });
}

} // namespace

std::expected<HTTPHeaders, std::string> headersOf(const Request& request) {
    HTTPHeaders headers;
    for (const auto& [name, value] : request.headers) {
        if (!isToken(name)) {
            return std::unexpected("headers: expected the name of a field, found characters that "
                                   "no name holds");
        }
        if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
            return std::unexpected("headers: expected the value of " + name +
                                   " on one line, found a line break or a NUL");
        }
        if (!isOneOf(name, {"Content-Length", "Transfer-Encoding"}) &&
            !(request.boundary && isSameField(name, "Content-Type"))) {
            headers.emplace_back(name, value);
        }
    }
    if (request.boundary) {
        if (!isToken(*request.boundary)) {
            return std::unexpected("boundary: expected letters, digits and hyphens, found other "
                                   "characters");
        }
        headers.emplace_back("Content-Type", "multipart/form-data; boundary=" + *request.boundary);
    }
    if (request.observabilityContext && !contains(headers, "traceparent")) {
        if (std::string value = traceparentOf(*request.observabilityContext); !value.empty()) {
            headers.emplace_back("traceparent", std::move(value));
        }
    }
    return headers;
}

void removeServersOwn(HTTPHeaders& headers) {
    std::erase_if(headers, [](const auto& field) {
        return isOneOf(field.first, {"Authorization", "Cookie", "Proxy-Authorization", "Host"});
    });
}

void removeBodysOwn(HTTPHeaders& headers) {
    std::erase_if(headers, [](const auto& field) {
        return isOneOf(field.first, {"Content-Type", "Content-Encoding", "Content-Language",
                                     "Content-Location"});
    });
}

bool isSameField(std::string_view first, std::string_view second) {
    return std::ranges::equal(first, second, [](unsigned char left, unsigned char right) {
        return std::tolower(left) == std::tolower(right);
    });
}

} // namespace zem
