#pragma once

// Engine contexts for tests, entered the way this run asks for.

#include <zem/JavaScript/Context.h>
#include <zem/Platform/RunLoop.h>

#include <functional>
#include <memory>
#include <source_location>
#include <string_view>

namespace test {

/// A context entered inline, or bound to `engineRunLoop()`. At the end of the test, when everything
/// that the test made is gone, its garbage is collected; a handle that is still alive then fails
/// the test.
zem::js::Context makeContext();

/// A context that nobody but its maker refers to, for tests of letting go.
zem::js::Context makeUncheckedContext();

/// The run loop of the engine's thread, which all bound contexts of the program share; null where
/// this run enters inline.
std::shared_ptr<zem::platform::RunLoop> engineRunLoop();

/// Runs `work`, which uses the engine without ZEM as an application does, on the thread that uses
/// the engine, and returns when it has run.
void onEngineThread(const std::function<void()>& work);

/// Evaluates `script` and compares what came out. `type` is the value's kind as the error texts
/// name it, without the article ("string", "array"), or "exception" for what was thrown. `value` is
/// the text that `describe` makes of it, or the JSON text of an object or array.
void expectEval(const zem::js::Context& context, std::string_view script, std::string_view type,
                std::string_view value,
                std::source_location where = std::source_location::current());

/// Evaluates a script that has no result to look at; fails the test when it throws.
void evaluate(const zem::js::Context& context, std::string_view script,
              std::source_location where = std::source_location::current());

/// Performs `work` on a stack that is gone afterwards, and `collectGarbage` collects what is
/// garbage: for tests that count what is left. The collector takes everything on a stack that looks
/// like a value for one, so nothing may be left lying there.
void performApart(const zem::js::Context& context,
                  const std::function<void(zem::js::Scope&)>& work);
void collectGarbage(const zem::js::Context& context);

/// Gives other threads time and occasion to come in, of which only an open door lets them make use.
/// To be called by a native function.
void letOthersIn(zem::js::Scope& scope);

/// Makes a global function of a native one.
void setFunction(const zem::js::Context& context, std::string_view name, unsigned length,
                 zem::js::NativeFunction body);

} // namespace test
