#include <zem/JavaScript/Private/Text.h>

#include <boost/nowide/utf/convert.hpp>

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

JSStringRef makeUTF16(std::string_view text) {
    const std::u16string units =
        boost::nowide::utf::convert_string<char16_t>(text.data(), text.data() + text.size());
    return JSStringCreateWithCharacters(reinterpret_cast<const JSChar*>(units.data()),
                                        units.size());
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
    const auto* characters = reinterpret_cast<const char16_t*>(JSStringGetCharactersPtr(string));
    return boost::nowide::utf::convert_string<char>(characters, characters + units);
}

} // namespace zem::js
