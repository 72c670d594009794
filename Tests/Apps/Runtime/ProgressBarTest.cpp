// The line about long transfers, on a clock that the test moves.

#include <gmock/gmock.h>

#include <Apps/zem/Runtime/ProgressBar.h>
#include <memory>
#include <string>
#include <vector>

namespace {

using zem::host::describeProgress;
using zem::host::ProgressBar;
using zem::platform::ManualRunLoop;
using zem::platform::Seconds;
using Progress = zem::CurlNetworkAdapter::Progress;
using testing::ElementsAre;

constexpr std::uint64_t megabyte = 1'000'000;

Progress sending(const std::string& token, std::uint64_t sent, std::uint64_t toSend) {
    return {.token = token, .sent = sent, .toSend = toSend};
}

Progress over(const std::string& token) {
    return {.token = token, .isOver = true};
}

const std::string half(15, '#');
const std::string empty(15, '-');

TEST(ProgressBar, SaysHowMuchOfTheWholeIsDone) {
    EXPECT_EQ(describeProgress({sending("a", megabyte, 2 * megabyte)}),
              "sending [" + half + empty + "] 50%  1.0 MB of 2.0 MB");
    EXPECT_EQ(describeProgress({sending("a", 0, 10)}),
              "sending [" + empty + empty + "] 0%  0 B of 10 B");
    EXPECT_EQ(describeProgress({sending("a", 10, 10)}),
              "sending [" + half + half + "] 100%  10 B of 10 B");
    EXPECT_EQ(describeProgress({{.token = "a", .received = 5, .toReceive = 10}}),
              "receiving [" + half + empty + "] 50%  5 B of 10 B");
    // The answer to an upload.
    EXPECT_EQ(
        describeProgress({{.token = "a", .sent = 9, .toSend = 9, .received = 5, .toReceive = 10}}),
        "receiving [" + half + empty + "] 50%  5 B of 10 B");
    // A length that was told wrongly.
    EXPECT_EQ(describeProgress({{.token = "a", .received = 11, .toReceive = 10}}),
              "receiving [" + half + half + "] 100%  11 B of 10 B");
}

TEST(ProgressBar, HasNoBarWhereTheLengthIsNotKnown) {
    EXPECT_EQ(describeProgress({{.token = "a", .received = 1500}}), "receiving 1.5 kB");
    EXPECT_EQ(describeProgress({{.token = "a", .received = 1500}, sending("b", 500, 1000)}),
              "2 transfers 2.0 kB");
}

TEST(ProgressBar, AddsTransfersUp) {
    EXPECT_EQ(describeProgress({sending("a", megabyte, 2 * megabyte),
                                {.token = "b", .received = megabyte, .toReceive = 2 * megabyte}}),
              "2 transfers [" + half + empty + "] 50%  2.0 MB of 4.0 MB");
}

class ShownProgress : public testing::Test {
  protected:
    std::shared_ptr<ManualRunLoop> loop = ManualRunLoop::create();
    std::vector<std::string> lines;
    std::shared_ptr<ProgressBar> bar = std::make_shared<ProgressBar>(
        loop, [this](const std::string& line) { lines.push_back(line); });
};

TEST_F(ShownProgress, BeginsAfterHalfASecondAndIsRemovedAtTheEnd) {
    bar->update(sending("a", 1, 10));
    loop->advance(Seconds(0.45));
    EXPECT_THAT(lines, ElementsAre());
    bar->update(sending("a", 5, 10));
    loop->advance(Seconds(0.1));
    const std::string line = "sending [" + half + empty + "] 50%  5 B of 10 B";
    EXPECT_THAT(lines, ElementsAre(line));
    loop->advance(Seconds(10)); // nothing new
    EXPECT_THAT(lines, ElementsAre(line));
    bar->update(over("a"));
    EXPECT_THAT(lines, ElementsAre(line, ""));
    loop->advance(Seconds(10));
    EXPECT_EQ(lines.size(), 2U);
}

TEST_F(ShownProgress, LeavesShortTransfersOut) {
    bar->update(sending("a", 1, 10));
    loop->advance(Seconds(0.4));
    bar->update(over("a"));
    bar->update(sending("b", 1, 10));
    loop->advance(Seconds(0.4));
    bar->update(over("b"));
    loop->advance(Seconds(10));
    EXPECT_THAT(lines, ElementsAre());
}

TEST_F(ShownProgress, GoesOnWithTheOthersWhenOneIsOver) {
    bar->update(sending("a", 10, 10));
    bar->update(sending("b", 5, 10));
    loop->advance(Seconds(0.6));
    bar->update(over("a"));
    EXPECT_THAT(lines, ElementsAre("2 transfers [" + std::string(22, '#') + std::string(8, '-') +
                                       "] 75%  15 B of 20 B",
                                   "sending [" + half + empty + "] 50%  5 B of 10 B"));
}

TEST_F(ShownProgress, EndsForGood) {
    bar->update(sending("a", 5, 10));
    loop->advance(Seconds(0.6));
    bar->end();
    bar->update(sending("a", 6, 10));
    loop->advance(Seconds(10));
    EXPECT_THAT(lines, ElementsAre("sending [" + half + empty + "] 50%  5 B of 10 B", ""));
}

} // namespace
