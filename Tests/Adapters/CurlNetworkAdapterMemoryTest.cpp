// How often the adapter holds the body of a request.

#include <zem/Adapters/CurlNetworkAdapter.h>

#include <gmock/gmock.h>

#include <Adapters/NetworkCalls.h>
#include <Support/LoopbackServer.h>
#include <malloc.h>

// The sanitizers' allocators keep no such account.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZEM_ALLOCATIONS_UNKNOWN
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZEM_ALLOCATIONS_UNKNOWN
#endif
#endif

#ifndef ZEM_ALLOCATIONS_UNKNOWN
namespace {

using namespace zem;
using test::Call;
using test::LoopbackServer;

/// An allocation of this size is always a mapping of its own: above 32 MiB no threshold rises.
constexpr std::size_t size = std::size_t{64} * 1024 * 1024;

/// The bytes in large allocations, which have a mapping of their own.
std::size_t largeAllocations() {
    return mallinfo2().hblkhd;
}

TEST(CurlNetworkAdapterMemory, HoldsTheBodyOfARequestOnce) {
    for (const bool isText : {false, true}) {
        test::Event arrived{"the head of the upload"};
        test::Event measured{"the measurement"};
        const LoopbackServer server([](const auto&, auto&) {},
                                    [&](const auto&, LoopbackServer::Connection& connection) {
                                        arrived.signal();
                                        measured.wait();
                                        connection.reset();
                                    });
        const auto adapter = test::adapterFor(server.url());
        const std::size_t before = largeAllocations();
        Request request = test::get("/");
        request.method = HTTPMethod::POST;
        if (isText) {
            request.body = std::string(size, 'x');
        } else {
            request.bodyData = platform::Bytes(size, 'x');
        }
        const Call call(*adapter, std::move(request));
        arrived.wait(); // all is set up, and most of the body is still to be sent
        const std::size_t held = largeAllocations() - before;
        measured.signal();
        EXPECT_GE(held, size);
        EXPECT_LT(held, size + size / 2);
        EXPECT_FALSE(call.outcome());
        test::waitUntil("the body to be let go of",
                        [&] { return largeAllocations() - before < size / 2; });
    }
}

} // namespace
#endif
