#include <zem/Tessel/JSON.h>

#include <fmt/format.h>

#include <cmath>
#include <iterator>

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

std::vector<std::string> JSONDecoder::names() const {
    std::vector<std::string> texts;
    for (const auto& entry : value->get_object()) {
        texts.emplace_back(entry.key());
    }
    return texts;
}

namespace {

void append(std::string& text, const Any& value) {
    switch (value.kind()) {
    case boost::json::kind::double_:
        if (const double number = value.get_double(); std::isfinite(number)) {
            fmt::format_to(std::back_inserter(text), "{}", number);
        } else {
            text += "null";
        }
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
            text += boost::json::serialize(key);
            text += ':';
            append(text, element);
            separator = ',';
        }
        text += separator == '{' ? "{}" : "}";
        return;
    }
    default:
        text += boost::json::serialize(value);
    }
}

} // namespace

std::string toText(const Any& value) {
    std::string text;
    append(text, value);
    return text;
}

Decoded<Any> parse(std::string_view text) {
    boost::json::parse_options options;
    options.max_depth = 512;
    boost::json::parser parser({}, options);
    boost::json::error_code error;
    const std::size_t used = parser.write_some(text.data(), text.size(), error);
    if (!error && used < text.size()) {
        const std::size_t rest = text.find_first_not_of(" \t\r\n", used);
        if (rest != std::string_view::npos) {
            error = boost::json::error::extra_data;
        }
    }
    if (error) {
        return std::unexpected(DecodingError{
            {},
            fmt::format("expected JSON, found a mistake at byte {}: {}", used, error.message())});
    }
    return parser.release();
}

} // namespace tessel
