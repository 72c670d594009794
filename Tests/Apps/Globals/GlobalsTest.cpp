// Every bundle of bundles/ checks one global, and says at its end how many checks it made.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <algorithm>
#include <filesystem>

namespace {

std::vector<std::string> bundles() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(ZEM_TEST_BUNDLES)) {
        if (entry.path().extension() == ".js") {
            names.push_back(entry.path().stem().stem().string());
        }
    }
    std::ranges::sort(names);
    return names;
}

class Globals : public testing::TestWithParam<std::string> {};

TEST_P(Globals, PassTheBundlesChecks) {
    const test::Host host;
    const std::string bundle = std::string(ZEM_TEST_BUNDLES) + "/" + GetParam() + ".test.js";
    const auto result = host.run({"run", bundle, "--memory"});
    EXPECT_THAT(result.output, testing::MatchesRegex("[1-9][0-9]* checks\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

INSTANTIATE_TEST_SUITE_P(Bundles, Globals, testing::ValuesIn(bundles()), [](const auto& parameter) {
    std::string name = parameter.param;
    std::ranges::replace(name, '-', '_');
    return name;
});

TEST(Globals, ACheckThatFailsIsNoticed) {
    const test::Host host;
    const auto result = host.runScript("throw new Error('check 1 failed')");
    EXPECT_EQ(result.code, 1);
}

} // namespace
