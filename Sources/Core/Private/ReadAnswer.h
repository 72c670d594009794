#pragma once

// Taking the runtime's answer out of the engine.

#include <zem/Core/Private/ResultMapping.h>
#include <zem/JavaScript/Scope.h>

namespace zem {

/// The answer as its JSON text, on the thread that runs the JavaScript; making a dictionary of it,
/// which takes longer, is left to the callback queue. Where the whole has no text (a cycle, a
/// BigInt, a getter that throws), the text of what counts in it. Fails when there is `data` that
/// cannot be read.
Outcome readAnswer(js::Scope& scope, js::Arguments arguments);

} // namespace zem
