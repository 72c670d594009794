#include <zem/Core/Logging.h>
#include <zem/SqliteStore/Private/SQLiteStoreLog.h>

namespace zem {
namespace {

bool isTracing() {
    return Logging::traceLevel.load() > Logging::TraceLevel::off;
}

} // namespace

const platform::Log& sqliteStoreLog() {
    static const platform::Log& log = *new platform::Log(
        isTracing() ? platform::Log("com.quorvane.ZEM", "SQLiteStore") : platform::Log::disabled());
    return log;
}

void emitSQLiteStoreEvent(std::string_view name) {
    if (isTracing()) {
        sqliteStoreLog().event(platform::currentSignpostID(), name);
    }
}

} // namespace zem
