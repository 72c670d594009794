#include <zem/Platform/Random.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

using zem::platform::Bytes;
using zem::platform::SecretBytes;

TEST(Random, KeyHasTheLengthAskedFor) {
    EXPECT_EQ(zem::platform::randomKey(0).size(), 0U);
    EXPECT_EQ(zem::platform::randomKey(16).size(), 16U);
    EXPECT_EQ(zem::platform::randomKey(32).size(), 32U);
}

TEST(Random, NoTwoKeysAreEqual) {
    std::set<Bytes> keys;
    for (int count = 0; count < 100; ++count) {
        const SecretBytes key = zem::platform::randomKey(32);
        keys.emplace(key.view().begin(), key.view().end());
    }
    EXPECT_EQ(keys.size(), 100U);
}

// The system answers a request longer than 32 MiB only in part.
TEST(Random, FillsALongBufferToItsEnd) {
    Bytes bytes((std::size_t{33} << 20) + 64);
    zem::platform::fillRandom(bytes);
    EXPECT_FALSE(std::all_of(bytes.end() - 64, bytes.end(), [](auto byte) { return byte == 0; }));
}

TEST(Random, FillsNoByteBeyondTheSpan) {
    Bytes bytes(64);
    zem::platform::fillRandom(std::span(bytes).first(32));
    EXPECT_TRUE(std::all_of(bytes.begin() + 32, bytes.end(), [](auto byte) { return byte == 0; }));
    EXPECT_FALSE(
        std::all_of(bytes.begin(), bytes.begin() + 32, [](auto byte) { return byte == 0; }));
}
