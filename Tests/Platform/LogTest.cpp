#include <zem/Platform/Log.h>
#include <zem/Platform/Mutex.h>

#include <gtest/gtest.h>

#include <Support/Wait.h>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace zem::platform;
using Lines = std::vector<std::string>;

LogArgument object(const char* description) {
    return LogArgument([description] { return std::string(description); });
}

struct WriterGuard {
    explicit WriterGuard(LogWriter writer) { setLogWriter(std::move(writer)); }
    ~WriterGuard() { setLogWriter(nullptr); }
};

TEST(LogFormat, RendersEveryConversionByItsMarkAndKind) {
    struct Case {
        const char* format;
        LogArguments arguments;
        const char* text;
    };
    const Case cases[] = {
        {"", {}, ""},
        {"plain", {}, "plain"},
        {"::operationCount:%{public}d", {3}, "::operationCount:3"},
        {"%{public}d", {-7}, "-7"},
        {"%{private}d", {3}, "<private>"},
        {"%d", {3}, "3"},
        {"%d", {std::numeric_limits<std::int64_t>::min()}, "-9223372036854775808"},
        {"%d", {std::size_t{12}}, "12"},
        {"%x", {255}, "ff"},
        {"%x", {-1}, "ffffffffffffffff"},
        {"%{public}x", {16}, "10"},
        {"%{private}x", {16}, "<private>"},
        {"%f", {2.5}, "2.500000"},
        {"%{public}f", {-0.125}, "-0.125000"},
        {"%{private}f", {2.5}, "<private>"},
        {"%s", {"text"}, "<private>"},
        {"%{public}s", {"text"}, "text"},
        {"%{private}s", {"text"}, "<private>"},
        {"%@", {object("object")}, "<private>"},
        {"%{public}@", {object("object")}, "object"},
        {"%{private}@", {object("object")}, "<private>"},
        {"::query:%{private}s::params:%{private}@",
         {"select 1", object("[1]")},
         "::query:<private>::params:<private>"},
        {"100%% of %{public}s, %d", {"it", 4}, "100% of it, 4"},
        {"%%d", {4}, "%d"},
        {"%{public}%", {}, "%"},
        {"a mark we do not know changes nothing: %{secret}s %{secret}d",
         {"text", 1},
         "a mark we do not know changes nothing: <private> 1"},
        {"too few: %d %{private}s %{public}@", {1}, "too few: 1 <mismatch> <mismatch>"},
        {"too many: %d", {1, 2}, "too many: 1"},
        {"%d|%d", {"text", 2}, "<mismatch>|2"},
        {"%d", {1.0}, "<mismatch>"},
        {"%f", {1}, "<mismatch>"},
        {"%{public}s", {1}, "<mismatch>"},
        {"%{public}s", {object("object")}, "<mismatch>"},
        {"%{public}@", {"text"}, "<mismatch>"},
        {"%{public}@", {LogArgument::Description()}, "<mismatch>"},
        {"an unknown conversion takes its argument: %q %d",
         {1, 2},
         "an unknown conversion takes its argument: <mismatch> 2"},
        {"cut off: %", {1}, "cut off: <mismatch>"},
        {"cut off: %{public}", {1}, "cut off: <mismatch>"},
        {"cut off: %{public d", {1}, "cut off: <mismatch>"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(formatLog(each.format, each.arguments), each.text) << each.format;
    }
}

TEST(LogFormat, NeverDescribesAPrivateObject) {
    int described = 0;
    const LogArgument object([&] {
        ++described;
        return std::string("secret");
    });
    EXPECT_EQ(formatLog("%@ %{private}@ %d", {object, object, object}),
              "<private> <private> <mismatch>");
    EXPECT_EQ(described, 0);
    EXPECT_EQ(formatLog("%{public}@", {object}), "secret");
    EXPECT_EQ(described, 1);
}

TEST(Log, HandsEachLineToTheWriterOnTheThreadThatLogs) {
    test::Transcript transcript;
    const auto here = std::this_thread::get_id();
    WriterGuard guard([&](const LogLine& line) {
        const char* level = line.level == LogLevel::debug   ? "debug"
                            : line.level == LogLevel::info  ? "info"
                            : line.level == LogLevel::error ? "error"
                                                            : "another";
        transcript.add(std::string(level) + " " + std::string(line.subsystem) + " " +
                       std::string(line.category) + " " + std::string(line.text));
        EXPECT_EQ(std::this_thread::get_id(), here);
    });
    const Log log("subsystem", "category");
    EXPECT_TRUE(log.isEnabled());
    log.debug("one %d", {1});
    log.info("two %{public}s", {"2"});
    Log copy = Log::disabled();
    copy = log;
    copy.error("three %s", {"3"});
    EXPECT_EQ(transcript.lines(),
              (Lines{"debug subsystem category one 1", "info subsystem category two 2",
                     "error subsystem category three <private>"}));
}

TEST(Log, WritesNothingWhenDisabled) {
    test::Transcript transcript;
    WriterGuard guard([&](const LogLine& line) { transcript.add(std::string(line.text)); });
    const Log log = Log::disabled();
    EXPECT_FALSE(log.isEnabled());
    log.debug("one");
    log.info("two");
    log.error("%{public}@", {LogArgument([] { return std::string("three"); })});
    EXPECT_EQ(transcript.lines(), Lines{});
}

TEST(Log, LetsAWriterLogAndBeCalledByOthersMeanwhile) {
    test::Transcript transcript;
    WriterGuard guard([&](const LogLine& line) {
        transcript.add(std::string(line.text));
        if (line.text == "outer") {
            std::thread([] { Log("", "").info("inner"); }).join();
        }
    });
    Log("", "").info("outer");
    EXPECT_EQ(transcript.lines(), (Lines{"outer", "inner"}));
}

TEST(LogDeathTest, RefusesToWriteUnderALock) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Mutex mutex;
            Lock lock(mutex);
            Log("", "").info("line");
        },
        "a lock is held while a log line is written");
}

} // namespace
