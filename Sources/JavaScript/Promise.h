#pragma once

// Answers of JavaScript that are promises.

#include <zem/JavaScript/Scope.h>

#include <functional>

namespace zem::js {

/// Called with the value that a promise was settled with, on the thread that runs the JavaScript,
/// inside the engine.
using SettledFunction = std::move_only_function<void(Scope&, Local)>;

/// Whether `answer` is to be taken for a promise: an object, an array or a function that has a
/// property named "then". The property is not read. Fails with what a proxy throws.
Result<bool> isPromise(Scope& scope, Local answer);

/// Reads "then" of `answer`, once, and calls it with a function for `fulfilled` and, where there is
/// one, a function for `rejected`. A promise then calls one of them when it is settled; any other
/// object may do so before this returns, may call both, and more than once. False, and nothing is
/// called, where there is no "then". Fails when it cannot be read, is no function or throws; an
/// object that throws may have kept the functions, and settle later.
Result<bool> whenSettled(Scope& scope, Local answer, SettledFunction fulfilled,
                         SettledFunction rejected = {});

} // namespace zem::js
