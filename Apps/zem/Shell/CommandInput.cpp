#include "CommandInput.h"

#include "Lines.h"
#include "Process/File.h"
#include "Shell.h"

#include <unistd.h>
#include <utility>

namespace zem::host {

namespace {

bool isFile(const Options& options) {
    return options.commands && options.commands != "-";
}

} // namespace

std::string readCommandFile(const Options& options) {
    return isFile(options) ? readFile(*options.commands) : "";
}

std::string commandSource(const Options& options) {
    if (options.shell) {
        return "";
    }
    return isFile(options) ? *options.commands : "standard input";
}

bool isTyped(const Options& options) {
    return options.shell && isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
}

std::unique_ptr<LineSource>
openCommandLines(const Options& options, std::string fileText,
                 std::function<std::vector<std::string>()> subscriptionNames) {
    if (isTyped(options)) {
        return std::make_unique<Shell>(std::move(subscriptionNames));
    }
    if (isFile(options)) {
        return std::make_unique<TextLines>(std::move(fileText));
    }
    return std::make_unique<DescriptorLines>(STDIN_FILENO);
}

} // namespace zem::host
