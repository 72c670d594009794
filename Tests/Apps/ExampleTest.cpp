// What the README says the host prints.

#include "Host.h"

#include <gmock/gmock.h>

namespace {

using test::Host;

TEST(Example, TheDraftsCommandsPrintWhatTheReadmeShows) {
    const std::string source = ZEM_TEST_SOURCE;
    const Host host;
    const auto result = host.run({"run", source + "/Examples/drafts/runtime.js", "--memory",
                                  "--commands", source + "/Examples/drafts/commands.txt"});
    std::ifstream file(source + "/README.md");
    const std::string readme(std::istreambuf_iterator<char>(file), {});
    EXPECT_THAT(readme, testing::HasSubstr("```\n$ build/zem run Examples/drafts/runtime.js "
                                           "--memory --commands Examples/drafts/commands.txt\n" +
                                           result.output + "```\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

} // namespace
