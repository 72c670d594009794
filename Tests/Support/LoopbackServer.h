#pragma once

// An HTTP/1.1 server on 127.0.0.1 that does what a test tells it to, faults included.

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace test {

class LoopbackServer {
  public:
    struct Request {
        std::string method;
        std::string target;
        std::multimap<std::string, std::string> headers; ///< names in lower case
        std::string body;

        /// The values of a field, joined with ", "; nothing when there is none.
        std::optional<std::string> header(const std::string& name) const;
    };

    /// The connection that a request came on. It is kept for the next one unless it is ended.
    class Connection {
      public:
        /// False when the client is gone.
        bool send(std::string_view bytes) const;
        /// A whole response. `fields` are lines that end with "\r\n"; the length is added.
        bool respond(int status, std::string_view fields, std::string_view body) const;
        void close() { ending = Ending::close; }
        /// Ends it as a crash does, without a goodbye.
        void reset() { ending = Ending::reset; }
        /// Returns when the client has closed it, or the server stops.
        void waitUntilClosed() const;
        /// Returns when `limit` has passed, or the client has closed it or sent more.
        void waitUntilClosed(std::chrono::milliseconds limit) const;

      private:
        friend class LoopbackServer;
        enum class Ending { none, close, reset };
        explicit Connection(int descriptor)
            : descriptor(descriptor) {}

        const int descriptor;
        Ending ending = Ending::none;
    };

    /// Called for each request on its connection's thread.
    using Handler = std::function<void(const Request&, Connection&)>;

    /// `onHead` is called before a request's body is read, with as much of the body as came along.
    /// A connection that it ends is read no further.
    explicit LoopbackServer(Handler handler, Handler onHead = {});
    /// Ends every connection and waits for their handlers.
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    int port() const { return portNumber; }
    /// "http://127.0.0.1:PORT"
    std::string url() const;

    /// All requests received so far, in the order of arrival.
    std::vector<Request> requests() const;
    /// The same, each as "METHOD TARGET".
    std::vector<std::string> lines() const;

  private:
    void accept();
    void serve(int descriptor);
    std::optional<Request> readRequest(Connection& connection, std::string& buffer) const;

    const Handler handler;
    const Handler onHead;
    int listening = -1;
    int portNumber = 0;
    mutable std::mutex mutex;
    bool isStopping = false;
    std::vector<Request> received;
    std::list<int> connections;
    std::list<std::thread> threads;
    std::thread accepting;
};

/// A port of 127.0.0.1 that is taken and refuses connections, for as long as this lives.
/// `shared` lets one other socket of this user listen there.
class RefusingPort {
  public:
    explicit RefusingPort(bool shared = false);
    ~RefusingPort();
    RefusingPort(const RefusingPort&) = delete;
    RefusingPort& operator=(const RefusingPort&) = delete;

    int port() const { return portNumber; }
    std::string url() const;

  private:
    int descriptor = -1;
    int portNumber = 0;
};

} // namespace test
