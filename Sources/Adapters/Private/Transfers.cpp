#include <zem/Adapters/Private/Transfers.h>

#include <climits>

#include <algorithm>
#include <iterator>
#include <pthread.h>
#include <stdexcept>
#include <thread>
#include <utility>

namespace zem {

namespace {

NetworkError unspecified(std::string message) {
    return {NetworkErrorType::unspecified, std::move(message)};
}

/// The most handles that are kept to be used again.
constexpr std::size_t mostIdle = 16;

void initializeLibrary() {
    static const CURLcode code = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (code != CURLE_OK) {
        throw std::runtime_error(curl_easy_strerror(code));
    }
}

} // namespace

Transfers::Transfers(CurlNetworkAdapter::Options given)
    : options(std::move(given))
    , multi(curl_multi_init()) {
    if (!multi) {
        throw std::runtime_error(curl_easy_strerror(CURLE_OUT_OF_MEMORY));
    }
}

std::shared_ptr<Transfers> Transfers::start(CurlNetworkAdapter::Options options) {
    initializeLibrary();
    std::shared_ptr<Transfers> transfers(new Transfers(std::move(options)));
    std::thread([transfers] { transfers->run(); }).detach();
    return transfers;
}

void Transfers::submit(std::unique_ptr<Exchange> exchange) {
    platform::UniqueLock lock(mutex);
    exchange->number = ++count;
    submitted.push_back(std::move(exchange));
    wake(lock);
}

void Transfers::cancel(const std::string& token) {
    platform::UniqueLock lock(mutex);
    cancelled.push_back(token);
    wake(lock);
}

/// Once for all that is asked before the thread looks. Without the lock, which the thread takes
/// first; the adapter that calls keeps the multi handle alive.
void Transfers::wake(platform::UniqueLock& lock) {
    const bool isFirst = !std::exchange(isWoken, true);
    CURLM* const woken = multi.get();
    lock.unlock();
    if (isFirst) {
        curl_multi_wakeup(woken);
    }
}

void Transfers::end() {
    platform::UniqueLock lock(mutex);
    isEnding = true;
    curl_multi_wakeup(multi.get());
    changed.wait(lock, [this] { return !multi || isCallingOut; });
}

void Transfers::run() {
    pthread_setname_np(pthread_self(), "zem-network");
    while (takeCalls()) {
        int running = 0;
        curl_multi_perform(multi.get(), &running);
        finishTransfers();
        // Until there is something to do; libcurl's own timeouts end it earlier. A new transfer
        // ends it at once.
        curl_multi_poll(multi.get(), nullptr, 0, INT_MAX, nullptr);
    }
    closeAndAnswer();
}

/// Does what other threads asked for; false when that is the end.
bool Transfers::takeCalls() {
    std::vector<std::unique_ptr<Exchange>> arrived;
    std::vector<std::string> tokens;
    {
        platform::Lock lock(mutex);
        if (isEnding) {
            return false;
        }
        isWoken = false;
        arrived.swap(submitted);
        tokens.swap(cancelled);
    }
    std::set<std::string> origins;
    for (std::unique_ptr<Exchange>& exchange : arrived) {
        Exchange& added = *exchange;
        exchanges.emplace(added.token, std::move(exchange));
        if (added.refusal()) {
            answer(added.token, std::unexpected(unspecified(*added.refusal())));
        } else {
            enqueue(added);
            origins.insert(added.origin());
        }
    }
    for (const std::string& token : tokens) {
        cancelExchange(token);
    }
    for (const std::string& origin : origins) {
        startWaiting(origin);
    }
    return true;
}

void Transfers::enqueue(Exchange& exchange) {
    servers[exchange.origin()].waiting.emplace(std::pair(exchange.priority(), exchange.number),
                                               &exchange);
}

void Transfers::startWaiting(const std::string& origin) {
    while (true) {
        const auto server = servers.find(origin);
        if (server == servers.end()) {
            return;
        }
        auto& [running, waiting] = server->second;
        if (running == 0 && waiting.empty()) {
            servers.erase(server);
            return;
        }
        if (waiting.empty() || running == options.mostAtOncePerHost) {
            return;
        }
        Exchange& next = *waiting.begin()->second;
        waiting.erase(waiting.begin());
        ++running;
        try {
            if (const CURLMcode code =
                    curl_multi_add_handle(multi.get(), next.start(options, takeHandle()));
                code != CURLM_OK) {
                throw std::runtime_error(curl_multi_strerror(code));
            }
        } catch (const std::runtime_error& error) {
            --running;
            answer(next.token, std::unexpected(unspecified(error.what())));
        }
    }
}

EasyHandle Transfers::takeHandle() {
    if (idle.empty()) {
        return makeEasyHandle(options);
    }
    EasyHandle taken = std::move(idle.back());
    idle.pop_back();
    return taken;
}

void Transfers::giveBack(EasyHandle handle) {
    if (idle.size() < mostIdle) {
        idle.push_back(std::move(handle));
    }
}

void Transfers::finishTransfers() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi.get(), &left)) {
        if (message->msg != CURLMSG_DONE) {
            continue;
        }
        const CURLcode code = message->data.result; // gone once its handle is
        Exchange* exchange = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &exchange);
        const std::string origin = exchange->origin();
        std::optional<Exchange::Outcome> outcome = exchange->finish(code);
        stopTransfer(origin, *exchange);
        if (outcome) {
            startWaiting(origin);
            answer(exchange->token, *std::move(outcome));
        } else {
            enqueue(*exchange);
            const std::string next = exchange->origin();
            startWaiting(origin);
            startWaiting(next);
        }
    }
}

