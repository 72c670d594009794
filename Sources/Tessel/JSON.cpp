#include <zem/Tessel/JSON.h>

#include <boost/json/basic_parser_impl.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <system_error>

namespace tessel {

Kind JSONDecoder::kind() const {
    if (value == nullptr) {
        return Kind::undefined;
    }
    switch (value->kind()) {
    case boost::json::kind::null:
        return Kind::null;
    case boost::json::kind::bool_:
        return Kind::boolean;
    case boost::json::kind::int64:
    case boost::json::kind::uint64:
    case boost::json::kind::double_:
        return Kind::number;
    case boost::json::kind::string:
        return Kind::string;
    case boost::json::kind::array:
        return Kind::array;
    case boost::json::kind::object:
        return Kind::object;
    }
    return Kind::undefined;
}

double JSONDecoder::number() const {
    return value->to_number<double>();
}

std::optional<std::int64_t> JSONDecoder::integer() const {
    if (const std::int64_t* integer = value->if_int64()) {
        return *integer;
    }
    if (value->is_uint64()) {
        return std::nullopt;
    }
    return integral(value->get_double());
}

// --- Writing

namespace {

void appendNumber(std::string& text, double number) {
    if (!std::isfinite(number)) {
        text += "null";
        return;
    }
    // The shortest digits that read back as the same number, d.ddde+xx, laid out as JavaScript
    // does.
    std::array<char, 32> buffer;
    const char* const end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number,
                                          std::chars_format::scientific)
                                .ptr;
    const char* const mark = std::find<const char*>(buffer.data(), end, 'e');
    std::string digits;
    for (const char* at = buffer.data(); at != mark; ++at) {
        if (*at == '-') {
            text += '-';
        } else if (*at != '.') {
            digits += *at;
        }
    }
    int exponent = 0;
    std::from_chars(mark + (mark[1] == '+' ? 2 : 1), end, exponent);

    const int count = static_cast<int>(digits.size());
    const int point = exponent + 1; // how many digits stand before the point
    if (count <= point && point <= 21) {
        text += digits;
        text.append(static_cast<std::size_t>(point - count), '0');
    } else if (0 < point && point <= 21) {
        digits.insert(static_cast<std::size_t>(point), 1, '.');
        text += digits;
    } else if (-6 < point && point <= 0) {
        text += "0.";
        text.append(static_cast<std::size_t>(-point), '0');
        text += digits;
    } else {
        if (count > 1) {
            digits.insert(1, 1, '.');
        }
        fmt::format_to(std::back_inserter(text), "{}e{:+}", digits, exponent);
    }
}

void appendString(std::string& text, std::string_view string) {
    text += '"';
    std::size_t plain = 0; // where what has not been appended yet begins
    for (std::size_t index = 0; index < string.size(); ++index) {
        const char character = string[index];
        if (static_cast<unsigned char>(character) >= 0x20 && character != '"' &&
            character != '\\') {
            continue;
        }
        text += string.substr(plain, index - plain);
        plain = index + 1;
        text += '\\';
        switch (character) {
        case '"':
        case '\\':
            text += character;
            break;
        case '\b':
            text += 'b';
            break;
        case '\f':
            text += 'f';
            break;
        case '\n':
            text += 'n';
            break;
        case '\r':
            text += 'r';
            break;
        case '\t':
            text += 't';
            break;
        default:
            fmt::format_to(std::back_inserter(text), "u{:04x}", character);
        }
    }
    text += string.substr(plain);
    text += '"';
}

void append(std::string& text, const Any& value) {
    switch (value.kind()) {
    case boost::json::kind::null:
        text += "null";
        return;
    case boost::json::kind::bool_:
        text += value.get_bool() ? "true" : "false";
        return;
    case boost::json::kind::int64:
        fmt::format_to(std::back_inserter(text), "{}", value.get_int64());
        return;
    case boost::json::kind::uint64:
        fmt::format_to(std::back_inserter(text), "{}", value.get_uint64());
        return;
    case boost::json::kind::double_:
        appendNumber(text, value.get_double());
        return;
    case boost::json::kind::string:
        appendString(text, value.get_string());
        return;
    case boost::json::kind::array: {
        char separator = '[';
        for (const Any& element : value.get_array()) {
            text += separator;
            append(text, element);
            separator = ',';
        }
        text += separator == '[' ? "[]" : "]";
        return;
    }
    case boost::json::kind::object: {
        char separator = '{';
        for (const auto& [key, element] : value.get_object()) {
            text += separator;
            appendString(text, key);
            text += ':';
            append(text, element);
            separator = ',';
        }
        text += separator == '{' ? "{}" : "}";
        return;
    }
    }
}

} // namespace

std::string toText(const Any& value) {
    std::string text;
    append(text, value);
    return text;
}

// --- Reading

namespace {

/// Builds the value. The library's own number conversion is an approximation; this one reads each
/// number as the nearest double, as the engine does.
class Builder {
  public:
    using Error = boost::json::error_code;
    using Text = boost::json::string_view;

