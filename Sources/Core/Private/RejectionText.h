#pragma once

// The text with which a draft queue refuses.

#include <zem/JavaScript/Scope.h>

#include <string>

namespace zem {

/// The text of the reason's "error" property, or a fixed text where there is none to be had.
std::string rejectionText(js::Scope& scope, js::Local reason);

} // namespace zem