void Transfers::cancelExchange(const std::string& token) {
    const auto found = exchanges.find(token);
    if (found == exchanges.end()) {
        return;
    }
    Exchange& exchange = *found->second;
    const std::string origin = exchange.origin();
    if (exchange.handle() != nullptr) {
        stopTransfer(origin, exchange);
    } else {
        servers[origin].waiting.erase({exchange.priority(), exchange.number});
    }
    startWaiting(origin);
    answer(token, std::unexpected(unspecified("canceled")));
}

void Transfers::stopTransfer(const std::string& origin, Exchange& exchange) {
    curl_multi_remove_handle(multi.get(), exchange.handle());
    giveBack(exchange.stop());
    --servers[origin].running;
}

void Transfers::answer(const std::string& token, Exchange::Outcome outcome) {
    auto answered = exchanges.extract(token);
    callOut(std::move(answered.mapped()), std::move(outcome));
}

void Transfers::callOut(std::unique_ptr<Exchange> exchange, Exchange::Outcome outcome) {
    const auto setCallingOut = [this](bool calling) {
        platform::Lock lock(mutex);
        isCallingOut = calling;
        if (isEnding) {
            changed.notify_all();
        }
    };
    setCallingOut(true);
    exchange->answer(std::move(outcome));
    exchange.reset(); // what the callbacks hold may call out, too
    setCallingOut(false);
}

void Transfers::closeAndAnswer() {
    std::vector<std::unique_ptr<Exchange>> left;
    for (auto& [token, exchange] : exchanges) {
        if (exchange->handle() != nullptr) {
            curl_multi_remove_handle(multi.get(), exchange->handle());
            giveBack(exchange->stop());
        }
        left.push_back(std::move(exchange));
    }
    exchanges.clear();
    idle.clear();
    {
        platform::Lock lock(mutex);
        std::ranges::move(submitted, std::back_inserter(left));
        submitted.clear();
        multi.reset();
        changed.notify_all();
    }
    std::ranges::sort(left, {}, &Exchange::number);
    for (std::unique_ptr<Exchange>& exchange : left) {
        callOut(std::move(exchange), std::unexpected(unspecified("canceled")));
    }
}

} // namespace zem
