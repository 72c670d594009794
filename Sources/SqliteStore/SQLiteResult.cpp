#include <zem/SqliteStore/Private/DescriptionText.h>
#include <zem/SqliteStore/SQLiteResult.h>

#include <sqlite3.h>

namespace zem {
namespace {

// How many bytes the character that starts with `lead` has, and what its second byte must lie
// between: the limits keep out overlong forms, surrogates and everything above U+10FFFF.
struct Shape {
    int length;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;
};

Shape shapeOf(unsigned char lead) noexcept {
    if (lead < 0x80) {
        return {1};
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return {2};
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return {3, static_cast<unsigned char>(lead == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(lead == 0xED ? 0x9F : 0xBF)};
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        return {4, static_cast<unsigned char>(lead == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(lead == 0xF4 ? 0x8F : 0xBF)};
    }
    return {0};
}

bool isValidUTF8(const char* text) noexcept {
    const auto* byte = reinterpret_cast<const unsigned char*>(text);
    while (*byte != 0) {
        const Shape shape = shapeOf(*byte);
        if (shape.length == 0) {
            return false;
        }
        ++byte;
        for (int index = 1; index < shape.length; ++index, ++byte) {
            const unsigned char low = index == 1 ? shape.low : 0x80;
            const unsigned char high = index == 1 ? shape.high : 0xBF;
            if (*byte < low || *byte > high) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

const char* descriptionText(const char* text) noexcept {
    return text != nullptr && isValidUTF8(text) ? text : "Unknown error";
}

std::string SQLiteResult::description() const {
    return what();
}

const char* SQLiteResult::what() const noexcept {
    return descriptionText(sqlite3_errstr(rawValue));
}

} // namespace zem
