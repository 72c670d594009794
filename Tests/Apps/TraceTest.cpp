#include "Host.h"

#include <boost/json/parse.hpp>
#include <gmock/gmock.h>

#include <csignal>

namespace {

using test::Host;

/// "phase name" of every event of the store's log, in the order of the file.
std::vector<std::string> events(const std::string& trace) {
    std::vector<std::string> found;
    const boost::json::value document = boost::json::parse(trace);
    for (const boost::json::value& event : document.at("traceEvents").as_array()) {
        const auto* category = event.as_object().if_contains("cat");
        if (category != nullptr && category->as_string() == "SQLiteStore") {
            found.push_back(std::string(event.at("ph").as_string()) + " " +
                            std::string(event.at("name").as_string()));
        }
    }
    return found;
}

const std::string batch = "ZemSqliteStore.batchOperations([], (error) => { console.log(error);";
const std::vector<std::string> eventsOfBatch{
    "b batch", "n transaction begin", "n transaction commit", "n transaction committed", "e batch"};

TEST(Trace, HoldsTheStoresIntervalsAndEvents) {
    const Host host;
    const auto result =
        host.runScript(batch + "ZemSqliteStore.query('select 1', [], () => {}, () => {}) })",
                       {"--trace", "t.json"});
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, "null\n");
    EXPECT_EQ(result.code, 0);
    const auto found = events(host.read("t.json"));
    ASSERT_GE(found.size(), 7U);
    EXPECT_EQ(std::vector(found.begin(), found.begin() + 5), eventsOfBatch);
    EXPECT_EQ(found[5], "b query");
    EXPECT_EQ(found[6], "e query");
}

TEST(Trace, IsCompleteHoweverTheRunEnds) {
    struct Case {
        const char* end;
        int code;
    };
    for (const auto& [end, code] : {Case{"host.exit(4)", 4}, Case{"throw 1", 1}}) {
        const Host host;
        const auto result = host.runScript(batch + end + "})", {"--trace", "t.json"});
        EXPECT_EQ(result.code, code);
        const auto found = events(host.read("t.json"));
        ASSERT_GE(found.size(), 5U) << end;
        EXPECT_EQ(std::vector(found.begin(), found.begin() + 5), eventsOfBatch) << end;
    }
    const Host host;
    auto process = host.startScript(batch + "for (;;); })", {"--trace", "t.json"});
    process.waitForLine("null");
    process.signal(SIGINT);
    EXPECT_EQ(process.wait().code, 130);
    EXPECT_GE(events(host.read("t.json")).size(), 5U);
}

TEST(Trace, AFileThatCannotBeMadeIsNamed) {
    const Host host;
    const auto result = host.runScript("console.log('never')", {"--trace", "none/t.json"});
    EXPECT_EQ(result.errors, "zem: cannot write none/t.json: No such file or directory\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.code, 2);
}

} // namespace
