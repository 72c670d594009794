#include "Settings.h"

#include "Process/Failure.h"
#include "Process/File.h"

#include <boost/json/parser.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace zem::host {

namespace {

/// The offset of the first mistake in `text`. The engine decides whether the text is JSON, but does
/// not tell the offset.
std::size_t offsetOfError(std::string_view text) {
    boost::json::parse_options options;
    options.max_depth = 1000;
    boost::json::parser parser({}, options);
    boost::json::error_code error;
    return parser.write_some(text.data(), text.size(), error);
}

js::Local parseFile(js::Scope& scope, const std::string& file, const std::string& text) {
    const auto fail = [&](std::size_t offset, const char* what) {
        return Failure(exitUsage, fmt::format("{}:{}: {}", file, placeIn(text, offset), what));
    };
    // The engine replaces bytes that are not UTF-8.
    const std::string decoded = scope.toText(scope.string(text));
    if (decoded != text) {
        const auto differing = std::ranges::mismatch(text, decoded).in1 - text.begin();
        throw fail(static_cast<std::size_t>(differing), "not valid UTF-8");
    }
    const js::Result<js::Local> value = scope.parseJSON(text);
    if (!value) {
        throw fail(offsetOfError(text), "not valid JSON");
    }
    return *value;
}

} // namespace

Settings::Settings(const std::vector<Setting>& given) {
    for (const Setting& setting : given) {
        loaded.push_back({setting, setting.isFile ? readFile(setting.value) : setting.value});
    }
}

std::vector<Settings::Value> Settings::parse(js::Scope& scope) const {
    std::vector<Value> values;
    values.reserve(loaded.size());
    for (const auto& [setting, text] : loaded) {
        values.emplace_back(setting.name,
                            scope.keep(setting.isFile ? parseFile(scope, setting.value, text)
                                                      : scope.string(text)));
    }
    return values;
}

} // namespace zem::host
