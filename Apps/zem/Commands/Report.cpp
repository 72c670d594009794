#include "Report.h"

#include "Process/Output.h"

#include <fmt/format.h>

#include <utility>

namespace zem::host {

namespace {

std::string quoted(const std::string& text) {
    return tessel::toText(tessel::Any(boost::json::string(text)));
}

std::string quotedOrNull(const std::optional<std::string>& text) {
    return text ? quoted(*text) : "null";
}

std::string labelled(const std::string& label, const std::string& text) {
    return label.empty() ? text : fmt::format("{}: {}", label, text);
}

} // namespace

void printConsoleError(bool json, const std::string& message) {
    if (json) {
        printLine(fmt::format(R"({{"level":"error","message":{}}})", quoted(message)));
    } else {
        printErrorLine(message);
    }
}

Shown show(const tessel::Any& data) {
    std::string text = tessel::toText(data);
    return {text, std::move(text)};
}

void Report::data(const CommandOrigin& origin, const std::string& label, const Shown& shown) const {
    if (json) {
        printObject(origin, shown.json, std::nullopt);
    } else {
        printLine(labelled(label, shown.text));
    }
}

void Report::failure(const CommandOrigin& origin, const std::string& label,
                     const std::string& error) const {
    if (json) {
        printObject(origin, "null", error);
    } else if (!label.empty()) {
        printLine(fmt::format("{}: failed: {}", label, error));
    } else {
        printError(origin, error);
    }
}

void Report::end(const CommandOrigin& origin, const std::string& label,
                 const std::string& error) const {
    if (json || !label.empty()) {
        failure(origin, label, error);
    }
    printError(origin, labelled(label, error));
}

void Report::printObject(const CommandOrigin& origin, const std::string& data,
                         const std::optional<std::string>& error) const {
    printLine(fmt::format(R"({{"command":{},"name":{},"line":{},"data":{},"error":{}}})",
                          quoted(origin.command), quotedOrNull(origin.name), origin.line, data,
                          quotedOrNull(error)));
}

void Report::printError(const CommandOrigin& origin, const std::string& text) const {
    printErrorLine(source.empty() ? fmt::format("zem: {}", text)
                                  : fmt::format("zem: {}:{}: {}", source, origin.line, text));
}

} // namespace zem::host
