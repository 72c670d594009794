#include <Benchmarks/Measure.h>
#include <gtest/gtest.h>

#include <Support/Wait.h>
#include <chrono>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

TEST(Measure, RunsWorkAndFloorInTurnsAfterOneUnmeasuredPair) {
    test::Transcript transcript;
    const auto run = [&](const char* name) {
        return [&transcript, name] {
            transcript.add(name);
            return 1.0;
        };
    };
    bench::measure({"name", "ms", 2}, run("work"), run("floor"), 3);
    EXPECT_EQ(transcript.lines(),
              (Lines{"work", "floor", "work", "floor", "floor", "work", "work", "floor"}));
}

TEST(Measure, GivesTheRatioOfTheMedians) {
    // The first of each is not measured. Pair by pair the ratios would be 1, 8 and 3.
    std::vector<double> works{1000, 4, 8, 30};
    std::vector<double> floors{1000, 4, 1, 10};
    const auto next = [](std::vector<double>& costs) {
        return [&costs] {
            const double cost = costs.front();
            costs.erase(costs.begin());
            return cost;
        };
    };
    const bench::Result result = bench::measure({"name", "ms", 2}, next(works), next(floors), 3);
    EXPECT_EQ(result.value, 8);
    EXPECT_EQ(result.floor, 4);
    EXPECT_EQ(result.ratio(), 2);
}

TEST(Measure, TakesTheMeanOfTheMiddleTwoOfAnEvenNumber) {
    EXPECT_EQ(bench::median({7, 1, 3, 100}), 5);
    EXPECT_EQ(bench::median({2}), 2);
    EXPECT_THROW(bench::median({}), std::invalid_argument);
}

TEST(Measure, ReportsOneLineOfJson) {
    testing::internal::CaptureStdout();
    bench::report({{"store.upsert", "ms", 1.35}, 12.5, 10});
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "{\"name\": \"store.upsert\", \"value\": 12.5, \"floor\": 10, \"ratio\": 1.25, "
              "\"unit\": \"ms\", \"most\": 1.35}\n");
}

TEST(Measure, RefusesAFloorThatCostsNothing) {
    EXPECT_THROW(bench::report({{"name", "ms", 1}, 1, 0}), std::runtime_error);
}

TEST(Measure, TimesWorkInMilliseconds) {
    // The clock itself is the only measure of how long it took.
    const auto begin = std::chrono::steady_clock::now();
    const double measured = bench::milliseconds([] {
        const auto start = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(2)) {
        }
    });
    const std::chrono::duration<double, std::milli> around =
        std::chrono::steady_clock::now() - begin;
    EXPECT_GE(measured, 2);
    EXPECT_LE(measured, around.count());
}

} // namespace
