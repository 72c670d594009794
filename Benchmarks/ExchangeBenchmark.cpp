// Small HTTP exchanges from JavaScript, through the plugin and the adapter over libcurl, beside the
// same exchanges by libcurl alone. As many are on their way at once on either side, over
// connections that are kept, to one server.

#include "Baton.h"
#include "Measure.h"
#include "NoBlobs.h"
#include "ServerProcess.h"
#include <zem/Adapters/CurlNetworkAdapter.h>
#include <zem/JavaScript/Context.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/Connection.h>
#include <zem/TesselPluginZEM/NetworkAdapter/NetworkAdapterPlugin.h>

#include <curl/curl.h>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using namespace zem;

constexpr int exchanges = 2'000;
constexpr int atOnce = 16;

constexpr const char* runtimeScript = R"js(
    globalThis.exchange = (count, atOnce) => {
        let sent = 0, received = 0, lengths = 0;
        const send = () => {
            ++sent;
            ZemNetworkAdapter.sendRequest(
                { method: "GET", path: "/records/" + sent, queryParams: {},
                  headers: { Accept: "application/json" } },
                (response) => {
                    if (response.status !== 200) throw new Error("another status");
                    lengths += response.body.length;
                    if (++received === count) done(lengths);
                    else if (sent < count) send();
                },
                (error) => done(error.message));
        };
        while (sent < atOnce) send();
    };
)js";

const std::string body = R"({"id":"001"})";
const std::string response = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nETag: \"1\"\r\n"
                             "Content-Length: " +
                             std::to_string(body.size()) + "\r\n\r\n" + body;

/// A runtime in a context that is bound to a thread, as the host's is.
class Subject {
  public:
    explicit Subject(const std::string& url)
        : plugin(NetworkAdapterPlugin::create(
              CurlNetworkAdapter::create({.baseURL = url, .mostAtOncePerHost = atOnce}),
              std::make_shared<bench::NoBlobs>())) {
        connection.add(*plugin);
        context.perform([this](js::Scope& scope) {
            (void)scope.set(
                scope.global(), "done",
                scope.function("done", 1,
                               [this](js::Scope& inside, js::Local,
                                      js::Arguments arguments) -> js::Result<js::Local> {
                                   lengths = inside.toText(arguments[0]);
                                   done.give();
                                   return inside.undefined();
                               }));
            (void)scope.evaluate(runtimeScript, "runtime.js").value();
        });
    }

    void exchange() {
        context.perform([](js::Scope& scope) {
            (void)scope
                .evaluate("exchange(" + std::to_string(exchanges) + ", " + std::to_string(atOnce) +
                              ")",
                          "runtime.js")
                .value();
        });
        done.take();
        if (lengths != std::to_string(exchanges * body.size())) {
            throw std::runtime_error("something else was received: " + lengths);
        }
    }

  private:
    platform::RunLoopThread thread{"engine"};
    js::Context context = js::Context::create(thread.runLoop());
    tessel::Connection connection{context};
    std::shared_ptr<NetworkAdapterPlugin> plugin;
    std::string lengths;
    bench::Baton done;
};

/// libcurl's multi interface with a handle for each exchange that is on its way. The requests are
/// byte for byte those of the adapter; the handles are made once a run, and used again.
class BareExchanges {
  public:
    explicit BareExchanges(std::string url)
        : url(std::move(url)) {
        headers = curl_slist_append(nullptr, "Accept: application/json");
    }
    ~BareExchanges() {
        curl_multi_cleanup(multi);
        curl_slist_free_all(headers);
    }
    BareExchanges(const BareExchanges&) = delete;
    BareExchanges& operator=(const BareExchanges&) = delete;

    void exchange() {
        sent = 0;
        received = 0;
        lengths = 0;
        while (sent < atOnce) {
            start(makeHandle());
        }
        while (received < exchanges) {
            int running = 0;
            curl_multi_perform(multi, &running);
            if (!finish()) {
                curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
            }
        }
        if (lengths != exchanges * body.size()) {
            throw std::runtime_error("something else was received");
        }
    }

  private:
    static std::size_t receive(char* data, std::size_t size, std::size_t count, void* text) {
        static_cast<std::string*>(text)->append(data, size * count);
        return size * count;
    }

    static CURL* makeHandle() {
        CURL* const easy = curl_easy_init();
        curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
        curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, 600'000L);
        curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, 30'000L);
        curl_easy_setopt(easy, CURLOPT_PROXY, "");
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        return easy;
    }

    void start(CURL* easy) {
        ++sent;
        curl_easy_setopt(easy, CURLOPT_URL, (url + "/records/" + std::to_string(sent)).c_str());
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, receive);
        auto* const text = new std::string;
        curl_easy_setopt(easy, CURLOPT_WRITEDATA, text);
        curl_easy_setopt(easy, CURLOPT_PRIVATE, text);
        curl_multi_add_handle(multi, easy);
    }

    bool finish() {
        bool any = false;
        int left = 0;
        while (const CURLMsg* message = curl_multi_info_read(multi, &left)) {
            any = true;
            CURL* const easy = message->easy_handle;
            long status = 0;
            char* text = nullptr;
            curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
            curl_easy_getinfo(easy, CURLINFO_PRIVATE, &text);
            const std::unique_ptr<std::string> owned(reinterpret_cast<std::string*>(text));
            if (message->data.result != CURLE_OK || status != 200) {
                throw std::runtime_error("an exchange failed");
            }
            lengths += owned->size();
            ++received;
            curl_multi_remove_handle(multi, easy);
            if (sent < exchanges) {
                start(easy);
            } else {
                curl_easy_cleanup(easy);
            }
        }
        return any;
    }

    const std::string url;
    CURLM* const multi = curl_multi_init();
    curl_slist* headers = nullptr;
    int sent = 0;
    int received = 0;
    std::size_t lengths = 0;
};

} // namespace

int main() {
    const bench::ServerProcess server(response); // first: it forks
    Subject subject(server.url());
    BareExchanges bare(server.url());
    bench::report(bench::measure(
        {"network.exchange", "ms", 1.5},
        [&] { return bench::milliseconds([&] { subject.exchange(); }); },
        [&] { return bench::milliseconds([&] { bare.exchange(); }); }, 21));
}
