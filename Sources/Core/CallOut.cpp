#include <zem/Core/Private/CallOut.h>

namespace zem {

const platform::Log& coreLog() {
    static const platform::Log& log = *new platform::Log("com.quorvane.ZEM", "DataService");
    return log;
}

} // namespace zem
