#pragma once

// A runtime in JavaScript that reaches a server by "ZemNetworkAdapter" and keeps file contents by
// "ZemBinaryStorePlugin".

#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Tessel/Connection.h>
#include <zem/TesselPluginZEM/BinaryStore/BinaryStorePlugin.h>
#include <zem/TesselPluginZEM/NetworkAdapter/NetworkAdapterPlugin.h>

#include <Support/Engine.h>
#include <Support/Wait.h>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace test {

class NetworkRuntime {
  public:
    NetworkRuntime(std::shared_ptr<zem::NetworkAdapter> adapter,
                   const std::shared_ptr<zem::BinaryStore>& store)
        : network(zem::NetworkAdapterPlugin::create(std::move(adapter), store))
        , binaries(zem::BinaryStorePlugin::create(store)) {
        connection.add(*network);
        connection.add(*binaries);
        setFunction(context, "heard", 1,
                    [this](zem::js::Scope& scope, zem::js::Local, zem::js::Arguments arguments) {
                        transcript.add(scope.toText(arguments[0]));
                        heard.signal();
                        return scope.undefined();
                    });
        test::evaluate(context, R"js(
            var tokens = {};
            /// Sends a request and says what comes of it: "name: 200 body", "name: timeout, message".
            var send = (name, more) => {
                tokens[name] = ZemNetworkAdapter.sendRequest(
                    { method: "POST", path: "/" + name, queryParams: {}, headers: {}, ...more },
                    ({ status, body }) => heard(`${name}: ${status} ${body}`),
                    ({ type, message }) => heard(`${name}: ${type}, ${message}`));
            };
            /// An upload's entries: texts are [name, value], files [name, handle, filename, type].
            var form = (...entries) => JSON.stringify({ namedEntries: entries.map(
                ([name, value, filename, type]) => filename === undefined
                    ? { name, value } : { name, value: { handle: value, name: filename, type } }) });
            var upload = (name, ...entries) => send(name, { body: form(...entries) });
            var cancel = (name) => ZemNetworkAdapter.cancelRequest(tokens[name]);
            var cache = (url) => ZemBinaryStorePlugin.cacheBinary(url, 60,
                (handle) => heard("cached"), (message) => heard("not cached: " + message));
        )js");
    }
    /// The functions that the adapter holds are let go of with the adapter.
    ~NetworkRuntime() {
        context.perform([](zem::js::Scope&) {});
    }
    NetworkRuntime(const NetworkRuntime&) = delete;
    NetworkRuntime& operator=(const NetworkRuntime&) = delete;

    void evaluate(std::string_view script) const { test::evaluate(context, script); }

    /// All lines that JavaScript has heard, once there are this many.
    std::vector<std::string> waitForHeard(int times) {
        heard.wait(times);
        return transcript.lines();
    }

    /// The same, when nothing can follow: no callback is left that could be called.
    std::vector<std::string> waitForAll() {
        waitUntil("the callbacks to be let go of",
                  [&] { return connection.activity().outstanding() == 0; });
        return transcript.lines();
    }

    const zem::js::Context context = makeContext();

  private:
    Transcript transcript;
    Event heard{"something that JavaScript hears"};
    const std::shared_ptr<zem::NetworkAdapterPlugin> network;
    const std::shared_ptr<zem::BinaryStorePlugin> binaries;
    tessel::Connection connection{context};
};

} // namespace test
