#include <zem/Platform/UUID.h>

#include <gmock/gmock.h>

#include <set>

TEST(UUID, IsCanonicalUpperCaseAndOfTheRandomVersion) {
    for (int count = 0; count < 1000; ++count) {
        EXPECT_THAT(zem::platform::makeUUID(),
                    testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-"
                                          "[0-9A-F]{12}"));
    }
}

TEST(UUID, IsFreshEachTime) {
    std::set<std::string> seen;
    for (int count = 0; count < 1000; ++count) {
        seen.insert(zem::platform::makeUUID());
    }
    EXPECT_EQ(seen.size(), 1000U);
}
