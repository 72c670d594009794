#include <zem/Platform/Bytes.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <new>
#include <type_traits>
#include <vector>

using zem::platform::Bytes;
using zem::platform::SecretBytes;

namespace {

/// The block whose state at the moment it is given back is of interest.
struct Watch {
    std::atomic<const std::uint8_t*> block{nullptr};
    std::size_t length = 0;
    bool freed = false;
    bool wiped = false;

    void on(const auto& bytes) {
        length = bytes.size();
        freed = wiped = false;
        block = bytes.data();
    }
    void released(const void* memory) {
        if (memory != nullptr && memory == block) {
            block = nullptr;
            const auto* first = static_cast<const std::uint8_t*>(memory);
            wiped = std::all_of(first, first + length, [](auto byte) { return byte == 0; });
            freed = true;
        }
    }
};
Watch watch;

const Bytes secret{1, 2, 3, 0, 255};

static_assert(!std::is_copy_constructible_v<SecretBytes>);
static_assert(!std::is_copy_assignable_v<SecretBytes>);

} // namespace

// All memory of this program comes through here, so that the block of a watched secret can be
// looked at when it is given back.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define HAS_HOOKS_ONLY // the thread sanitizer's operators cannot be replaced
#endif
#endif
#ifdef HAS_HOOKS_ONLY
#include <sanitizer/allocator_interface.h>
[[maybe_unused]] const int hooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) {},
    [](const volatile void* memory) { watch.released(const_cast<const void*>(memory)); });
#else
void* operator new(std::size_t size) {
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return std::malloc(size);
}
void operator delete(void* memory) noexcept {
    watch.released(memory);
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    watch.released(memory);
    std::free(memory);
}
#endif

TEST(Wipe, OverwritesWithZeros) {
    std::array<unsigned char, 4> memory{1, 2, 3, 4};
    zem::platform::wipe(memory.data(), 3);
    EXPECT_EQ(memory, (std::array<unsigned char, 4>{0, 0, 0, 4}));
}

TEST(Wipe, TakesAnEmptyBuffer) {
    zem::platform::wipe(nullptr, 0);
}

TEST(SecretBytes, HoldsWhatItWasGivenZerosIncluded) {
    const SecretBytes bytes(secret);
    EXPECT_EQ(Bytes(bytes.view().begin(), bytes.view().end()), secret);
    EXPECT_EQ(bytes.size(), 5U);
    EXPECT_FALSE(bytes.empty());
}

TEST(SecretBytes, OfLengthIsZeros) {
    const SecretBytes bytes = SecretBytes::ofLength(3);
    EXPECT_EQ(Bytes(bytes.view().begin(), bytes.view().end()), (Bytes{0, 0, 0}));
}

TEST(SecretBytes, MovedFromIsEmpty) {
    SecretBytes first(secret);
    SecretBytes second(std::move(first));
    EXPECT_TRUE(first.empty()); // NOLINT(bugprone-use-after-move): this is the contract
    EXPECT_EQ(second, SecretBytes(secret));
    SecretBytes third;
    third = std::move(second);
    EXPECT_TRUE(second.empty()); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(third, SecretBytes(secret));
}

TEST(SecretBytes, MovingOntoItselfKeepsTheBytes) {
    SecretBytes bytes(secret);
    SecretBytes& same = bytes;
    bytes = std::move(same);
    EXPECT_EQ(bytes, SecretBytes(secret));
}

TEST(SecretBytes, CopyIsASecondBuffer) {
    const SecretBytes bytes(secret);
    const SecretBytes copy = bytes.copy();
    EXPECT_EQ(copy, bytes);
    EXPECT_NE(copy.data(), bytes.data());
}

TEST(SecretBytes, IsWipedBeforeItsMemoryIsGivenBack) {
    {
        const SecretBytes bytes(secret);
        watch.on(bytes);
    }
    EXPECT_TRUE(watch.freed);
    EXPECT_TRUE(watch.wiped);
}

TEST(WipingAllocator, WipesWhatAContainerOutgrowsAndWhatItEndsWith) {
    {
        std::vector<std::uint8_t, zem::platform::WipingAllocator<std::uint8_t>> bytes(
            secret.begin(), secret.end());
        watch.on(bytes);
        bytes.reserve(2 * bytes.capacity());
        EXPECT_TRUE(watch.freed);
        EXPECT_TRUE(watch.wiped);
        EXPECT_TRUE(std::ranges::equal(bytes, secret));
        watch.on(bytes);
    }
    EXPECT_TRUE(watch.freed);
    EXPECT_TRUE(watch.wiped);
}

TEST(SecretBytes, IsWipedBeforeOthersAreMovedOntoIt) {
    SecretBytes bytes(secret);
    watch.on(bytes);
    bytes = SecretBytes(secret);
    EXPECT_TRUE(watch.freed);
    EXPECT_TRUE(watch.wiped);
}
