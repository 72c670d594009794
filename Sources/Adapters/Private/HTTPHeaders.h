#pragma once

// The header fields of a request, checked, as they are sent.

#include <zem/TesselPluginZEM/NetworkAdapter/Request.h>

#include <expected>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zem {

using HTTPHeaders = std::vector<std::pair<std::string, std::string>>;

/// The fields of `request` with the "Content-Type" of its boundary and the "traceparent" of its
/// observability context, or what was expected instead. "Content-Length" and "Transfer-Encoding"
/// are left out: a length that is not the body's would make a second request of its rest.
std::expected<HTTPHeaders, std::string> headersOf(const Request& request);

/// Takes out what is meant for one server only: credentials, and its name.
void removeServersOwn(HTTPHeaders& headers);

/// Takes out what describes a body.
void removeBodysOwn(HTTPHeaders& headers);

/// Whether two names of fields are one: their case does not count.
bool isSameField(std::string_view first, std::string_view second);

} // namespace zem
