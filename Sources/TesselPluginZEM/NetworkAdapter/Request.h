#pragma once

// An HTTP exchange as the runtime asks for it, and its two outcomes, as they cross the bridge.

#include <zem/Core/AdapterRequestContext.h>
#include <zem/Platform/Bytes.h>
#include <zem/Tessel/Coding.h>

#include <boost/describe.hpp>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace zem {

enum class HTTPMethod { GET, PUT, POST, PATCH, DELETE, HEAD, OPTIONS };

inline constexpr std::array<std::pair<HTTPMethod, std::string_view>, 7> httpMethodTexts{{
    {HTTPMethod::GET, "GET"},
    {HTTPMethod::PUT, "PUT"},
    {HTTPMethod::POST, "POST"},
    {HTTPMethod::PATCH, "PATCH"},
    {HTTPMethod::DELETE, "DELETE"},
    {HTTPMethod::HEAD, "HEAD"},
    {HTTPMethod::OPTIONS, "OPTIONS"},
}};

/// How urgently an exchange is scheduled and its result delivered; `normal` when nothing is said.
enum class RequestPriority { high, normal, background };

inline constexpr std::array<std::pair<RequestPriority, std::string_view>, 3> requestPriorityTexts{{
    {RequestPriority::high, "high"},
    {RequestPriority::normal, "normal"},
    {RequestPriority::background, "background"},
}};

struct Request {
    HTTPMethod method = HTTPMethod::GET;
    std::string path;
    std::optional<std::string> host; ///< the network adapter's default host when absent
    std::map<std::string, std::string> queryParams;
    std::map<std::string, std::string> headers;
    /// The body as text. For an upload that names files, it is the JSON text that lists them.
    std::optional<std::string> body;
    /// Takes the place of `body`. Set by the plugin when it has built a multipart form.
    std::optional<platform::Bytes> bodyData;
    /// The boundary of the multipart form in `bodyData`, set together with it. The network adapter
    /// then sends the "Content-Type" of a multipart form with this boundary: `headers` holds none.
    std::optional<std::string> boundary;
    std::optional<RequestPriority> priority;
    std::optional<ObservabilityContext> observabilityContext;

    bool operator==(const Request&) const = default;
};
BOOST_DESCRIBE_STRUCT(Request, (),
                      (method, path, host, queryParams, headers, body, bodyData, boundary, priority,
                       observabilityContext))

struct Response {
    std::int64_t status = 0;
    std::map<std::string, std::string> headers;
    std::optional<std::string> body;

    bool operator==(const Response&) const = default;
};
BOOST_DESCRIBE_STRUCT(Response, (), (status, headers, body))

enum class NetworkErrorType { timeout, unspecified };

inline constexpr std::array<std::pair<NetworkErrorType, std::string_view>, 2> networkErrorTypeTexts{
    {
        {NetworkErrorType::timeout, "timeout"},
        {NetworkErrorType::unspecified, "unspecified"},
    }};

/// There was no response.
struct NetworkError {
    NetworkErrorType type = NetworkErrorType::unspecified;
    std::optional<std::string> message; ///< for people

    bool operator==(const NetworkError&) const = default;
};
BOOST_DESCRIBE_STRUCT(NetworkError, (), (type, message))

} // namespace zem

namespace tessel {

template <>
struct RawTexts<zem::HTTPMethod> {
    static constexpr auto& table = zem::httpMethodTexts;
};

template <>
struct RawTexts<zem::RequestPriority> {
    static constexpr auto& table = zem::requestPriorityTexts;
};

template <>
struct RawTexts<zem::NetworkErrorType> {
    static constexpr auto& table = zem::networkErrorTypeTexts;
};

} // namespace tessel
