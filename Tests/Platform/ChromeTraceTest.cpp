#include <zem/Platform/ChromeTrace.h>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <gtest/gtest.h>

#include <Support/TemporaryFolder.h>
#include <Support/Wait.h>
#include <fstream>
#include <iterator>
#include <map>
#include <pthread.h>
#include <string>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace zem::platform;
namespace json = boost::json;
using Lines = std::vector<std::string>;

std::string contents(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

json::array events(const std::filesystem::path& file) {
    const json::object trace = json::parse(contents(file)).as_object();
    EXPECT_EQ(trace.size(), 2U);
    EXPECT_EQ(trace.at("displayTimeUnit"), "ms");
    return trace.at("traceEvents").as_array();
}

double time(const json::value& event) {
    return event.at("ts").to_number<double>();
}

// Each event without what differs from run to run, whose form is checked here.
Lines lines(const json::array& events) {
    Lines result;
    for (const auto& each : events) {
        json::object event = each.as_object();
        EXPECT_EQ(event.at("pid"), getpid());
        EXPECT_EQ(event.at("tid"), gettid());
        event.erase("pid");
        event.erase("tid");
        if (event.at("ph") != "M") {
            EXPECT_GE(time(each), 0);
            event.erase("ts");
        }
        result.push_back(json::serialize(event));
    }
    return result;
}

class ChromeTrace : public testing::Test {
  protected:
    void begin() { setSignpostSink(makeChromeTrace(file)); }
    static void end() { setSignpostSink(nullptr); }
    void TearDown() override { end(); }

    static std::string hex(SignpostID id) {
        char text[32];
        std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(id.value));
        return text;
    }

    static std::string nameOfThread() {
        char name[16];
        EXPECT_EQ(pthread_getname_np(pthread_self(), name, sizeof name), 0);
        return name;
    }

    const test::TemporaryFolder folder;
    const std::filesystem::path file = folder / "trace.json";
    const Log log{"com.quorvane.ZEM", "SQLiteStore"};
};

TEST_F(ChromeTrace, IsADocumentWithoutEvents) {
    begin();
    end();
    EXPECT_EQ(events(file), json::array{});
}

TEST_F(ChromeTrace, PairsIntervalsAndNestsTheirEvents) {
    begin();
    const SignpostID id = log.makeSignpostID();
    log.beginInterval(id, "batch", "::operationCount:%{public}d", {2});
    log.event(id, "transaction begin");
    log.event(id, "transaction committed");
    log.endInterval(id, "batch");
    log.event(SignpostID::null(), "transaction rollback");
    end();
    const auto written = events(file);
    EXPECT_EQ(
        lines(written),
        (Lines{
            R"({"name":"thread_name","ph":"M","args":{"name":")" + nameOfThread() + R"("}})",
            R"({"name":"batch","cat":"SQLiteStore","ph":"b","id":")" + hex(id) +
                R"(","args":{"message":"::operationCount:2"}})",
            R"({"name":"transaction begin","cat":"SQLiteStore","ph":"n","id":")" + hex(id) +
                R"(","args":{}})",
            R"({"name":"transaction committed","cat":"SQLiteStore","ph":"n","id":")" + hex(id) +
                R"(","args":{}})",
            R"({"name":"batch","cat":"SQLiteStore","ph":"e","id":")" + hex(id) + R"(","args":{}})",
            R"({"name":"transaction rollback","cat":"SQLiteStore","ph":"i","s":"t","args":{}})",
        }));
    for (std::size_t index = 2; index < written.size(); ++index) {
        EXPECT_LE(time(written[index - 1]), time(written[index]));
    }
}

TEST_F(ChromeTrace, CountsMicrosecondsFromItsStart) {
    const auto before = std::chrono::steady_clock::now();
    begin();
    const auto begun = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - begun < std::chrono::milliseconds(2)) {
    }
    log.event(SignpostID::null(), "event");
    const std::chrono::duration<double, std::micro> most =
        std::chrono::steady_clock::now() - before;
    end();
    const double written = time(events(file).at(1));
    EXPECT_GE(written, 2000);
    EXPECT_LE(written, most.count());
}

TEST_F(ChromeTrace, HoldsNothingPrivate) {
    begin();
    const SignpostID id = log.makeSignpostID();
    log.beginInterval(id, "query", "::query:%{private}s::params:%{private}@",
                      {"select secret", LogArgument([] { return std::string("[secret]"); })});
    log.endInterval(id, "query", "error: %{private}s", {"secret"});
    end();
    EXPECT_EQ(contents(file).find("secret"), std::string::npos);
    const auto written = events(file);
    EXPECT_EQ(written.at(1).at("args").at("message"), "::query:<private>::params:<private>");
    EXPECT_EQ(written.at(2).at("args").at("message"), "error: <private>");
}

TEST_F(ChromeTrace, EscapesTextAndReplacesWhatIsNotUTF8) {
    begin();
    const SignpostID id = log.makeSignpostID();
    Log("s", "a \"category\"").beginInterval(id, "na\nme\\", "%{public}s", {"\x01 \xff é"});
    end();
    const auto written = events(file);
    EXPECT_EQ(written.at(1).at("cat"), "a \"category\"");
    EXPECT_EQ(written.at(1).at("name"), "na\nme\\");
    EXPECT_EQ(written.at(1).at("args").at("message"), "\x01 \xEF\xBF\xBD é");
}

