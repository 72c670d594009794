#pragma once

// An HTTP server on 127.0.0.1 in a process of its own, so that neither its time nor its memory is
// part of what is measured. It answers every request alike.

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <unordered_map>

namespace bench {

class ServerProcess {
  public:
    /// To be made while this process has one thread: it forks.
    explicit ServerProcess(std::string response)
        : answer(std::move(response)) {
        listening = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* const general = reinterpret_cast<sockaddr*>(&address);
        require(bind(listening, general, length) == 0 && listen(listening, 64) == 0 &&
                getsockname(listening, general, &length) == 0);
        base = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        process = fork();
        if (process == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // also where the other process fails
            prctl(PR_SET_NAME, "bench-server");
            serve();
        }
        close(listening);
    }
    ~ServerProcess() {
        kill(process, SIGKILL);
        while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    const std::string& url() const { return base; }

  private:
    /// The request under way: its head so far, and the bytes of its body still to come.
    struct Connection {
        std::string head;
        std::size_t bodyLeft = 0;
    };

    static void require(bool succeeded) {
        if (!succeeded) {
            throw std::runtime_error(std::strerror(errno));
        }
    }

    [[noreturn]] void serve() {
        const int poll = epoll_create1(EPOLL_CLOEXEC);
        const auto watch = [&](int descriptor) {
            epoll_event event{.events = EPOLLIN, .data = {.fd = descriptor}};
            epoll_ctl(poll, EPOLL_CTL_ADD, descriptor, &event);
        };
        watch(listening);
        std::array<epoll_event, 64> events;
        while (true) {
            const int count = epoll_wait(poll, events.data(), events.size(), -1);
            for (int index = 0; index < count; ++index) {
                const int descriptor = events.at(static_cast<std::size_t>(index)).data.fd;
                if (descriptor == listening) {
                    const int accepted = accept(listening, nullptr, nullptr);
                    const int on = 1;
                    setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
                    connections[accepted] = {};
                    watch(accepted);
                } else if (!read(descriptor)) {
                    connections.erase(descriptor);
                    close(descriptor);
                }
            }
        }
    }

    /// Takes what has come, and answers each request that is whole. False at the end.
    bool read(int descriptor) {
        const ssize_t length = recv(descriptor, buffer.data(), buffer.size(), 0);
        if (length <= 0) {
            return false;
        }
        std::string_view piece(buffer.data(), static_cast<std::size_t>(length));
        Connection& connection = connections[descriptor];
        while (!piece.empty()) {
            if (connection.bodyLeft == 0) {
                takeHead(connection, piece);
            }
            const std::size_t taken = std::min(piece.size(), connection.bodyLeft);
            connection.bodyLeft -= taken;
            piece.remove_prefix(taken);
            if (connection.head.empty() && connection.bodyLeft == 0 &&
                send(descriptor, answer.data(), answer.size(), MSG_NOSIGNAL) < 0) {
                return false;
            }
        }
        return true;
    }

    /// Moves bytes of the head out of `piece`. At its end the head is empty again.
    static void takeHead(Connection& connection, std::string_view& piece) {
        const std::size_t before = connection.head.size();
        connection.head += piece;
        const std::size_t end = connection.head.find("\r\n\r\n");
        if (end == std::string::npos) {
            piece = {};
            return;
        }
        piece.remove_prefix(end + 4 - before);
        constexpr std::string_view field = "\r\nContent-Length: ";
        const std::size_t found = connection.head.find(field);
        if (found < end) {
            connection.bodyLeft = std::stoul(connection.head.substr(found + field.size()));
        }
        connection.head.clear();
    }

    const std::string answer;
    std::string base;
    int listening = -1;
    pid_t process = -1;
    std::array<char, 65536> buffer;
    std::unordered_map<int, Connection> connections;
};

} // namespace bench
