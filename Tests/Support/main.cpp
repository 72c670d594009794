// The entry of every test program: which way the tests enter the engine is an argument, so that the
// same suite passes both ways.

#include <gmock/gmock.h>

#include <Support/EngineEntry.h>
#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    for (int index = 1; index < argc; ++index) {
        if (std::strcmp(argv[index], "--engine=inline") == 0) {
            test::engineEntry = test::EngineEntry::inline_;
        } else if (std::strcmp(argv[index], "--engine=bound") == 0) {
            test::engineEntry = test::EngineEntry::bound;
        } else {
            std::fprintf(stderr,
                         "unknown argument: %s (expected --engine=inline or --engine=bound)\n",
                         argv[index]);
            return 2;
        }
    }
    return RUN_ALL_TESTS();
}
