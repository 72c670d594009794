#pragma once

// External actions on their way from the runtime to the native executor, and its reply back.

#include <zem/Core/DraftManagerBatch.h>
#include <zem/JavaScript/Scope.h>

namespace zem {

/// The function that the runtime calls with an external action and a callback. It outlives the
/// manager: the runtime is told of its end, and until it has heard of that actions are carried out.
js::Local externalActionFunction(js::Scope& scope, ExternalActionExecutor executor);

} // namespace zem
