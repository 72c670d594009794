#include <zem/Adapters/Private/Exchange.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/UUID.h>

#include <fmt/core.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <stdexcept>
#include <utility>

namespace zem {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int mostRedirects = 10;

const platform::Log& networkLog() {
    static const platform::Log& log = *new platform::Log("com.quorvane.ZEM", "NetworkAdapter");
    return log;
}

template <class Value>
void set(CURL* handle, CURLoption option, Value value) {
    if (const CURLcode code = curl_easy_setopt(handle, option, value); code != CURLE_OK) {
        throw std::runtime_error(curl_easy_strerror(code));
    }
}

/// libcurl takes 0 for no timeout at all.
long atLeastOne(milliseconds time) {
    return static_cast<long>(std::max<milliseconds::rep>(time.count(), 1));
}

const char* textOf(HTTPMethod method) {
    return httpMethodTexts.at(static_cast<std::size_t>(method)).second.data();
}

std::string_view bodyOf(const Request& request) {
    if (request.bodyData) {
        return {reinterpret_cast<const char*>(request.bodyData->data()), request.bodyData->size()};
    }
    return request.body ? std::string_view(*request.body) : std::string_view();
}

bool isRedirect(std::int64_t status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

/// A POST is repeated as a GET after 301 and 302: servers have come to rely on it.
bool becomesGET(HTTPMethod method, std::int64_t status) {
    return (status == 303 && method != HTTPMethod::HEAD) ||
           ((status == 301 || status == 302) && method == HTTPMethod::POST);
}

/// Unlike any other adapter's.
std::string makeToken() {
    static const auto& begin = *new std::string(platform::makeUUID() + "-");
    static std::atomic<std::uint64_t> count = 0;
    return begin + std::to_string(++count);
}

NetworkError errorOf(CURLcode code, std::string message) {
    return {code == CURLE_OPERATION_TIMEDOUT ? NetworkErrorType::timeout
                                             : NetworkErrorType::unspecified,
            std::move(message)};
}

} // namespace

Exchange::Exchange(Request asked, std::expected<HTTPAddress, std::string> checkedAddress,
                   std::expected<HTTPHeaders, std::string> checkedHeaders, ReceivedBody kind,
                   OnOutcome answering)
    : token(makeToken())
    , request(std::move(asked))
    , onOutcome(std::move(answering))
    , body(std::move(kind)) {
    if (static_cast<std::size_t>(request.method) >= httpMethodTexts.size()) {
        refused = "method: expected a method that HTTPMethod names";
    } else if (!checkedAddress) {
        refused = checkedAddress.error();
    } else if (!checkedHeaders) {
        refused = checkedHeaders.error();
    } else {
        address = *std::move(checkedAddress);
        headers = *std::move(checkedHeaders);
    }
}

CURL* Exchange::start(const CurlNetworkAdapter::Options& options, EasyHandle handle) {
    if (signpost == platform::SignpostID::null()) {
        signpost = networkLog().makeSignpostID();
        const ObservabilityContext trace =
            request.observabilityContext.value_or(ObservabilityContext());
        networkLog().beginInterval(
            signpost, "exchange", "::method:%{public}s traceId:%{public}s rootId:%{public}s",
            {textOf(request.method), trace.traceId.value_or(""), trace.rootId.value_or("")});
    }
    easy = std::move(handle);
    setTransfer(options);
    setRequest();
    setHeaders();
    return easy.get();
}

// The options that every transfer has. The others are set by `start` and taken back by `stop`.
EasyHandle makeEasyHandle(const CurlNetworkAdapter::Options& options) {
    EasyHandle made(curl_easy_init());
    CURL* const handle = made.get();
    if (handle == nullptr) {
        throw std::runtime_error(curl_easy_strerror(CURLE_OUT_OF_MEMORY));
    }
    set(handle, CURLOPT_CONNECTTIMEOUT_MS,
        atLeastOne(std::chrono::duration_cast<milliseconds>(options.connectTimeout)));
    set(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    set(handle, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_2TLS});
    set(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    set(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!options.certificateAuthorities.empty()) {
        set(handle, CURLOPT_CAINFO, options.certificateAuthorities.c_str());
        set(handle, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
    set(handle, CURLOPT_PROXY, "");
    set(handle, CURLOPT_NOSIGNAL, 1L);
    // A name that is still being looked up does not hold up the end of its transfer.
    set(handle, CURLOPT_QUICK_EXIT, 1L);
    set(handle, CURLOPT_ACCEPT_ENCODING, "");
    return made;
}

void Exchange::setTransfer(const CurlNetworkAdapter::Options& options) {
    CURL* const handle = easy.get();
    const auto now = steady_clock::now();
    if (!deadline) {
        deadline = now + std::chrono::duration_cast<milliseconds>(options.totalTimeout);
    }
    set(handle, CURLOPT_TIMEOUT_MS,
        atLeastOne(std::chrono::duration_cast<milliseconds>(*deadline - now)));
    set(handle, CURLOPT_PRIVATE, this);
    set(handle, CURLOPT_ERRORBUFFER, errorText.data());
    set(handle, CURLOPT_WRITEFUNCTION, &Exchange::receive);
    set(handle, CURLOPT_WRITEDATA, this);
    if (options.onProgress) {
        onProgress = &options.onProgress;
        set(handle, CURLOPT_NOPROGRESS, 0L);
        set(handle, CURLOPT_XFERINFOFUNCTION, &Exchange::noteProgress);
        set(handle, CURLOPT_XFERINFODATA, this);
    }
    mostResponseBytes = options.mostResponseBytes;
    errorText.front() = '\0';
    received = 0;
}

/// Some methods have one always, of length 0 if need be: servers ask for a length there. HEAD has
/// none.
bool Exchange::hasBody() const {
    switch (request.method) {
    case HTTPMethod::HEAD:
        return false;
    case HTTPMethod::POST:
    case HTTPMethod::PUT:
    case HTTPMethod::PATCH:
        return true;
    default:
        return !bodyOf(request).empty();
    }
}

void Exchange::setRequest() {
    CURL* const handle = easy.get();
    set(handle, CURLOPT_URL, address.url.c_str());
    if (request.method == HTTPMethod::HEAD) {
        set(handle, CURLOPT_NOBODY, 1L);
        return;
    }
    if (hasBody()) {
        // Read from the request itself, not copied.
        const std::string_view sent = bodyOf(request);
        set(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(sent.size()));
        set(handle, CURLOPT_POSTFIELDS, sent.empty() ? "" : sent.data());
    }
    set(handle, CURLOPT_CUSTOMREQUEST, textOf(request.method));
}

void Exchange::setHeaders() {
    lines.reset();
    const auto append = [&](const std::string& line) {
        curl_slist* const longer = curl_slist_append(lines.get(), line.c_str());
        if (longer == nullptr) {
            throw std::runtime_error(curl_easy_strerror(CURLE_OUT_OF_MEMORY));
        }
        static_cast<void>(lines.release()); // now the beginning of the longer one
        lines.reset(longer);
    };
    const auto isGiven = [&](std::string_view name) {
        return std::ranges::any_of(
            headers, [&](const auto& field) { return isSameField(field.first, name); });
    };
    // libcurl's own, where there is a body: a type that nobody gave, and a second's wait for
    // servers that do not know it.
    if (hasBody()) {
        for (const std::string name : {"Content-Type", "Expect"}) {
            if (!isGiven(name)) {
                append(name + ":");
            }
        }
    }
    for (const auto& [name, value] : headers) {
        // libcurl's spelling of a field without a value.
        const bool isBlank = value.find_first_not_of(" \t") == std::string::npos;
        std::string line = name;
        line += isBlank ? ";" : ": ";
        if (!isBlank) {
            line += value;
        }
        append(line);
    }
    set(easy.get(), CURLOPT_HTTPHEADER, lines.get());
}

int Exchange::noteProgress(void* exchange, curl_off_t toReceive, curl_off_t received,
                           curl_off_t toSend, curl_off_t sent) {
    Exchange& self = *static_cast<Exchange*>(exchange);
    const auto count = [](curl_off_t bytes) {
        return static_cast<std::uint64_t>(std::max<curl_off_t>(bytes, 0));
    };
    self.progress = {self.token, count(sent), count(toSend), count(received), count(toReceive)};
    (*self.onProgress)(self.progress);
    return 0;
}

std::size_t Exchange::receive(char* data, std::size_t size, std::size_t count, void* exchange) {
    const bool kept = static_cast<Exchange*>(exchange)->keep({data, size * count});
    return kept ? size * count : CURL_WRITEFUNC_ERROR;
}

bool Exchange::keep(std::string_view piece) {
    curl_off_t announced = -1;
    curl_easy_getinfo(easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    const auto length = static_cast<std::size_t>(std::max<curl_off_t>(announced, 0));
    if (length > mostResponseBytes || piece.size() > mostResponseBytes - received) {
        failure = fmt::format("the response body is longer than {} bytes, the most that is taken",
                              mostResponseBytes);
        return false;
    }
    try {
        std::visit(
            [&](auto& bytes) {
                if (received == 0) {
                    bytes.reserve(length); // once: growing would hold it twice
                }
                const auto* const first = reinterpret_cast<
                    const typename std::remove_reference_t<decltype(bytes)>::value_type*>(
                    piece.data());
                bytes.insert(bytes.end(), first, first + piece.size());
            },
            body);
    } catch (const std::bad_alloc&) {
        failure = "there is not enough memory for the response body";
        return false;
    }
    received += piece.size();
    return true;
}

std::optional<Exchange::Outcome> Exchange::finish(CURLcode code) {
    if (!failure.empty()) {
        return std::unexpected(errorOf(code, std::move(failure)));
    }
    if (code != CURLE_OK) {
        return std::unexpected(errorOf(code, errorText.front() != '\0'
                                                 ? std::string(errorText.data())
                                                 : std::string(curl_easy_strerror(code))));
    }
    long status = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
    const auto follows = followRedirect(status);
    if (!follows) {
        return std::unexpected(errorOf(code, follows.error()));
    }
    if (*follows) {
        return std::nullopt;
    }
    return takeResponse(status);
}

/// Whether there is a redirect, which the exchange then takes for its address; or why it does not.
std::expected<bool, std::string> Exchange::followRedirect(std::int64_t status) {
    const char* location = nullptr;
    curl_easy_getinfo(easy.get(), CURLINFO_REDIRECT_URL, &location);
    if (!isRedirect(status) || location == nullptr) {
        return false;
    }
    if (++redirects > mostRedirects) {
        return std::unexpected(fmt::format("more than {} redirects", mostRedirects));
    }
    auto next = parseAddress(location);
    if (!next) {
        return std::unexpected("redirect: " + next.error());
    }
    if (address.isSecure() && !next->isSecure()) {
        return std::unexpected("redirect: expected an https URL after an https one, found an http "
                               "one");
    }
    if (next->origin != address.origin) {
        removeServersOwn(headers);
    }
    if (becomesGET(request.method, status)) {
        request.method = HTTPMethod::GET;
        request.body.reset();
        request.bodyData.reset();
        removeBodysOwn(headers);
    }
    address = *std::move(next);
    std::visit([](auto& bytes) { bytes = {}; }, body);
    return true;
}

ReceivedResponse Exchange::takeResponse(std::int64_t status) {
    ReceivedResponse response{status, {}, std::move(body)};
    curl_header* field = nullptr;
    while ((field = curl_easy_nextheader(easy.get(), CURLH_HEADER, -1, field)) != nullptr) {
        std::string_view value = field->value;
        if (value.ends_with('\r')) { // libcurl leaves it on an empty value
            value.remove_suffix(1);
        }
        const auto known = std::ranges::find_if(response.headers, [&](const auto& other) {
            return isSameField(other.first, field->name);
        });
        if (known == response.headers.end()) {
            response.headers.emplace(field->name, value);
        } else {
            known->second.append(", ").append(value);
        }
    }
    return response;
}

EasyHandle Exchange::stop() {
    // Resets the options that `start` of the next exchange might leave as they are, and pointers to
    // this one.
    CURL* const handle = easy.get();
    set(handle, CURLOPT_POSTFIELDS, static_cast<const char*>(nullptr));
    set(handle, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t{-1});
    set(handle, CURLOPT_HTTPGET, 1L);
    set(handle, CURLOPT_CUSTOMREQUEST, static_cast<const char*>(nullptr));
    set(handle, CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
    set(handle, CURLOPT_ERRORBUFFER, static_cast<char*>(nullptr));
    set(handle, CURLOPT_WRITEDATA, static_cast<void*>(nullptr));
    set(handle, CURLOPT_NOPROGRESS, 1L);
    set(handle, CURLOPT_XFERINFODATA, static_cast<void*>(nullptr));
    set(handle, CURLOPT_PRIVATE, static_cast<void*>(nullptr));
    return std::move(easy);
}

void Exchange::answer(Outcome outcome) {
    if (outcome) {
        networkLog().endInterval(signpost, "exchange", "::status:%{public}d", {outcome->status});
    } else {
        networkLog().endInterval(
            signpost, "exchange", "::error:%{public}s",
            {networkErrorTypeTexts.at(static_cast<std::size_t>(outcome.error().type)).second});
    }
    platform::Mutex::assertNoneHeld("an exchange is answered");
    if (onProgress != nullptr) {
        progress.token = token; // also where no byte has travelled
        progress.isOver = true;
        (*onProgress)(progress);
    }
    onOutcome(std::move(outcome));
}

} // namespace zem