TEST_F(ChromeTrace, EndsWhatIsOpenInnermostFirst) {
    begin();
    const SignpostID id = log.makeSignpostID();
    log.beginInterval(id, "outer");
    log.beginInterval(id, "inner");
    log.beginInterval(id, "inner");
    log.endInterval(id, "inner");
    end();
    Lines found;
    for (const auto& event : events(file)) {
        found.push_back(json::serialize(event.at("ph")) + json::serialize(event.at("name")) +
                        json::serialize(event.at("args")));
    }
    found.erase(found.begin());
    EXPECT_EQ(found, (Lines{R"("b""outer"{})", R"("b""inner"{})", R"("b""inner"{})",
                            R"("e""inner"{})", R"("e""inner"{"message":"unfinished"})",
                            R"("e""outer"{"message":"unfinished"})"}));
}

TEST_F(ChromeTrace, LeavesOutTheEndOfWhatBeganBeforeIt) {
    const SignpostID id = log.makeSignpostID();
    log.beginInterval(id, "query");
    begin();
    log.endInterval(id, "query");
    const SignpostID another = log.makeSignpostID();
    log.beginInterval(another, "query");
    log.endInterval(another, "batch");
    Log("com.quorvane.ZEM", "Other").endInterval(another, "query");
    log.endInterval(another, "query");
    log.endInterval(another, "query");
    end();
    Lines found;
    for (const auto& event : events(file)) {
        found.push_back(json::serialize(event.at("ph")) + json::serialize(event.at("name")));
    }
    EXPECT_EQ(found, (Lines{R"("M""thread_name")", R"("b""query")", R"("e""query")"}));
}

TEST_F(ChromeTrace, KeepsIntervalsOfSeveralThreadsWhole) {
    begin();
    constexpr std::size_t threadCount = 4;
    constexpr std::size_t intervalCount = 250;
    {
        std::vector<std::jthread> threads;
        threads.reserve(threadCount);
        for (std::size_t number = 0; number < threadCount; ++number) {
            threads.emplace_back([&, number] {
                pthread_setname_np(pthread_self(), ("worker " + std::to_string(number)).c_str());
                for (std::size_t count = 0; count < intervalCount; ++count) {
                    const SignpostID id = log.makeSignpostID();
                    log.beginInterval(id, "batch");
                    log.event(id, "event");
                    std::jthread([&] { log.endInterval(id, "batch"); }).join();
                }
            });
        }
    }
    end();
    std::map<std::string, json::array> byInterval;
    std::map<std::int64_t, std::string> names;
    for (const auto& event : events(file)) {
        if (event.at("ph") == "M") {
            EXPECT_EQ(event.at("name"), "thread_name");
            names.emplace(event.at("tid").as_int64(), event.at("args").at("name").as_string());
        } else {
            EXPECT_TRUE(names.contains(event.at("tid").as_int64()));
            byInterval[std::string(event.at("id").as_string())].push_back(event);
        }
    }
    EXPECT_EQ(byInterval.size(), threadCount * intervalCount);
    for (const auto& [id, own] : byInterval) {
        ASSERT_EQ(own.size(), 3U) << id;
        EXPECT_EQ(own[0].at("ph"), "b");
        EXPECT_EQ(own[1].at("ph"), "n");
        EXPECT_EQ(own[2].at("ph"), "e");
        EXPECT_EQ(own[0].at("tid"), own[1].at("tid"));
        EXPECT_NE(own[0].at("tid"), own[2].at("tid"));
        EXPECT_TRUE(names.at(own[0].at("tid").as_int64()).starts_with("worker "));
        EXPECT_LE(time(own[0]), time(own[1]));
        EXPECT_LE(time(own[1]), time(own[2]));
    }
}

TEST_F(ChromeTrace, ReportsADiskThatIsFullOnceAndThrowsNothing) {
    test::Transcript reported;
    setLogWriter([&](const LogLine& line) {
        EXPECT_EQ(line.level, LogLevel::error);
        reported.add(std::string(line.subsystem) + "/" + std::string(line.category) + ": " +
                     std::string(line.text));
    });
    setSignpostSink(makeChromeTrace("/dev/full"));
    for (int count = 0; count < 1000; ++count) {
        const SignpostID id = log.makeSignpostID();
        log.beginInterval(id, "query", "%{public}s", {"some text that fills the buffer"});
        log.endInterval(id, "query");
    }
    const Lines once{"com.quorvane.ZEM/Trace: The trace /dev/full is incomplete: "
                     "No space left on device"};
    EXPECT_EQ(reported.lines(), once);
    end();
    EXPECT_EQ(reported.lines(), once);

    // Found out only when the last buffer is written.
    setSignpostSink(makeChromeTrace("/dev/full"));
    end();
    EXPECT_EQ(reported.lines(), (Lines{once[0], once[0]}));
    setLogWriter(nullptr);
}

TEST_F(ChromeTrace, ThrowsWhenTheFileCannotBeMade) {
    const auto place = folder / "absent" / "trace.json";
    try {
        makeChromeTrace(place);
        FAIL() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
        EXPECT_EQ(std::string(error.what()),
                  "trace file " + place.string() + ": No such file or directory");
    }
}

} // namespace
