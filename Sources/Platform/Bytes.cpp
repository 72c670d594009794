#include <zem/Platform/Bytes.h>

#include <cstring>
#include <utility>

namespace zem::platform {

void wipe(void* memory, std::size_t length) {
    if (length != 0) { // an empty buffer has no memory to point at
        explicit_bzero(memory, length);
    }
}

SecretBytes::SecretBytes(BytesView contents)
    : bytes(contents.begin(), contents.end()) {}

SecretBytes SecretBytes::ofLength(std::size_t length) {
    SecretBytes result;
    result.bytes = Bytes(length);
    return result;
}

SecretBytes::~SecretBytes() {
    wipe(bytes.data(), bytes.size());
}

SecretBytes::SecretBytes(SecretBytes&& other) noexcept
    : bytes(std::exchange(other.bytes, {})) {}

SecretBytes& SecretBytes::operator=(SecretBytes&& other) noexcept {
    if (this != &other) {
        wipe(bytes.data(), bytes.size());
        bytes = std::exchange(other.bytes, {});
    }
    return *this;
}

} // namespace zem::platform
