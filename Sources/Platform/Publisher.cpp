#include <zem/Platform/Publisher.h>

#include <atomic>

namespace zem::platform {

namespace {

std::atomic<std::uint64_t> lastIdentifier = 0;

} // namespace

CombineIdentifier::CombineIdentifier()
    : number(++lastIdentifier) {}

} // namespace zem::platform
