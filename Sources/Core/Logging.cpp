#include <zem/Core/Logging.h>

namespace zem {

constinit std::atomic<Logging::TraceLevel> Logging::traceLevel = TraceLevel::standard;

} // namespace zem
