#include <zem/Platform/Log.h>

#include <fmt/format.h>

#include <iterator>
#include <optional>
#include <string>

namespace zem::platform {

namespace {

constexpr std::string_view privateText = "<private>";
constexpr std::string_view mismatchText = "<mismatch>";

struct Conversion {
    std::optional<bool> isPublic;
    char kind = 0;
};

// Takes what follows a percent sign off the front of `format`.
Conversion takeConversion(std::string_view& format) {
    Conversion conversion;
    if (format.starts_with('{')) {
        const auto end = format.find('}');
        const auto mark = format.substr(1, end == format.npos ? end : end - 1);
        if (mark == "public" || mark == "private") {
            conversion.isPublic = mark == "public";
        }
        format.remove_prefix(end == format.npos ? format.size() : end + 1);
    }
    if (!format.empty()) {
        conversion.kind = format.front();
        format.remove_prefix(1);
    }
    return conversion;
}

bool fits(char kind, const LogArgument& argument) {
    switch (kind) {
    case 'd':
    case 'x':
        return std::holds_alternative<std::int64_t>(argument.value);
    case 'f':
        return std::holds_alternative<double>(argument.value);
    case 's':
        return std::holds_alternative<std::string_view>(argument.value);
    case '@': {
        const auto* description = std::get_if<LogArgument::Description>(&argument.value);
        return description != nullptr && *description != nullptr;
    }
    default:
        return false;
    }
}

void append(std::string& text, char kind, const LogArgument& argument) {
    const auto end = std::back_inserter(text);
    switch (kind) {
    case 'd':
        fmt::format_to(end, "{}", std::get<std::int64_t>(argument.value));
        break;
    case 'x':
        fmt::format_to(end, "{:x}",
                       static_cast<std::uint64_t>(std::get<std::int64_t>(argument.value)));
        break;
    case 'f':
        fmt::format_to(end, "{:f}", std::get<double>(argument.value));
        break;
    case 's':
        text += std::get<std::string_view>(argument.value);
        break;
    default:
        text += std::get<LogArgument::Description>(argument.value)();
    }
}

} // namespace

std::string formatLog(std::string_view format, LogArguments arguments) {
    std::string text;
    const auto* next = arguments.begin();
    for (;;) {
        const auto percent = format.find('%');
        text += format.substr(0, percent);
        if (percent == format.npos) {
            return text;
        }
        format.remove_prefix(percent + 1);
        const auto [isPublic, kind] = takeConversion(format);
        if (kind == '%') {
            text += '%';
            continue;
        }
        const LogArgument* argument = next == arguments.end() ? nullptr : next++;
        const bool isNumber = kind == 'd' || kind == 'x' || kind == 'f';
        if (argument == nullptr || !fits(kind, *argument)) {
            text += mismatchText;
        } else if (!isPublic.value_or(isNumber)) {
            text += privateText;
        } else {
            append(text, kind, *argument);
        }
    }
}

} // namespace zem::platform
