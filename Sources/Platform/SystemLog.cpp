#include <zem/Platform/Private/SystemLog.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>

// Where in our sources a line comes from says nothing to an application's users.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

namespace zem::platform {

namespace {

int priority(LogLevel level) {
    switch (level) {
    case LogLevel::debug:
        return LOG_DEBUG;
    case LogLevel::info:
        return LOG_INFO;
    case LogLevel::default_:
        return LOG_NOTICE;
    case LogLevel::error:
        return LOG_ERR;
    case LogLevel::fault:
        return LOG_CRIT;
    }
    return LOG_NOTICE;
}

std::string_view name(LogLevel level) {
    switch (level) {
    case LogLevel::debug:
        return "debug";
    case LogLevel::info:
        return "info";
    case LogLevel::default_:
        return "default";
    case LogLevel::error:
        return "error";
    case LogLevel::fault:
        return "fault";
    }
    return "default";
}

// Asked for each line, because libsystemd drops lines without a word while there is no journal.
bool hasJournal() {
    struct stat status{};
    return stat("/run/systemd/journal/socket", &status) == 0 && S_ISSOCK(status.st_mode);
}

bool writeToJournal(const LogLine& line) {
    std::vector<std::string> fields = journalFields(line);
    std::vector<iovec> parts;
    parts.reserve(fields.size());
    for (auto& field : fields) {
        parts.push_back({field.data(), field.size()});
    }
    return sd_journal_sendv(parts.data(), static_cast<int>(parts.size())) == 0;
}

} // namespace

std::vector<std::string> journalFields(const LogLine& line) {
    return {
        fmt::format("MESSAGE={}", line.text),
        fmt::format("PRIORITY={}", priority(line.level)),
        fmt::format("SYSLOG_IDENTIFIER={}", program_invocation_short_name),
        fmt::format("ZEM_SUBSYSTEM={}", line.subsystem),
        fmt::format("ZEM_CATEGORY={}", line.category),
    };
}

std::string consoleLine(const LogLine& line) {
    std::string text = fmt::format("{}/{} {}: ", line.subsystem, line.category, name(line.level));
    for (const char character : line.text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '\n') {
            text += "\\n";
        } else if ((code < 0x20 && character != '\t') || code == 0x7f) {
            text += fmt::format("\\x{:02x}", code);
        } else {
            text += character;
        }
    }
    text += '\n';
    return text;
}

void writeToSystemLog(const LogLine& line) {
    if (hasJournal() && writeToJournal(line)) {
        return;
    }
    const std::string text = consoleLine(line);
    std::fwrite(text.data(), 1, text.size(), stderr);
}

} // namespace zem::platform
