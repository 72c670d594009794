#pragma once

#include <zem/Platform/RunLoop.h>

namespace zem::platform {

/// The youngest living ManualRunLoop that the calling thread made; null when there is none.
std::shared_ptr<RunLoop> installedRunLoop();

} // namespace zem::platform
