#include <zem/Platform/Random.h>
#include <zem/Platform/UUID.h>

#include <array>

namespace zem::platform {

std::string makeUUID() {
    std::array<std::uint8_t, 16> bytes{};
    fillRandom(bytes);
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40); // version 4: random
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80); // the variant of RFC 9562
    std::string text;
    text.reserve(36);
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10) {
            text += '-';
        }
        constexpr char digits[] = "0123456789ABCDEF";
        text += digits[bytes[index] >> 4];
        text += digits[bytes[index] & 0x0F];
    }
    return text;
}

} // namespace zem::platform
