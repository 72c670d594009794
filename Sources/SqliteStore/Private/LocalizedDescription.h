#pragma once

#include <exception>
#include <string>

namespace zem {

/// The generic text for an error, which is all that callers of the store are told: it names the
/// error's type and code and nothing of what the error was about.
std::string localizedDescription(const std::exception_ptr& error);

} // namespace zem
