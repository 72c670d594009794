#include <zem/Adapters/CurlNetworkAdapter.h>
#include <zem/Adapters/EncryptedBinaryStore.h>
#include <zem/Adapters/FileKeyStore.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Tessel/Connection.h>
#include <zem/TesselPluginZEM/BinaryStore/BinaryStorePlugin.h>
#include <zem/TesselPluginZEM/NetworkAdapter/NetworkAdapterPlugin.h>

#include <cstdio>
#include <exception>
#include <future>

// Stands for the runtime: caches a photo and uploads it with a title.
constexpr const char* runtime = R"js((photo, say) => {
    ZemBinaryStorePlugin.cacheBinary(photo, 3600, (handle) => {
        const file = { handle, name: "site.jpg", type: "image/jpeg" };
        const namedEntries = [{ name: "title", value: "Site" }, { name: "photo", value: file }];
        ZemNetworkAdapter.sendRequest(
            { method: "POST", path: "/photos", queryParams: {}, headers: {}, priority: "high",
              body: JSON.stringify({ namedEntries }) },
            (response) => say(`${response.status} ${response.body}`),
            (error) => say(`${error.type}: ${error.message}`));
    }, say);
})js";

int main(int count, char** arguments) try {
    if (count != 2) {
        std::fputs("usage: zem-example-uploading URL\n", stderr);
        return 2;
    }
    const std::string server = arguments[1];
    const auto network = zem::CurlNetworkAdapter::create({.baseURL = server});

    const auto keys = zem::FileKeyStore::create("zem-keys").value();
    zem::EncryptedBinaryStore::Options options("zem-data",
                                               zem::SQLiteStore::EncryptionOption::kept(keys));
    options.fetcher = network; // for cacheBinary
    const auto binaries = zem::EncryptedBinaryStore::create(options);

    const zem::platform::RunLoopThread thread("javascript");
    const auto context = zem::js::Context::create(thread.runLoop());
    tessel::Connection connection(context);
    const auto networkPlugin = zem::NetworkAdapterPlugin::create(network, binaries);
    const auto binaryPlugin = zem::BinaryStorePlugin::create(binaries);
    connection.add(*networkPlugin); // JavaScript finds it as ZemNetworkAdapter
    connection.add(*binaryPlugin);  // and this one as ZemBinaryStorePlugin

    std::promise<std::string> said;
    context.perform([&](zem::js::Scope& scope) {
        const auto say = [&](zem::js::Scope& inside, zem::js::Local, zem::js::Arguments texts) {
            said.set_value(inside.toText(texts[0]));
            return inside.undefined();
        };
        const auto upload = scope.evaluate(runtime, "runtime.js").value();
        scope.call(upload, {scope.string(server + "/site.jpg"), scope.function("say", 1, say)})
            .value();
    });
    std::puts(said.get_future().get().c_str());
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
