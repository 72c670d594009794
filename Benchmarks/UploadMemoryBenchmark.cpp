// The peak memory of a process whose JavaScript uploads a file of 100 MB, beside the file's bytes:
// the encrypted binary store gives them out, the plugin builds the form, and the adapter over
// libcurl sends it. The server and the storing of the file are processes of their own.

#include "Baton.h"
#include "Measure.h"
#include "PeakMemory.h"
#include "ServerProcess.h"
#include "StoreSubjects.h"
#include <zem/Adapters/CurlNetworkAdapter.h>
#include <zem/Adapters/EncryptedBinaryStore.h>
#include <zem/TesselPluginZEM/NetworkAdapter/NetworkAdapterPlugin.h>

namespace {

using namespace zem;

constexpr std::size_t fileLength = 100'000'000;

std::shared_ptr<EncryptedBinaryStore> open(const std::filesystem::path& folder) {
    return EncryptedBinaryStore::create({folder, bench::encryption()});
}

void keepFile(const std::filesystem::path& folder) {
    const platform::Bytes bytes(fileLength, 'x');
    open(folder)->store(bytes, "video/mp4", bytes.size());
}

/// Returns when JavaScript has heard that the file is uploaded.
void upload(const std::filesystem::path& folder, const std::string& url) {
    const auto store = open(folder);
    const platform::RunLoopThread thread("engine");
    const js::Context context = js::Context::create(thread.runLoop());
    const auto plugin =
        NetworkAdapterPlugin::create(CurlNetworkAdapter::create({.baseURL = url}), store);
    tessel::Connection connection(context);
    connection.add(*plugin);
    std::string heard;
    bench::Baton done;
    context.perform([&](js::Scope& scope) {
        const auto hear = [&](js::Scope& inside, js::Local,
                              js::Arguments arguments) -> js::Result<js::Local> {
            heard = inside.toText(arguments[0]);
            done.give();
            return inside.undefined();
        };
        (void)scope.set(scope.global(), "done", scope.function("done", 1, hear));
        (void)scope.set(scope.global(), "handle",
                        scope.string(store->blobs().value().at(0).handle));
        (void)scope
            .evaluate(R"js(
                const value = { handle, name: "site.mp4", type: "video/mp4" };
                ZemNetworkAdapter.sendRequest(
                    { method: "POST", path: "/files", queryParams: {}, headers: {},
                      body: JSON.stringify({ namedEntries: [{ name: "file", value }] }) },
                    (response) => done(response.status), (error) => done(error.message));
            )js",
                      "runtime.js")
            .value();
    });
    done.take();
    if (heard != "201") {
        throw std::runtime_error("the file was not uploaded: " + heard);
    }
}

} // namespace

int main() {
    const bench::ServerProcess server("HTTP/1.1 201 Created\r\nContent-Length: 0\r\n\r\n");
    const bench::Folder folder;
    bench::peakOf([&] { keepFile(folder.path); });
    bench::report(bench::measure(
        {"network.memory.upload", "MiB", 3},
        [&] { return bench::peakOf([&] { upload(folder.path, server.url()); }); },
        [] { return fileLength / bench::mebibyte; }, 3));
}
