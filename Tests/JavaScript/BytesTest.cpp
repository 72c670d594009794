// ArrayBuffers and typed arrays.

#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace {

using zem::js::Context;
using zem::js::Local;
using zem::js::Scope;

std::string bytesText(Scope& scope, const char* script) {
    const auto bytes = scope.bytes(*scope.evaluate(script, ""));
    if (!bytes) {
        return "none";
    }
    std::string text;
    for (const std::uint8_t byte : *bytes) {
        text += (text.empty() ? "" : " ") + std::to_string(byte);
    }
    return text;
}

TEST(Bytes, AreThoseOfTheBufferOrOfTheView) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        EXPECT_EQ(bytesText(scope, "new Uint8Array([1, 2, 3, 255]).buffer"), "1 2 3 255");
        EXPECT_EQ(bytesText(scope, "new Uint8Array([1, 2, 3, 255])"), "1 2 3 255");
        EXPECT_EQ(bytesText(scope, "new Uint8Array([1, 2, 3, 4]).subarray(2)"), "3 4");
        EXPECT_EQ(bytesText(scope, "new Uint8Array(new Uint8Array([1, 2, 3, 4]).buffer, 1, 2)"),
                  "2 3");
        EXPECT_EQ(bytesText(scope, "new Uint16Array([1, 2, 3, 4]).subarray(1, 3)"), "2 0 3 0");
        EXPECT_EQ(bytesText(scope, "new Uint8ClampedArray([300, -1])"), "255 0");
        EXPECT_EQ(bytesText(scope, "new Int8Array([-1, 1])"), "255 1");
        EXPECT_EQ(bytesText(scope, "new Int32Array([-2])"), "254 255 255 255");
        EXPECT_EQ(bytesText(scope, "new Float64Array([1])"), "0 0 0 0 0 0 240 63");
        EXPECT_EQ(bytesText(scope, "new BigInt64Array([1n])"), "1 0 0 0 0 0 0 0");
    });
}

TEST(Bytes, OfSomethingEmptyAreNone) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        EXPECT_EQ(bytesText(scope, "new ArrayBuffer(0)"), "");
        EXPECT_EQ(bytesText(scope, "new Uint8Array(0)"), "");
        EXPECT_EQ(bytesText(scope, "new Uint8Array([1, 2]).subarray(2)"), "");
        EXPECT_EQ(bytesText(scope, "var buffer = new ArrayBuffer(4); var view = new "
                                   "Uint8Array(buffer); buffer.transfer(); buffer"),
                  "");
        EXPECT_EQ(bytesText(scope, "view"), "");
    });
}

TEST(Bytes, AreAbsentInAnythingElse) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        for (const char* script :
             {"undefined", "null", "1", "'text'", "[1, 2]", "({length: 1, 0: 1})",
              "new DataView(new ArrayBuffer(2))", "new Proxy(new Uint8Array(2), {})"}) {
            EXPECT_EQ(bytesText(scope, script), "none") << script;
        }
    });
}

TEST(Bytes, AreLentWithoutACopy) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const auto lent =
            scope.bytes(*scope.evaluate("var bytes = new Uint8Array([1, 2]); bytes", ""));
        ASSERT_TRUE(lent);
        (void)scope.evaluate("bytes[1] = 9", "");
        EXPECT_EQ((*lent)[1], 9);
    });
}

TEST(Bytes, MadeByNativeCodeAreAnArrayBufferOfItsOwn) {
    const Context context = test::makeContext();
    {
        std::vector<std::uint8_t> bytes{0, 1, 255};
        context.perform([&](Scope& scope) {
            (void)scope.set(scope.global(), "made", scope.arrayBuffer(bytes));
            (void)scope.set(scope.global(), "empty", scope.arrayBuffer({}));
        });
        bytes.assign(3, 7);
    }
    test::expectEval(context, "made instanceof ArrayBuffer", "boolean", "true");
    test::expectEval(context, "Array.from(new Uint8Array(made))", "array", "[0,1,255]");
    test::expectEval(context, "empty.byteLength", "number", "0");
    test::expectEval(context, "new Uint8Array(made)[1] = 5; Array.from(new Uint8Array(made))",
                     "array", "[0,5,255]");
    test::evaluate(context, "made = empty = undefined");
    context.collectGarbage();
}

} // namespace
