#include <zem/JavaScript/Private/Text.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <unicode/ustring.h>

namespace zem::js {

namespace {

bool isASCIIWithoutNUL(const char* text, std::size_t length) {
    constexpr std::uint64_t high = 0x8080808080808080u;
    constexpr std::uint64_t ones = 0x0101010101010101u;
    std::size_t index = 0;
    for (; index + 8 <= length; index += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, text + index, 8);
        // The second term has a high bit where a byte is zero, given that no byte has its own set.
        if (((word | (word - ones)) & high) != 0) {
            return false;
        }
    }
    for (; index < length; ++index) {
        if (static_cast<signed char>(text[index]) <= 0) {
            return false;
        }
    }
    return true;
}

/// Writes the units as bytes; false when one of them is not ASCII. In blocks of a known length,
/// which the compiler makes a few wide instructions of.
bool narrow(const char16_t* units, std::size_t count, char* text) {
    constexpr std::size_t block = 32;
    unsigned seen = 0;
    std::size_t index = 0;
    for (; index + block <= count; index += block) {
        char16_t any = 0;
        for (std::size_t unit = 0; unit < block; ++unit) {
            any = static_cast<char16_t>(any | units[index + unit]);
            text[index + unit] = static_cast<char>(units[index + unit]);
        }
        seen |= any;
    }
    for (; index < count; ++index) {
        seen |= units[index];
        text[index] = static_cast<char>(units[index]);
    }
    return seen < 0x80;
}

constexpr UChar32 replacement = 0xFFFD;

/// Lengths as the converter counts them.
std::int32_t counted(std::size_t length) {
    if (length > std::size_t{std::numeric_limits<std::int32_t>::max()}) {
        throw std::length_error("text of more than 2 GiB");
    }
    return static_cast<std::int32_t>(length);
}

JSStringRef makeUTF16(std::string_view text) {
    // No character takes more units than bytes.
    const std::int32_t bytes = counted(text.size());
    const auto units = std::make_unique_for_overwrite<char16_t[]>(text.size());
    std::int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strFromUTF8WithSub(units.get(), bytes, &length, text.data(), bytes, replacement, nullptr,
                         &status);
    if (U_FAILURE(status)) {
        throw std::bad_alloc();
    }
    return JSStringCreateWithCharacters(reinterpret_cast<const JSChar*>(units.get()),
                                        static_cast<std::size_t>(length));
}

/// Writes as much of the UTF-8 form as fits into `text`. Returns the length of the whole.
std::size_t convert(const char16_t* units, std::size_t count, std::string& text) {
    std::int32_t length = 0;
    UErrorCode status = U_ZERO_ERROR;
    u_strToUTF8WithSub(text.data(), counted(text.size()), &length, units, counted(count),
                       replacement, nullptr, &status);
    if (U_FAILURE(status) && status != U_BUFFER_OVERFLOW_ERROR) {
        throw std::bad_alloc();
    }
    return static_cast<std::size_t>(length);
}

} // namespace

JSStringRef makeStringTerminated(const char* text, std::size_t length) {
    if (isASCIIWithoutNUL(text, length)) {
        return JSStringCreateWithUTF8CString(text);
    }
    return makeUTF16({text, length});
}

JSStringRef makeString(std::string_view text) {
    if (!isASCIIWithoutNUL(text.data(), text.size())) {
        return makeUTF16(text);
    }
    if (constexpr std::size_t small = 256; text.size() < small) {
        char terminated[small];
        std::copy(text.begin(), text.end(), terminated);
        terminated[text.size()] = '\0';
        return JSStringCreateWithUTF8CString(terminated);
    }
    return JSStringCreateWithUTF8CString(std::string(text).c_str());
}

std::string toUTF8(JSStringRef string) {
    const std::size_t units = JSStringGetLength(string);
    // The units of an empty string cost a copy of nothing.
    return units == 0 ? std::string()
                      : toUTF8({reinterpret_cast<const char16_t*>(JSStringGetCharactersPtr(string)),
                                units});
}

std::string toUTF8(std::u16string_view string) {
    const std::size_t units = string.size();
    const char16_t* const characters = string.data();
    std::string text;
    // ASCII needs one byte a unit and is the common case: try that room first. Not the engine's own
    // conversion, which goes byte by byte and cuts text at a lone surrogate.
    bool whole = false;
    text.resize_and_overwrite(units, [&](char* room, std::size_t) {
        whole = narrow(characters, units, room);
        return whole ? units : 0;
    });
    if (whole) {
        return text;
    }
    // Room for what most languages take; then, if need be, for what it does take.
    text.resize(units + units / 2 + 4);
    const std::size_t length = convert(characters, units, text);
    if (length > text.size()) {
        text.resize(length);
        convert(characters, units, text);
    }
    text.resize(length);
    return text;
}

} // namespace zem::js