    static constexpr std::size_t max_object_size = boost::json::object::max_size();
    static constexpr std::size_t max_array_size = boost::json::array::max_size();
    static constexpr std::size_t max_key_size = boost::json::string::max_size();
    static constexpr std::size_t max_string_size = boost::json::string::max_size();

    bool on_document_begin(Error&) {
        values.reset();
        return true;
    }
    bool on_document_end(Error&) { return true; }
    bool on_object_begin(Error&) { return true; }
    bool on_object_end(std::size_t count, Error&) {
        values.push_object(count);
        return true;
    }
    bool on_array_begin(Error&) { return true; }
    bool on_array_end(std::size_t count, Error&) {
        values.push_array(count);
        return true;
    }
    bool on_key_part(Text part, std::size_t, Error&) {
        values.push_chars(part);
        return true;
    }
    bool on_key(Text part, std::size_t, Error&) {
        values.push_key(part);
        return true;
    }
    bool on_string_part(Text part, std::size_t, Error&) {
        values.push_chars(part);
        return true;
    }
    bool on_string(Text part, std::size_t, Error&) {
        values.push_string(part);
        return true;
    }
    bool on_number_part(Text part, Error&) {
        digits.append(part.data(), part.size());
        return true;
    }
    bool on_int64(std::int64_t number, Text part, Error&) {
        const bool negative = (digits.empty() ? part : Text(digits)).starts_with('-');
        digits.clear();
        if (number == 0 && negative) {
            values.push_double(-0.0);
        } else {
            values.push_int64(number);
        }
        return true;
    }
    bool on_uint64(std::uint64_t number, Text, Error&) {
        digits.clear();
        values.push_uint64(number);
        return true;
    }
    bool on_double(double approximation, Text part, Error& error) {
        digits.append(part.data(), part.size());
        double number = 0;
        const std::errc outcome =
            std::from_chars(digits.data(), digits.data() + digits.size(), number).ec;
        digits.clear();
        if (outcome != std::errc()) {
            // Out of range: too small is nothing, too large is no number.
            if (std::abs(approximation) > 1) {
                error = boost::json::error::exponent_overflow;
                return false;
            }
            number = std::copysign(0.0, approximation);
        }
        values.push_double(number);
        return true;
    }
    bool on_bool(bool boolean, Error&) {
        values.push_bool(boolean);
        return true;
    }
    bool on_null(Error&) {
        values.push_null();
        return true;
    }
    bool on_comment_part(Text, Error&) { return true; }
    bool on_comment(Text, Error&) { return true; }

    Any release() { return values.release(); }

  private:
    boost::json::value_stack values;
    std::string digits;
};

Decoded<Any> parseStrictly(std::string_view text) {
    boost::json::parse_options options;
    options.max_depth = deepestNesting;
    boost::json::basic_parser<Builder> parser(options);
    boost::json::error_code error;
    const std::size_t used = parser.write_some(false, text.data(), text.size(), error);
    if (!error && used < text.size()) {
        error = boost::json::error::extra_data;
    }
    if (error == boost::json::error::too_deep) {
        return std::unexpected(DecodingError::tooDeep());
    }
    if (error) {
        return std::unexpected(DecodingError{
            {},
            fmt::format("expected JSON, found a mistake at byte {}: {}", used, error.message())});
    }
    return parser.handler().release();
}

/// The unit that an escape "\uXXXX" at `at` stands for.
std::optional<unsigned> escapedUnit(std::string_view text, std::size_t at) {
    constexpr std::size_t length = 6;
    if (text.size() < at + length || text[at] != '\\' || text[at + 1] != 'u') {
        return std::nullopt;
    }
    unsigned unit = 0;
    const char* const first = text.data() + at + 2;
    const char* const last = text.data() + at + length;
    return std::from_chars(first, last, unit, 16).ptr == last ? std::optional(unit) : std::nullopt;
}

/// The text with U+FFFD for every escaped surrogate that has no partner, at the same length; absent
/// where there is none.
std::optional<std::string> replaceLoneSurrogates(std::string_view text) {
    std::optional<std::string> replaced;
    std::size_t at = text.find('\\');
    while (at != std::string_view::npos) {
        std::size_t length = 2;
        if (const std::optional<unsigned> unit = escapedUnit(text, at)) {
            const auto isHigh = [](unsigned u) {
                return u >= 0xD800 && u < 0xDC00;
            };
            const auto isLow = [](unsigned u) {
                return u >= 0xDC00 && u < 0xE000;
            };
            length = 6;
            if (isHigh(*unit) && isLow(escapedUnit(text, at + length).value_or(0))) {
                length = 12;
            } else if (isHigh(*unit) || isLow(*unit)) {
                if (!replaced) {
                    replaced = std::string(text);
                }
                replaced->replace(at, length, "\\ufffd");
            }
        }
        at = text.find('\\', at + length);
    }
    return replaced;
}

} // namespace

Decoded<Any> parse(std::string_view text) {
    Decoded<Any> parsed = parseStrictly(text);
    if (!parsed) {
        // The engine escapes lone surrogates, which the parser refuses.
        if (const std::optional<std::string> replaced = replaceLoneSurrogates(text)) {
            return parseStrictly(*replaced);
        }
    }
    return parsed;
}

} // namespace tessel
