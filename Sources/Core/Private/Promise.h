#pragma once

// The promises that functions of the runtime's objects return.

#include <zem/JavaScript/Promise.h>

namespace zem {

/// Has one of the two called when the promise that the runtime answered with is settled. False when
/// it answered with no promise, or with an exception. Exceptions, of "then" as well, go to the
/// context's uncaught handler; a "then" that throws counts as a promise: it may settle yet.
bool followPromise(js::Scope& scope, const js::Result<js::Local>& answer,
                   js::SettledFunction fulfilled, js::SettledFunction rejected = {});

/// Calls `function` of the runtime's `object` and has one of the two called when the promise that
/// it returns is settled. An answer that has no "then" is reported to the context's uncaught
/// handler, like an exception.
void callForPromise(js::Scope& scope, js::Local object, const js::Name& function,
                    js::Arguments arguments, js::SettledFunction fulfilled,
                    js::SettledFunction rejected);

} // namespace zem
