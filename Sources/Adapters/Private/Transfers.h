#pragma once

// The thread that transfers, and the order in which exchanges get their turn.

#include <zem/Adapters/Private/Exchange.h>
#include <zem/Platform/Mutex.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace zem {

/// Shared between the adapter, which submits, and the thread, which lives until it is told to end.
class Transfers {
  public:
    /// Starts the thread. Throws std::runtime_error when there can be none.
    static std::shared_ptr<Transfers> start(CurlNetworkAdapter::Options options);
    ~Transfers() = default;
    Transfers(const Transfers&) = delete;
    Transfers& operator=(const Transfers&) = delete;

    /// Any thread. The exchange is answered once, on the transfer thread.
    void submit(std::unique_ptr<Exchange> exchange);
    /// Any thread.
    void cancel(const std::string& token);

    /// Answers every exchange with "canceled" and ends the thread. Returns when the last connection
    /// is closed, so that a process may end at once; but waits for no callback, since that may be
    /// waiting for the calling thread, or be what calls.
    void end();

  private:
    struct Free {
        void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
    };
    /// The exchanges with one origin.
    struct Server {
        int running = 0;
        /// By priority, then by number.
        std::map<std::pair<RequestPriority, std::uint64_t>, Exchange*> waiting;
    };

    explicit Transfers(CurlNetworkAdapter::Options options);

    // On the transfer thread.
    void run();
    bool takeCalls();
    void enqueue(Exchange& exchange);
    void startWaiting(const std::string& origin);
    EasyHandle takeHandle();
    void giveBack(EasyHandle handle);
    void wake(platform::UniqueLock& lock);
    void finishTransfers();
    void cancelExchange(const std::string& token);
    void stopTransfer(const std::string& origin, Exchange& exchange);
    void answer(const std::string& token, Exchange::Outcome outcome);
    void callOut(std::unique_ptr<Exchange> exchange, Exchange::Outcome outcome);
    void closeAndAnswer();

    const CurlNetworkAdapter::Options options;

    platform::Mutex mutex; // guards the next seven
    std::condition_variable_any changed;
    std::vector<std::unique_ptr<Exchange>> submitted;
    std::vector<std::string> cancelled;
    std::uint64_t count = 0;
    /// The thread is going to look at what has been submitted and cancelled.
    bool isWoken = false;
    bool isEnding = false;
    bool isCallingOut = false;
    /// Null at the end. Its thread uses it without the lock.
    std::unique_ptr<CURLM, Free> multi;

    // The transfer thread's own.
    std::unordered_map<std::string, std::unique_ptr<Exchange>> exchanges; // by token
    std::map<std::string, Server> servers;                                // by origin
    /// Used again: making a handle costs a good part of a small exchange.
    std::vector<EasyHandle> idle;
};

} // namespace zem
