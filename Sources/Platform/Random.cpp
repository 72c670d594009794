#include <zem/Platform/Random.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/random.h>

namespace zem::platform {

void fillRandom(std::span<std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = getrandom(bytes.data(), bytes.size(), 0);
        if (count > 0) { // a long request may be answered in part
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (count < 0 && errno != EINTR) {
            std::fprintf(stderr, "zem: the system gives no randomness: %s\n", std::strerror(errno));
            std::abort();
        }
    }
}

SecretBytes randomKey(std::size_t length) {
    SecretBytes key = SecretBytes::ofLength(length);
    fillRandom({key.data(), key.size()});
    return key;
}

} // namespace zem::platform
