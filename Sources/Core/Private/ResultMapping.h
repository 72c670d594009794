#pragma once

// What the runtime's answers mean.

#include <zem/Core/DataServiceResult.h>

#include <optional>
#include <string>

namespace zem {

/// What the runtime called back with: its JSON text. Absent when it was no object, or an object
/// that has no JSON text (a cycle, a BigInt, a getter that throws).
using AnswerText = std::optional<std::string>;

/// The result when an answer holds neither data nor a readable error.
using Fallback = DataServiceResult (*)();

struct funcMap {
    /// `data` before `error` before `errors`.
    static DataServiceResult mapResult(Dictionary answer, Fallback fallback);
};

/// The same from the text.
DataServiceResult mapAnswer(const AnswerText& answer, Fallback fallback);

/// A subscription that heard nothing useful has failed.
DataServiceResult subscriptionFallback();
/// A one-shot call that heard nothing useful was done: what it asked for has no data.
DataServiceResult oneShotFallback();

} // namespace zem
