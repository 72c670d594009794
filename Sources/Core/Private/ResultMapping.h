#pragma once

// The meaning of the runtime's answers.

#include <zem/Core/DataServiceResult.h>

#include <expected>
#include <optional>
#include <string>
#include <string_view>

namespace zem {

/// JSON text of the runtime's answer. Absent when the answer is no object, or one that nobody can
/// read.
using AnswerText = std::optional<std::string>;

/// The runtime's answer, or the reason why there is none to hand on.
using Outcome = std::expected<AnswerText, DataServiceError>;

/// The `errorType` of an error that is told by its message.
inline constexpr std::string_view networkErrorType = "networkAdapterError";

/// The result when an answer holds neither data nor a readable error.
using Fallback = DataServiceResult (*)();

struct funcMap {
    /// `data` before `error` before `errors`.
    static DataServiceResult mapResult(Dictionary answer, Fallback fallback);
};

/// The same from the text. Where that is nested too deeply, what counts in it is read by itself.
DataServiceResult mapAnswer(const AnswerText& answer, Fallback fallback);

/// The failure of an answer that has `data` which cannot be carried over.
DataServiceError dataNotCarriedOver(const std::string& why);

/// A subscription that heard nothing useful has failed.
DataServiceResult subscriptionFallback();
/// A one-shot call that heard nothing useful was done: what it asked for has no data.
DataServiceResult oneShotFallback();

} // namespace zem
