#include <zem/SqliteStore/Private/FatalError.h>

#include <cstdio>
#include <cstdlib>

namespace zem {

void fatalError(const char* why) {
    std::fprintf(stderr, "Fatal error: %s\n", why);
    std::abort();
}

} // namespace zem
