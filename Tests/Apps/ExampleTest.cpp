// The README shows the real output of the host and of its first program.

#include "Host.h"

#include <gmock/gmock.h>

#include <Support/SecretService.h>

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

TEST(Example, TheFirstProgramFindsItsStoreAgain) {
    const test::SessionBus bus;
    test::SecretService service(bus);
    const test::TemporaryFolder folder;
    for (int start = 0; start < 2; ++start) {
        const auto result =
            test::Process({ZEM_EXAMPLE_EMBEDDING}, {.folder = folder.path(), .environment = {}})
                .wait();
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.output, "0 entries\n");
        EXPECT_EQ(result.code, 0);
    }
    EXPECT_EQ(service.item("com.quorvane.ZEM.SQLiteStoreKey").secret.size(), 32U);
    EXPECT_EQ(service.item("com.quorvane.ZEM.SQLiteStoreSalt").secret.size(), 16U);
}

} // namespace
