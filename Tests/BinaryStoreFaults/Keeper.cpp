// Opens a binary store and changes it once. It says what it has done, line by line.
//
//     zem-binary-keeper FOLDER open       opens it, and closes it
//     zem-binary-keeper FOLDER later      the same, a year later
//     zem-binary-keeper FOLDER store      keeps the large binary
//     zem-binary-keeper FOLDER again      the same, and once more if that fails
//     zem-binary-keeper FOLDER cache      caches the large binary
//     zem-binary-keeper FOLDER js-store   keeps the large binary, from JavaScript
//     zem-binary-keeper FOLDER js-cache   caches the large binary, from JavaScript
//     zem-binary-keeper FOLDER small      keeps the small binary, and is killed
//     zem-binary-keeper FOLDER sync       the same, and each change is synced
//     zem-binary-keeper FOLDER remove     removes the last binary

#include <zem/Adapters/Fetcher.h>
#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Tessel/Connection.h>
#include <zem/TesselPluginZEM/BinaryStore/BinaryStorePlugin.h>

#include <BinaryStoreFaults/Binaries.h>
#include <Support/Wait.h>
#include <csignal>
#include <cstdio>
#include <string>
#include <string_view>

namespace {

using namespace zem;

class LargeBinaryFetcher final : public Fetcher {
  public:
    void fetch(const platform::URL&, Completion completion) override {
        completion(FetchedContent{test::largeBinary(), "image/jpeg"});
    }
};

void say(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

bool keep(EncryptedBinaryStore& store, const platform::Bytes& bytes) {
    try {
        say("kept " + store.store(bytes, "image/jpeg", bytes.size()));
        return true;
    } catch (const std::exception& error) {
        say(std::string("failed: ") + error.what());
        return false;
    }
}

constexpr const char* runtime = R"js(
    var failed = (message) => say("failed: " + message);
    var kept = (handle) => say("kept " + handle);
    var store = () => {
        const bytes = new Uint8Array(3 << 20).map((_, index) => index * 31 + Math.floor(index / 251));
        try {
            ZemBinaryStorePlugin.storeBinary(bytes, "image/jpeg", bytes.length, kept, failed);
        } catch (error) {
            failed(error.message);
        }
    };
    var cache = () =>
        ZemBinaryStorePlugin.cacheBinary("https://example.com/photo", 3600, kept, failed);
)js";

/// Runs a script that may use the binary store, and returns when it has heard all answers.
void runScript(const std::shared_ptr<EncryptedBinaryStore>& store, const char* script) {
    const auto context = js::Context::create();
    const auto plugin = BinaryStorePlugin::create(store);
    tessel::Connection connection(context);
    connection.add(*plugin);
    context.perform([&](js::Scope& scope) {
        const auto sayText = [](js::Scope& inside, js::Local, js::Arguments arguments) {
            say(inside.toText(arguments[0]));
            return inside.undefined();
        };
        (void)scope.set(scope.global(), "say", scope.function("say", 1, sayText));
        (void)scope.evaluate(runtime, "runtime.js").value();
        (void)scope.evaluate(script, "script.js").value();
    });
    test::waitUntil("the answers of the binary store",
                    [&] { return connection.activity().outstanding() == 0; });
}

void work(const char* folder, std::string_view action) {
    EncryptedBinaryStore::Options options = test::binariesIn(folder);
    options.fetcher = std::make_shared<LargeBinaryFetcher>();
    if (action == "sync") {
        options.synchronous = SQLiteStore::Synchronous::full;
    }
    if (action == "later") {
        options.clock = [today = options.clock] {
            return today() + std::chrono::hours(24 * 365);
        };
    }
    const auto store = EncryptedBinaryStore::create(options);
    say("opened");
    if (action == "store") {
        keep(*store, test::largeBinary());
    } else if (action == "again") {
        if (!keep(*store, test::largeBinary())) {
            keep(*store, test::largeBinary());
        }
    } else if (action == "cache") {
        store->cache(platform::URL::parse("https://example.com/photo").value(), 3600,
                     [](const std::expected<std::string, std::string>& answer) {
                         say(answer ? "kept " + *answer : "failed: " + answer.error());
                     });
    } else if (action == "js-store") {
        runScript(store, "store()");
    } else if (action == "js-cache") {
        runScript(store, "cache()");
    } else if (action == "small" || action == "sync") {
        keep(*store, test::smallBinary());
        std::raise(SIGKILL);
    } else if (action == "remove") {
        say(store->remove(store->blobs().value().back().handle) ? "removed" : "not removed");
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: zem-binary-keeper FOLDER "
                   "open|later|store|again|cache|js-store|js-cache|small|sync|remove\n",
                   stderr);
        return 2;
    }
    try {
        work(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
