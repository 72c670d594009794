#pragma once

// Byte buffers, and the one that wipes itself.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace zem::platform {

using Bytes = std::vector<std::uint8_t>;
using BytesView = std::span<const std::uint8_t>;

/// Overwrites memory in a way that the compiler does not drop.
void wipe(void* memory, std::size_t length);

/// Allocates for a container whose memory is overwritten whenever it is given back, also where the
/// container grows. A string keeps short texts in itself, where this does not reach.
template <class T>
struct WipingAllocator : std::allocator<T> {
    WipingAllocator() = default;
    template <class Other>
    WipingAllocator(const WipingAllocator<Other>&) {}

    void deallocate(T* memory, std::size_t count) {
        wipe(memory, count * sizeof(T));
        std::allocator<T>::deallocate(memory, count);
    }
};

/// Bytes that are overwritten before their memory is given back: keys and salts. Copying is
/// explicit, so that it is seen where a second copy of a secret comes to life.
class SecretBytes {
  public:
    SecretBytes() = default;
    explicit SecretBytes(BytesView bytes);
    /// `length` zero bytes, to be filled through `data()`.
    static SecretBytes ofLength(std::size_t length);
    ~SecretBytes();
    SecretBytes(SecretBytes&& other) noexcept;
    SecretBytes& operator=(SecretBytes&& other) noexcept;
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;

    SecretBytes copy() const { return SecretBytes(view()); }
    std::uint8_t* data() { return bytes.data(); }
    const std::uint8_t* data() const { return bytes.data(); }
    std::size_t size() const { return bytes.size(); }
    bool empty() const { return bytes.empty(); }
    BytesView view() const { return bytes; }

    bool operator==(const SecretBytes&) const = default;

  private:
    Bytes bytes; // never grown after construction, so no copy is left behind by a reallocation
};

} // namespace zem::platform
