#include <Support/LoopbackServer.h>
#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cctype>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace test {

namespace {

void require(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// A socket on a free port of 127.0.0.1, and that port.
std::pair<int, int> bindToFreePort(bool shared) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(descriptor >= 0, "socket");
    const int on = 1;
    if (shared) {
        require(setsockopt(descriptor, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on) == 0,
                "SO_REUSEPORT");
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    require(bind(descriptor, general, length) == 0, "bind");
    require(getsockname(descriptor, general, &length) == 0, "getsockname");
    return {descriptor, ntohs(address.sin_port)};
}

/// Appends what comes next; false at the end of the connection.
bool receive(int descriptor, std::string& buffer) {
    std::array<char, 65536> piece;
    ssize_t length = 0;
    do {
        length = recv(descriptor, piece.data(), piece.size(), 0);
    } while (length < 0 && errno == EINTR);
    if (length <= 0) {
        return false;
    }
    buffer.append(piece.data(), static_cast<std::size_t>(length));
    return true;
}

std::string upTo(std::string& text, std::string_view end) {
    const std::size_t found = text.find(end);
    std::string first = text.substr(0, found);
    text.erase(0, found == std::string::npos ? found : found + end.size());
    return first;
}

LoopbackServer::Request parseHead(std::string head) {
    LoopbackServer::Request request;
    request.method = upTo(head, " ");
    request.target = upTo(head, " ");
    upTo(head, "\r\n");
    while (!head.empty()) {
        std::string value = upTo(head, "\r\n");
        std::string name = upTo(value, ":");
        std::ranges::transform(name, name.begin(),
                               [](unsigned char letter) { return std::tolower(letter); });
        value.erase(0, value.find_first_not_of(' '));
        request.headers.emplace(std::move(name), std::move(value));
    }
    return request;
}

std::string urlOf(int port) {
    return "http://127.0.0.1:" + std::to_string(port);
}

} // namespace

std::optional<std::string> LoopbackServer::Request::header(const std::string& name) const {
    std::optional<std::string> joined;
    const auto [first, last] = headers.equal_range(name);
    for (auto field = first; field != last; ++field) {
        joined = joined ? *joined + ", " + field->second : field->second;
    }
    return joined;
}

bool LoopbackServer::Connection::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t length = ::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (length < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    }
    return true;
}

bool LoopbackServer::Connection::respond(int status, std::string_view fields,
                                         std::string_view body) const {
    return send("HTTP/1.1 " + std::to_string(status) + " Told\r\n" + std::string(fields) +
                "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body));
}

void LoopbackServer::Connection::waitUntilClosed() const {
    std::string ignored;
    while (receive(descriptor, ignored)) {
    }
}

void LoopbackServer::Connection::waitUntilClosed(std::chrono::milliseconds limit) const {
    pollfd watched{.fd = descriptor, .events = POLLIN, .revents = 0};
    const auto end = std::chrono::steady_clock::now() + limit;
    auto left = limit;
    while (left.count() > 0 && poll(&watched, 1, static_cast<int>(left.count())) < 0) {
        left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    }
}

LoopbackServer::LoopbackServer(Handler handling, Handler handlingHeads)
    : handler(std::move(handling))
    , onHead(std::move(handlingHeads)) {
    std::tie(listening, portNumber) = bindToFreePort(false);
    require(listen(listening, 64) == 0, "listen");
    accepting = std::thread([this] { accept(); });
}

LoopbackServer::~LoopbackServer() {
    {
        std::scoped_lock lock(mutex);
        isStopping = true;
        for (const int descriptor : connections) {
            shutdown(descriptor, SHUT_RDWR);
        }
    }
    shutdown(listening, SHUT_RDWR); // ends the wait in accept()
    accepting.join();
    for (std::thread& thread : threads) {
        thread.join();
    }
    ::close(listening);
}

std::string LoopbackServer::url() const {
    return urlOf(portNumber);
}

std::vector<LoopbackServer::Request> LoopbackServer::requests() const {
    std::scoped_lock lock(mutex);
    return received;
}

std::vector<std::string> LoopbackServer::lines() const {
    std::vector<std::string> result;
    for (const Request& request : requests()) {
        result.push_back(request.method + " " + request.target);
    }
    return result;
}

void LoopbackServer::accept() {
    while (true) {
        const int descriptor = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        std::scoped_lock lock(mutex);
        if (isStopping) {
            if (descriptor >= 0) {
                ::close(descriptor);
            }
            return;
        }
        if (descriptor >= 0) {
            connections.push_back(descriptor);
            threads.emplace_back([this, descriptor] { serve(descriptor); });
        }
    }
}

/// The next request of a connection; nothing at its end.
std::optional<LoopbackServer::Request> LoopbackServer::readRequest(Connection& connection,
                                                                   std::string& buffer) const {
    while (buffer.find("\r\n\r\n") == std::string::npos) {
        if (!receive(connection.descriptor, buffer)) {
            return std::nullopt;
        }
    }
    Request request = parseHead(upTo(buffer, "\r\n\r\n"));
    const std::size_t length = std::stoul(request.header("content-length").value_or("0"));
    if (onHead) {
        request.body = buffer.substr(0, length);
        onHead(request, connection);
    }
    while (buffer.size() < length) {
        if (connection.ending != Connection::Ending::none ||
            !receive(connection.descriptor, buffer)) {
            return std::nullopt;
        }
    }
    request.body = buffer.substr(0, length);
    buffer.erase(0, length);
    return request;
}

void LoopbackServer::serve(int descriptor) {
    Connection connection(descriptor);
    std::string buffer;
    while (connection.ending == Connection::Ending::none) {
        const auto request = readRequest(connection, buffer);
        if (!request) {
            break;
        }
        {
            std::scoped_lock lock(mutex);
            received.push_back(*request);
        }
        handler(*request, connection);
    }
    if (connection.ending == Connection::Ending::reset) {
        const linger none{.l_onoff = 1, .l_linger = 0};
        setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    }
    std::scoped_lock lock(mutex);
    connections.remove(descriptor);
    ::close(descriptor);
}

RefusingPort::RefusingPort(bool shared) {
    std::tie(descriptor, portNumber) = bindToFreePort(shared);
}

RefusingPort::~RefusingPort() {
    ::close(descriptor);
}

std::string RefusingPort::url() const {
    return urlOf(portNumber);
}

} // namespace test
