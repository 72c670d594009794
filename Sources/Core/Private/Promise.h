#pragma once

// Hearing of what becomes of the runtime's promises.

#include <zem/JavaScript/Scope.h>

#include <functional>

namespace zem {

/// Called with what a promise was settled with, on the thread that runs the JavaScript.
using SettledFunction = std::move_only_function<void(js::Scope&, js::Local)>;

/// Whether the runtime's answer is meant as a promise: it has something named "then".
bool isPromise(js::Scope& scope, js::Local answer);

/// Has one of the two called when `promise` is settled, which may be before this returns. Whether
/// it really is a promise is its own affair: what is no promise may call both, and more than once.
/// Fails when it could not be asked.
js::Result<void> whenSettled(js::Scope& scope, js::Local promise, SettledFunction fulfilled,
                             SettledFunction rejected);

/// The same for the promise that a function of the runtime's object returns. What that throws, or
/// that it returns no promise, goes to the context's uncaught handler.
void callForPromise(js::Scope& scope, js::Local object, const js::Name& function,
                    js::Arguments arguments, SettledFunction fulfilled, SettledFunction rejected);

} // namespace zem
