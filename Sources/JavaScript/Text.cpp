#include <zem/JavaScript/Private/Text.h>

#include <algorithm>
#include <cstring>
#include <vector>

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

constexpr char16_t replacement = 0xFFFD;

/// One character of UTF-8 text at `at`, which is moved behind it. Of what is no character, the
/// longest beginning of one counts as one U+FFFD, so that what follows it is not lost.
char32_t nextCharacter(std::string_view text, std::size_t& at) {
    const auto byte = [&](std::size_t index) {
        return static_cast<unsigned char>(text[index]);
    };
    const unsigned lead = byte(at++);
    if (lead < 0x80) {
        return lead;
    }
    // What the second byte may be keeps out overlong forms, surrogates and what is above U+10FFFF.
    unsigned lowest = 0x80;
    unsigned highest = 0xBF;
    int missing = 0;
    char32_t character = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        missing = 1;
        character = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        missing = 2;
        character = lead & 0x0F;
        lowest = lead == 0xE0 ? 0xA0 : lowest;
        highest = lead == 0xED ? 0x9F : highest;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        missing = 3;
        character = lead & 0x07;
        lowest = lead == 0xF0 ? 0x90 : lowest;
        highest = lead == 0xF4 ? 0x8F : highest;
    } else {
        return replacement;
    }
    for (; missing > 0; --missing) {
        if (at == text.size() || byte(at) < lowest || byte(at) > highest) {
            return replacement;
        }
        character = (character << 6) | (byte(at++) & 0x3F);
        lowest = 0x80;
        highest = 0xBF;
    }
    return character;
}

JSStringRef makeUTF16(std::string_view text) {
    std::vector<JSChar> units;
    units.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const char32_t character = nextCharacter(text, at);
        if (character < 0x10000) {
            units.push_back(static_cast<JSChar>(character));
        } else {
            units.push_back(static_cast<JSChar>(0xD800 + ((character - 0x10000) >> 10)));
            units.push_back(static_cast<JSChar>(0xDC00 + ((character - 0x10000) & 0x3FF)));
        }
    }
    return JSStringCreateWithCharacters(units.data(), units.size());
}

void appendUTF8(std::string& text, char32_t character) {
    const auto trail = [&](unsigned shift) {
        return static_cast<char>(0x80 | ((character >> shift) & 0x3F));
    };
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0 | (character >> 6));
        text += trail(0);
    } else if (character < 0x10000) {
        text += static_cast<char>(0xE0 | (character >> 12));
        text += trail(6);
        text += trail(0);
    } else {
        text += static_cast<char>(0xF0 | (character >> 18));
        text += trail(12);
        text += trail(6);
        text += trail(0);
    }
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
    std::string text;
    if (units == 0) {
        return text;
    }
    // ASCII needs one byte a unit and is the common case: try that room first. What the engine
    // wrote is the whole text only when it is ASCII throughout, as it may have been cut.
    text.resize(units + 1);
    const std::size_t written = JSStringGetUTF8CString(string, text.data(), text.size());
    if (written == units + 1 && std::all_of(text.begin(), text.end(), [](char c) {
            return static_cast<signed char>(c) >= 0;
        })) {
        text.pop_back();
        return text;
    }
    const JSChar* const characters = JSStringGetCharactersPtr(string);
    const auto isHigh = [](JSChar unit) {
        return unit >= 0xD800 && unit < 0xDC00;
    };
    const auto isLow = [](JSChar unit) {
        return unit >= 0xDC00 && unit < 0xE000;
    };
    text.clear();
    for (std::size_t index = 0; index < units; ++index) {
        const JSChar unit = characters[index];
        if (isHigh(unit) && index + 1 < units && isLow(characters[index + 1])) {
            const char32_t high = unit - 0xD800u;
            const char32_t low = characters[++index] - 0xDC00u;
            appendUTF8(text, 0x10000 + (high << 10) + low);
        } else {
            appendUTF8(text, isHigh(unit) || isLow(unit) ? replacement : unit);
        }
    }
    return text;
}

} // namespace zem::js
