// The cost of the network adapter's plugin beside the least that the same work can cost: building
// the form of a large upload, and bringing results to JavaScript.

#include "BareEngine.h"
#include "Baton.h"
#include "Measure.h"
#include "NoBlobs.h"
#include <zem/JavaScript/Context.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/Connection.h>
#include <zem/TesselPluginZEM/NetworkAdapter/MultipartForm.h>
#include <zem/TesselPluginZEM/NetworkAdapter/NetworkAdapterPlugin.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zem;

constexpr int results = 10'000;

constexpr const char* runtimeScript = R"js(
    globalThis.received = 0;
    globalThis.lengths = 0;
    globalThis.onResponse = (response) => {
        ++received;
        lengths += response.status + response.body.length + response.headers["Content-Type"].length;
    };
)js";

Response response() {
    return {200, {{"Content-Type", "application/json"}, {"ETag", "\"1\""}}, R"({"id":"001"})"};
}

/// Keeps what is to be answered.
class KeptExchanges final : public NetworkAdapter {
  public:
    std::string sendRequest(Request, OnResponse onResponse, OnError) override {
        kept.push_back(std::move(onResponse));
        return "token";
    }
    void cancelRequest(const std::string&) override {}

    std::vector<OnResponse> kept;
};

/// A runtime in a context that is bound to a thread, as the host's is.
class Subject {
  public:
    Subject() {
        connection.add(*plugin);
        context.perform([this](js::Scope& scope) {
            (void)scope.evaluate(runtimeScript, "runtime.js").value();
            (void)scope.set(scope.global(), "done",
                            scope.function("done", 0,
                                           [this](js::Scope& inside, js::Local,
                                                  js::Arguments) -> js::Result<js::Local> {
                                               done.give();
                                               return inside.undefined();
                                           }));
            (void)scope
                .evaluate(R"js(
                    globalThis.sendAll = (count) => {
                        received = 0;
                        const priorities = ["high", "normal", "background", undefined];
                        for (let n = 0; n < count; ++n) {
                            ZemNetworkAdapter.sendRequest(
                                { method: "GET", path: "/", queryParams: {}, headers: {},
                                  priority: priorities[n % 4] },
                                (response) => { onResponse(response); if (received === count) done(); },
                                () => {});
                        }
                    };
                )js",
                          "runtime.js")
                .value();
        });
    }

    void send() {
        context.perform([](js::Scope& scope) {
            (void)scope.evaluate("sendAll(" + std::to_string(results) + ")", "runtime.js").value();
        });
    }

    /// Answers all that was sent; returns when JavaScript has heard of the last.
    void answer() {
        for (auto& onResponse : std::exchange(adapter->kept, {})) {
            onResponse(response());
        }
        done.take();
    }

  private:
    platform::RunLoopThread thread{"engine"};
    js::Context context = js::Context::create(thread.runLoop());
    tessel::Connection connection{context};
    std::shared_ptr<KeptExchanges> adapter = std::make_shared<KeptExchanges>();
    std::shared_ptr<NetworkAdapterPlugin> plugin =
        NetworkAdapterPlugin::create(adapter, std::make_shared<bench::NoBlobs>());
    bench::Baton done;
};

/// The same results by the C API as it comes.
class BareResults {
  public:
    BareResults()
        : engine(runtimeScript)
        , onResponse(engine.keep("onResponse")) {}

    void deliver(const Response& response) {
        JSContextRef context = engine.context();
        JSObjectRef headers = JSObjectMake(context, nullptr, nullptr);
        for (const auto& [name, value] : response.headers) {
            set(headers, name.c_str(), engine.string(value.c_str()));
        }
        JSObjectRef object = JSObjectMake(context, nullptr, nullptr);
        set(object, "status", JSValueMakeNumber(context, static_cast<double>(response.status)));
        set(object, "headers", headers);
        set(object, "body", engine.string(response.body->c_str()));
        const JSValueRef argument = object;
        if (JSObjectCallAsFunction(context, onResponse, nullptr, 1, &argument, nullptr) ==
            nullptr) {
            throw std::runtime_error("the script threw");
        }
    }

  private:
    void set(JSObjectRef object, const char* name, JSValueRef value) {
        JSStringRef made = JSStringCreateWithUTF8CString(name);
        JSObjectSetProperty(engine.context(), object, made, value, kJSPropertyAttributeNone,
                            nullptr);
        JSStringRelease(made);
    }

    bench::BareEngine engine;
    JSObjectRef onResponse;
};

void measureForm() {
    constexpr std::size_t size = 100'000'000;
    const platform::Bytes file(size, 'x');
    bench::report(bench::measure(
        {"multipart.build", "ms", 1.5},
        [&] {
            std::vector<MultipartFormField> fields;
            fields.push_back(MultipartFormField::text("title", "Site plan"));
            fields.push_back(MultipartFormField::data("file", file, "plan.pdf", "application/pdf"));
            Request built;
            const double taken = bench::milliseconds(
                [&] { built = multipartFormRequest({}, std::move(fields), "B"); });
            if (built.bodyData->size() <= size) {
                throw std::runtime_error("the form does not hold the file");
            }
            return taken;
        },
        [&] {
            platform::Bytes copy;
            const double taken = bench::milliseconds([&] { copy = file; });
            if (copy.size() != size) {
                throw std::runtime_error("the copy is not whole");
            }
            return taken;
        }));
}

void measureBurst() {
    Subject subject;
    BareResults bare;
    bench::report(bench::measure(
        {"network.burst", "ms", 2},
        [&] {
            subject.send();
            return bench::milliseconds([&] { subject.answer(); });
        },
        [&] {
            return bench::milliseconds([&] {
                for (int result = 0; result < results; ++result) {
                    bare.deliver(response());
                }
            });
        }));
}

} // namespace

int main() {
    measureForm();
    measureBurst();
}
