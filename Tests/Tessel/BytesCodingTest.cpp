#include <zem/Platform/Bytes.h>

#include <Tessel/Bridge.h>

using BytesCoding = test::Bridge;
using zem::platform::Bytes;

TEST_F(BytesCoding, ReadsABufferAndEveryKindOfView) {
    const struct {
        const char* script;
        Bytes bytes;
    } table[] = {
        {"new Uint8Array([1, 2, 255]).buffer", {1, 2, 255}},
        {"new ArrayBuffer(0)", {}},
        {"new ArrayBuffer(2)", {0, 0}},
        {"new Int8Array([-1, 1])", {255, 1}},
        {"new Uint8Array([1, 2])", {1, 2}},
        {"new Uint8ClampedArray([300, -1])", {255, 0}},
        {"new Int16Array([1, -2])", {1, 0, 254, 255}},
        {"new Uint16Array([258])", {2, 1}},
        {"new Int32Array([-1])", {255, 255, 255, 255}},
        {"new Uint32Array([1])", {1, 0, 0, 0}},
        {"new Float32Array([1])", {0, 0, 128, 63}},
        {"new Float64Array([1])", {0, 0, 0, 0, 0, 0, 240, 63}},
        {"new BigInt64Array([-1n])", {255, 255, 255, 255, 255, 255, 255, 255}},
        {"new BigUint64Array([1n])", {1, 0, 0, 0, 0, 0, 0, 0}},
        {"new Uint8Array()", {}},
    };
    for (const auto& row : table) {
        EXPECT_EQ(decoded<Bytes>(row.script), row.bytes) << row.script;
    }
}

TEST_F(BytesCoding, ReadsOnlyWhatAViewShows) {
    const std::string buffer = "const buffer = new Uint8Array([0, 1, 2, 3, 4, 5, 6, 7]).buffer;";
    EXPECT_EQ(decoded<Bytes>(buffer + "new Uint8Array(buffer, 2, 3)"), (Bytes{2, 3, 4}));
    EXPECT_EQ(decoded<Bytes>("new Uint8Array(buffer).subarray(5)"), (Bytes{5, 6, 7}));
    EXPECT_EQ(decoded<Bytes>("new Uint16Array(buffer, 4, 1)"), (Bytes{4, 5}));
    EXPECT_EQ(decoded<Bytes>("new Uint8Array(buffer, 8)"), Bytes());
    EXPECT_EQ(decoded<Bytes>("new Uint8Array([9, 8, 7]).subarray(1)"), (Bytes{8, 7}));
}

TEST_F(BytesCoding, ReadsLargeViews) {
    const Bytes bytes =
        decoded<Bytes>(
            "const large = new Uint8Array(1 << 20); large[1 << 19] = 7; large.subarray(1)")
            .value();
    EXPECT_EQ(bytes.size(), (1u << 20) - 1);
    EXPECT_EQ(bytes[(1 << 19) - 1], 7);
}

TEST_F(BytesCoding, NothingElseIsBytes) {
    EXPECT_EQ(failure<Bytes>("[1, 2]"), "expected an ArrayBuffer or a typed array, found an array");
    EXPECT_EQ(failure<Bytes>("'AQI='"), "expected an ArrayBuffer or a typed array, found a string");
    EXPECT_EQ(failure<Bytes>("({byteLength: 3})"),
              "expected an ArrayBuffer or a typed array, found an object");
    EXPECT_EQ(failure<Bytes>("null"), "expected an ArrayBuffer or a typed array, found null");
    EXPECT_EQ(failure<Bytes>("new DataView(new ArrayBuffer(2))"),
              "expected an ArrayBuffer or a typed array, found an object");
    EXPECT_EQ(failure<Bytes>("new Proxy(new Uint8Array(2), {})"),
              "expected an ArrayBuffer or a typed array, found an object");
}

TEST_F(BytesCoding, AreWrittenAsABufferOfTheirOwn) {
    const std::string show =
        "(value instanceof ArrayBuffer) + ':' + Array.from(new Uint8Array(value)).join()";
    Bytes bytes{0, 127, 255};
    EXPECT_EQ(written(bytes, show), "true:0,127,255");
    bytes[0] = 9;
    EXPECT_EQ(eval(show), "true:0,127,255");
    EXPECT_EQ(written(Bytes(), show), "true:");
}

TEST_F(BytesCoding, AreCopiedWhenTheyAreRead) {
    EXPECT_EQ(written(decoded<Bytes>("globalThis.mine = new Uint8Array([1, 2]); mine").value(),
                      "mine[0] = 5; new Uint8Array(value).join()"),
              "1,2");
}
