#pragma once

// A signpost sink that writes the Chrome trace format (the JSON object form with "traceEvents"),
// which the usual trace viewers open.

#include <zem/Platform/Log.h>

#include <filesystem>
#include <memory>

namespace zem::platform {

/// Begins a trace in `file`. Intervals become nestable async events paired by their identifier,
/// events become instants; private arguments are written as "<private>". The file is a complete
/// JSON document once the sink is destroyed: an interval that is open then ends there, with the
/// message "unfinished"; the end of one that began before the trace is left out. When writing
/// fails, the rest is dropped and the log hears of it once. Throws std::system_error when the file
/// cannot be made.
std::shared_ptr<SignpostSink> makeChromeTrace(const std::filesystem::path& file);

} // namespace zem::platform
