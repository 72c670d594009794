// "ZemBinaryStorePlugin": what reaches the binary store, and what its answers become.

#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Tessel/Connection.h>
#include <zem/TesselPluginZEM/BinaryStore/BinaryStorePlugin.h>

#include <gtest/gtest.h>

#include <Support/BinaryStore.h>
#include <Support/Engine.h>
#include <Support/Wait.h>
#include <expected>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using Lines = std::vector<std::string>;

class BinaryStorePluginTest : public testing::Test {
  protected:
    BinaryStorePluginTest() {
        connection.emplace(context);
        connection->add(*plugin);
        test::setFunction(context, "heard", 1,
                          [this](js::Scope& scope, js::Local, js::Arguments arguments) {
                              transcript.add(scope.toText(arguments[0]));
                              happened.signal();
                              return scope.undefined();
                          });
        test::evaluate(context, R"js(
            var told = [];
            var success = (value) => { told.push(["success", value]); heard("success " + value); };
            var error = (value) => { told.push(["error", value]); heard("error " + value); };
            /// What had been told when the method returned.
            var call = (method, ...given) => {
                told = [];
                ZemBinaryStorePlugin[method](...given, success, error);
                return told;
            };
        )js");
    }
    ~BinaryStorePluginTest() override {
        pending = nullptr;
        context.perform([](js::Scope&) {});
    }

    void keepFetch() {
        store->fetch = [this](test::BinaryStore::Completion completion) {
            pending = std::move(completion);
        };
    }

    test::Transcript transcript;
    test::Event happened{"an answer in JavaScript"};
    const js::Context context = test::makeContext();
    std::shared_ptr<test::BinaryStore> store = std::make_shared<test::BinaryStore>();
    std::shared_ptr<BinaryStorePlugin> plugin = BinaryStorePlugin::create(store);
    test::BinaryStore::Completion pending;
    std::optional<tessel::Connection> connection;
};

TEST_F(BinaryStorePluginTest, BindsItsMethodsInOrder) {
    EXPECT_EQ(plugin->namespace_(), "ZemBinaryStorePlugin");
    test::expectEval(
        context, "Object.values(ZemBinaryStorePlugin).map((f) => [f.name, f.length])", "array",
        R"([["storeBinary",5],["cacheBinary",4],["removeBinary",3],["setCanonicalUrl",5]])");
    EXPECT_THROW((void)BinaryStorePlugin::create(nullptr), std::invalid_argument);
}

TEST_F(BinaryStorePluginTest, StoresAndTellsTheHandleBeforeItReturns) {
    test::expectEval(context, "call('storeBinary', new Uint8Array([1, 0, 2]), 'image/png', 3)",
                     "array", R"([["success","blob-1"]])");
    test::expectEval(context, "call('storeBinary', new ArrayBuffer(0), '', 0)", "array",
                     R"([["success","blob-2"]])");
    EXPECT_EQ(store->transcript.lines(), (Lines{"store image/png 3", "store  0"}));
    EXPECT_EQ(store->cachedData("blob-1"), (platform::Bytes{1, 0, 2}));
}

TEST_F(BinaryStorePluginTest, PassesTheGivenSizeOn) {
    test::evaluate(context, "call('storeBinary', new ArrayBuffer(1), 't', 2 ** 53 - 1)");
    EXPECT_EQ(store->transcript.lines(), (Lines{"store t 9007199254740991"}));
    const std::string prefix = "TypeError: ZemBinaryStorePlugin.storeBinary, argument 3: ";
    test::expectEval(context, "call('storeBinary', new ArrayBuffer(1), 't', -1)", "exception",
                     prefix + "expected an unsigned integer of 64 bits, found one out of range");
    test::expectEval(context, "call('storeBinary', new ArrayBuffer(1), 't', 0.5)", "exception",
                     prefix + "expected an unsigned integer, found another number");
    test::expectEval(context, "call('storeBinary', new ArrayBuffer(1), 't', '1')", "exception",
                     prefix + "expected an unsigned integer, found a string");
    test::expectEval(context, "call('storeBinary', 'bytes', 't', 1)", "exception",
                     "TypeError: ZemBinaryStorePlugin.storeBinary, argument 1: expected an "
                     "ArrayBuffer or a typed array, found a string");
}

TEST_F(BinaryStorePluginTest, RefusesWhatIsNoURL) {
    for (const char* text : {"", "no url", "http://a b/", "/relative", "://", "http://[::1/"}) {
        test::expectEval(context, "call('cacheBinary', '" + std::string(text) + "', 60)", "array",
                         R"([["error","Invalid URL"]])");
    }
    EXPECT_EQ(store->transcript.lines(), Lines{});
}

TEST_F(BinaryStorePluginTest, CachesAndTellsWhenTheStoreIsDone) {
    keepFetch();
    test::expectEval(context, "call('cacheBinary', 'https://h.example/a?b=c', -5)", "array", "[]");
    EXPECT_EQ(store->transcript.lines(), (Lines{"cache https://h.example/a?b=c -5"}));
    test::collectGarbage(context); // which leaves the functions alone
    std::thread fetching([&] { pending("copy-1"); });
    fetching.join();
    happened.wait();
    EXPECT_EQ(transcript.lines(), (Lines{"success copy-1"}));
}

TEST_F(BinaryStorePluginTest, TellsWhyTheStoreCouldNotCache) {
    keepFetch();
    test::evaluate(context, "call('cacheBinary', 'https://h.example/', 60)");
    plugin.reset();
    pending(std::unexpected("the server is away"));
    happened.wait();
    EXPECT_EQ(transcript.lines(), (Lines{"error the server is away"}));
}

TEST_F(BinaryStorePluginTest, RemovesAndTellsWhetherThereWasOne) {
    const std::string handle = store->store({1}, "t", 1);
    test::expectEval(context, "call('removeBinary', '" + handle + "')", "array",
                     R"([["success",true]])");
    test::expectEval(context, "call('removeBinary', '" + handle + "')", "array",
                     R"([["success",false]])");
}

TEST_F(BinaryStorePluginTest, EchoesTheCanonicalURL) {
    test::expectEval(context, "call('setCanonicalUrl', 'blob-1', 'no url é', 60)", "array",
                     R"([["success","no url é"]])");
    EXPECT_EQ(store->transcript.lines(), (Lines{"canonical blob-1 no url é 60"}));
}

TEST_F(BinaryStorePluginTest, ThrowsWhatTheStoreThrows) {
    store->failing = [] {
        throw std::runtime_error("the disk is full");
    };
    test::expectEval(context, "call('storeBinary', new ArrayBuffer(1), 't', 1)", "exception",
                     "Error: the disk is full");
    test::expectEval(context, "told", "array", "[]");
}

} // namespace
